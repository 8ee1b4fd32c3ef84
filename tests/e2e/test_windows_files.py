"""Streams and files of a Windows daemon, byte for byte."""

import shutil

import pytest

from support import programs
from support.transcript import usage

pytestmark = pytest.mark.windows_only(
    "line ends, drives and the temporary folder are those of Windows"
)

NO_SLAVE = "No path to the Quelta render slave given."


@pytest.mark.parametrize(
    "stream, flags", [("stdout", "logToFile"), ("stderr", "logToFile logToStdout=2")]
)
def test_redirected_stream_has_crlf_endings_and_the_log_file_lf(make_node, stream, flags):
    node = make_node(flags=flags)
    with (node.folder / "redirected").open("wb") as redirected:
        node.start([], **{stream: redirected})
        assert node.wait_exit() == 0
    written = (node.folder / "redirected").read_bytes()
    assert NO_SLAVE.encode() + b"\r\n" in written
    # A line feed inside a text is translated like one that ends a line.
    assert written.count(b"\r\n") == written.count(b"\n") == written.count(b"\r")
    assert node.log_file.read_bytes() == written.replace(b"\r\n", b"\n")


@pytest.mark.parametrize(
    "form",
    [
        "{drive}\\slave\\{name}",
        "{drive}/slave/{name}",
        "{drive}\\daemon\\..\\slave\\{name}",
        "..\\slave\\{name}",
        ".\\..\\slave\\.\\{name}",
    ],
)
def test_accepted_forms_of_the_slave_path(make_node, form):
    node = make_node(flags=None)
    path = form.format(drive=programs.native_path(node.folder), name=node.slave.name)
    node.start(["--port", str(node.port), "--slave", path], cwd=node.folder / "daemon")
    shown = node.output.wait_match(r"  slave path:    (.*)").group(1)
    assert shown.replace("/", "\\").endswith("\\slave\\" + node.slave.name)
    assert not shown.startswith(".")


def test_slave_on_another_drive(make_node):
    """C: is the system drive, Z: that of the tests."""
    node = make_node(flags=None)
    node.start(["--port", "5130", "--slave", "C:\\windows"])
    assert '"C:\\windows" is not an existing file.' in node.output.rest()


def run_with_temporary_folder(node, folder):
    """Sets TMP in Windows' shell, because Wine does not pass it on from Linux."""
    program, node.program = node.program, "cmd"
    node.start(["/c", f"set TMP={programs.native_path(folder)}&& {programs.native_path(program)}"])
    node.program = program
    return node.output.rest()


def test_log_file_falls_back_to_the_temporary_folder(make_node):
    node = make_node(flags="logToFile")
    node.log_file.mkdir()
    temporary = node.folder / "temporary"
    temporary.mkdir()
    lines = run_with_temporary_folder(node, temporary)
    assert lines[2:-3] == [NO_SLAVE, *usage(node.program)]
    assert (temporary / node.log_file.name).read_bytes() == ("\n".join(lines) + "\n").encode()


def test_log_file_that_cannot_be_opened_anywhere_is_silently_skipped(make_node):
    node = make_node(flags="logToFile logForceFlush")
    node.log_file.mkdir()
    lines = run_with_temporary_folder(node, node.folder / "missing")
    assert lines[2:-3] == [NO_SLAVE, *usage(node.program)]
    assert node.errors.rest() == []


def test_program_folder_with_blanks_and_umlauts(make_node):
    node = make_node(flags="logToFile")
    folder = node.folder / "Größe 日本 (1)"
    shutil.move(node.program.parent, folder)
    node.program = folder / node.program.name
    node.start([])
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert NO_SLAVE in lines
    assert node.log_file.read_bytes() == ("\n".join(lines) + "\n").encode()
