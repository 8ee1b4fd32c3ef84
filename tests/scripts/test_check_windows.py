"""Checks the PowerShell scripts for real Windows as far as possible without PowerShell."""

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = sorted((ROOT / "packaging" / "windows").glob("*.ps1"))
PAIRS = {")": "(", "]": "[", "}": "{"}
TOKEN = re.compile(
    r"""@'\n.*?\n'@|<\#.*?\#>|(?<![$`\w])\#[^\n]*|'(?:[^']|'')*'"""
    r"""|[()\[\]{}"]|`.|[^()\[\]{}"'`\#@<]+|.""",
    re.DOTALL,
)


def read_code(text, position, brackets):
    """Checks brackets and strings up to the end of the text or of the enclosing bracket."""
    depth = len(brackets)
    while position < len(text):
        match = TOKEN.match(text, position)
        assert match
        token = match.group()
        position += len(token)
        assert (
            token != "'"
        ), f"a string is not closed in line {text.count(chr(10), 0, position) + 1}"
        if token == '"':
            position = read_string(text, position, brackets)
        elif token in PAIRS.values():
            brackets.append(token)
        elif token in PAIRS:
            line = text.count("\n", 0, position) + 1
            assert (
                brackets and brackets.pop() == PAIRS[token]
            ), f"'{token}' in line {line} closes nothing"
            if depth and len(brackets) < depth:
                return position
    assert not brackets, f"{brackets} is never closed"
    return position


def read_string(text, position, brackets):
    """Reads up to the closing quote, including the code in $(...)."""
    while text[position] != '"':
        if text[position] == "`":
            position += 2
        elif text.startswith("$(", position):
            position = read_code(text, position + 2, [*brackets, "("])
        else:
            position += 1
    return position + 1


def test_all_scripts_are_found():
    assert [script.name for script in SCRIPTS] == ["check-windows-support.ps1", "check-windows.ps1"]


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_script_is_ascii_for_every_code_page(script):
    script.read_bytes().decode("ascii")


@pytest.mark.parametrize("script", SCRIPTS, ids=lambda script: script.name)
def test_brackets_and_strings_are_closed(script):
    read_code(script.read_text(), 0, [])


@pytest.mark.parametrize(
    "broken", ["if ($a) { 'x'", "$b = (1 + 2]", '"$(Get-Item "x")', "'x", "f ) {"]
)
def test_unclosed_brackets_and_strings_are_detected(broken):
    with pytest.raises((AssertionError, IndexError)):
        read_code(broken + "\n", 0, [])


def test_every_called_function_exists():
    text = "\n".join(script.read_text() for script in SCRIPTS)
    defined = set(re.findall(r"^function ([\w-]+)", text, re.MULTILINE))
    called = set(re.findall(r"\b(?:Wait|Start|Read|New|Get|Send|Invoke|Stop)-[A-Z]\w+", text))
    assert called - defined == {
        "Get-Item",
        "Get-MpComputerStatus",
        "Get-NetFirewallApplicationFilter",
        "Get-NetFirewallPortFilter",
        "Get-NetFirewallRule",
        "Get-Process",
        "New-Item",
        "New-Object",
        "New-ScheduledTaskAction",
        "Start-Job",
        "Start-Process",
        "Start-ScheduledTask",
        "Start-Sleep",
        "Stop-Process",
        "Stop-ScheduledTask",
    }


def test_document_names_every_check():
    checks = re.findall(
        r"^Check '([\w-]+)'",
        (ROOT / "packaging/windows/check-windows.ps1").read_text(),
        re.MULTILINE,
    )
    assert len(checks) > 15
    named = set(re.findall(r"`([a-z0-9-]+)`", (ROOT / "docs/windows.md").read_text()))
    assert set(checks) - named == set()
