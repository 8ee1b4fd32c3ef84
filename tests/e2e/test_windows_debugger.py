"""The output of a Windows daemon in a debugger-output viewer."""

import subprocess

import pytest

from support import programs
from support.output import Output

pytestmark = pytest.mark.windows_only("on Linux these lines go to the system log")

LISTENER = "quelta_windows_debuglistener.exe"


@pytest.fixture
def debugger_output():
    """Listens for debugger output; yields the listener's lines."""
    process = subprocess.Popen(
        programs.command(programs.bin_dir() / LISTENER),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
    )
    output = Output(process.stdout or ())
    output.wait("listening")
    yield output
    process.kill()
    process.wait()


def texts_by_sender(lines):
    texts: dict[str, bytes] = {}
    for line in lines:
        sender, _, text = line.partition(" ")
        texts[sender] = texts.get(sender, b"") + bytes.fromhex(text)
    return [text.decode() for text in texts.values()]


def test_each_line_is_received_once_and_in_order(make_node, debugger_output):
    node = make_node(flags="daemon logPrefix logToDebugConsole")
    node.start(["--port", "5130", "--alias", "Größe 日本"])
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert len(lines) > 5
    assert any("Größe 日本" in line for line in lines)
    # The daemon waits until the listener has taken each text; only the last may be in flight.
    debugger_output.wait_match(rf"\d+ {lines[-1].encode().hex()}")
    sent = texts_by_sender(debugger_output.lines()[1:])
    assert [text.rstrip("\n") for text in sent] == ["\n".join(lines)]
