"""`quelta_exec_slave --check`: the errors of a configuration, and what it would run."""

import os
import re
import subprocess
from pathlib import Path

import pytest

from support import programs
from support.exec_slave import EXEC_SLAVE
from support.limits import HANG_LIMIT

ROOT = Path(__file__).parents[2]
README = ROOT / "tools" / "exec_slave" / "README.md"
EXAMPLE = ROOT / "packaging" / "quelta_exec_slave.toml.example"


def find_examples():
    """Returns the configurations in the README by the heading above them."""
    parts = re.split(r"^##+ (.*)$", README.read_text(encoding="utf-8"), flags=re.MULTILINE)
    return {
        heading: block
        for heading, text in zip(parts[1::2], parts[2::2])
        for block in re.findall(r"^```toml\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    }


EXAMPLES = {**find_examples(), "packaging": EXAMPLE.read_text(encoding="utf-8")}


@pytest.fixture
def check(tmp_path):
    """Runs the check in a folder of its own; returns the lines and the exit status."""
    program = programs.install(EXEC_SLAVE, tmp_path / "bin")

    def run(*arguments, **environment):
        ended = subprocess.run(
            programs.command(program, "--check", *map(programs.native_path, arguments)),
            env={**os.environ, **environment},
            cwd=tmp_path,
            stdout=subprocess.PIPE,
            encoding="utf-8",
            timeout=HANG_LIMIT,
        )
        return ended.stdout.splitlines(), ended.returncode

    return run


def row(lines, name):
    """Returns the text of a row."""
    [text] = [line[13:] for line in lines if line[:13].rstrip() == name]
    return text


def test_readme_has_the_promised_examples():
    assert list(find_examples()) == [
        "Configuration",
        "Blender",
        "POV-Ray",
        "Dask",
        "A program for Windows",
    ]


@pytest.mark.parametrize("name", EXAMPLES)
def test_example_has_no_errors(check, tmp_path, name):
    file = tmp_path / "example.toml"
    file.write_text(EXAMPLES[name], encoding="utf-8")
    lines, status = check(file)
    assert status == 0, "\n".join(lines)
    assert row(lines, "file") == programs.native_path(file)


def test_complete_example_has_every_key():
    names = re.findall(r"^(?:# )?(\w+) = |^\[(\w+)\]", EXAMPLES["Configuration"], re.MULTILINE)
    keys = """command folder version version_command version_pattern gpus errors environment ready
        line tcp after timeout alive period silence stop signal grace output prefix file max_size
        keep"""
    assert set(keys.split()) <= {key or table for key, table in names}


def test_shows_the_run_for_an_example_master(check, tmp_path):
    file = tmp_path / "worker.toml"
    file.write_text(
        'command = ["gone", "{master_address}:{master_port+1}", "{alias} {gpus}"]\n'
        'folder = "no such folder"\n'
        "version = 7\n"
        "gpus = 2\n"
        "environment.A = '{gpu_count}'\n"
    )
    lines, status = check(file)
    assert status == 0
    assert row(lines, "command") == "gone 192.0.2.1:21001 'node1 0,1'"
    assert row(lines, "program") == "not found"
    assert row(lines, "folder") == "no such folder (does not exist)"
    assert "A=2" in "\n".join(lines)
    assert row(lines, "version") == "7"
    assert row(lines, "GPUs").endswith(", 2 configured")
    assert row(lines, "ready") == "when the program has run for 0.5 s"
    linux = ["control group", "PID namespace", "sub-reaper"]
    assert row(lines, "containment") in (["job object"] if programs.ON_WINDOWS else linux)


def test_finds_the_program_in_path(check, tmp_path):
    name = programs.STANDIN_SLAVE
    (tmp_path / "worker.toml").write_text(f"command = ['{name}']\n")
    variable = "WINEPATH" if programs.ON_WINDOWS else "PATH"
    folder = programs.native_path(programs.bin_dir())
    lines, _ = check(tmp_path / "worker.toml", **{variable: folder})
    assert row(lines, "program").lower() == programs.native_path(programs.bin_dir() / name).lower()


def test_file_is_beside_the_executable_or_in_the_environment(check, tmp_path):
    beside, other = tmp_path / "bin" / "quelta_exec_slave.toml", tmp_path / "other.toml"
    lines, status = check()
    assert status == 2
    [line] = lines
    assert line.startswith(f"cannot read {programs.native_path(beside)}: ")

    for file in (beside, other):
        file.write_text("command = ['a']\n")
    lines, status = check()
    assert (row(lines, "file"), status) == (programs.native_path(beside), 0)
    lines, status = check(QUELTA_EXEC_SLAVE_CONFIG=programs.native_path(other))
    assert (row(lines, "file"), status) == (programs.native_path(other), 0)


def test_errors_are_those_of_the_readme(check, tmp_path):
    file = tmp_path / "farm.toml"
    file.write_text('command = ["farm-worker"]\nfoldr = "/tmp"\n\n\n[stop]\ngrace = 12\n')
    lines, status = check(file)
    assert status == 2
    told = [line.replace(programs.native_path(file), "farm.toml") for line in lines]
    assert len(told) == 2
    readme = README.read_text(encoding="utf-8").replace("\n alive,", " alive,")
    assert "\n".join(told) in readme


def test_port_above_the_highest_is_an_error(check, tmp_path):
    file = tmp_path / "worker.toml"
    file.write_text("command = ['a', '{master_port+44536}']\n")
    assert check(file) == (
        [
            f"{programs.native_path(file)}: expected a port up to 65535, found 65536, which is "
            "{master_port+44536} for the master's port 21000"
        ],
        2,
    )
