"""The format and destination of log lines: prefix field, time stamp, streams, log file."""

import os
import re
import time

import pytest

from support.node import wait_until
from support.output import daemon_line, error_line, plain_line
from support.transcript import usage

NO_SLAVE = "No path to the Quelta render slave given."


def finished(node, **popen):
    node.start([], **popen)
    node.output.rest()
    assert node.wait_exit() == 0
    return node.output.lines()


def test_prefix_field(make_node):
    node = make_node(flags="logPrefix daemon")
    lines = finished(node)
    complaint = [NO_SLAVE, *usage(node.program)]
    assert lines[0].startswith(plain_line("Started logging on "))
    assert lines[1:3] == [plain_line(""), daemon_line("Command line:")]
    assert lines[3] == daemon_line("")
    # Some usage texts begin with a line feed, which follows the prefix.
    assert lines[4:-3] == [
        error_line(NO_SLAVE),
        error_line(""),
        complaint[2],
        error_line(complaint[3]),
        error_line(""),
        complaint[5],
    ]
    assert lines[-3] == plain_line("")
    assert lines[-2].startswith(plain_line("Stopped logging on "))
    assert lines[-1] == plain_line("")


def test_time_stamp_is_utc_and_comes_first(make_node):
    node = make_node(flags="logTime logPrefix")
    before = time.time()
    lines = finished(node)
    after = time.time()
    match = re.match(r"\[(\d\d):(\d\d):(\d\d)\.(\d{3})\] {13}Started logging on ", lines[0])
    assert match
    hours, minutes, seconds, milliseconds = (int(group) for group in match.groups())
    stamp = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds
    span = (int(after * 1000) - int(before * 1000)) % 86400000
    assert (stamp - int(before * 1000)) % 86400000 <= span
    assert re.fullmatch(r"\[\d\d:\d\d:\d\d\.\d{3}\] ERROR     : " + re.escape(NO_SLAVE), lines[2])


def test_time_stamp_without_prefix(make_node):
    lines = finished(make_node(flags="logTime"))
    assert re.fullmatch(r"\[\d\d:\d\d:\d\d\.\d{3}\] " + re.escape(NO_SLAVE), lines[2])
    assert re.fullmatch(r"\[\d\d:\d\d:\d\d\.\d{3}\] ", lines[1])


@pytest.mark.linux_only("TZ does not set a Windows program's time zone")
def test_start_line_is_local_time_while_stamps_are_utc(make_node):
    lines = finished(make_node(flags="logTime"), env={**os.environ, "TZ": "XYZ-05:30"})
    match = re.match(
        r"\[(\d\d:\d\d:\d\d)\.\d{3}\] Started logging on \S+ (\d\d:\d\d:\d\d)$", lines[0]
    )
    assert match
    stamp, local = match.groups()

    def seconds(text):
        return sum(int(part) * unit for part, unit in zip(text.split(":"), (3600, 60, 1)))

    assert (seconds(local) - seconds(stamp)) % 86400 in (19800, 19801)


def test_no_log_file_by_default(make_node):
    node = make_node(flags="logForceFlush logFlushTime=10 logAppendToFile")
    finished(node)
    assert not node.log_file.exists()


def test_log_file_has_the_same_lines_with_lf_endings(make_node):
    node = make_node(flags="logToFile logPrefix daemon")
    lines = finished(node)
    assert node.log_file.read_bytes() == "".join(line + "\n" for line in lines).encode()


def test_log_file_without_standard_output(make_node):
    node = make_node(flags="logToFile logToStdout=0")
    assert finished(node) == []
    assert NO_SLAVE in node.log_file.read_text().split("\n")


def test_log_file_is_overwritten(make_node):
    node = make_node(flags="logToFile")
    node.log_file.write_text("of old\n")
    lines = finished(node)
    assert node.log_file.read_text() == "\n".join(lines) + "\n"


def test_log_file_can_be_appended_to(make_node):
    node = make_node(flags="logToFile logAppendToFile")
    node.log_file.write_bytes(b"of old, no line end")
    first = finished(node)
    second = finished(node)
    assert (
        node.log_file.read_bytes()
        == b"of old, no line end" + ("\n".join(first + second) + "\n").encode()
    )


@pytest.mark.linux_only("TMPDIR names the temporary folder on Linux")
def test_log_file_falls_back_to_the_temporary_folder(make_node):
    node = make_node(flags="logToFile")
    node.log_file.mkdir()
    temporary = node.folder / "temporary"
    temporary.mkdir()
    lines = finished(node, env={**os.environ, "TMPDIR": str(temporary)})
    assert (temporary / node.log_file.name).read_text() == "\n".join(lines) + "\n"


@pytest.mark.linux_only("TMPDIR names the temporary folder on Linux")
def test_log_file_that_cannot_be_opened_anywhere_is_silently_skipped(make_node):
    node = make_node(flags="logToFile logForceFlush")
    node.log_file.mkdir()
    lines = finished(node, env={**os.environ, "TMPDIR": str(node.folder / "missing")})
    assert lines[2:-3] == [NO_SLAVE, *usage(node.program)]
    assert node.errors.rest() == []


@pytest.fixture
def idle_node(make_node):
    """A serving daemon that logs nothing more: all of its lines are known."""

    def start(flags):
        node = make_node(flags=flags).serve()
        node.output.wait(f"start listening for masters on port {node.port}")
        return node

    return start


@pytest.mark.parametrize("value", ["1", "-1"])
def test_every_line_is_flushed_on_request(idle_node, value):
    node = idle_node(f"daemon logToFile logForceFlush={value}")
    written = node.log_file.read_text()
    assert written.endswith(f"start listening for masters on port {node.port}\n")


def test_lines_are_flushed_every_n_lines(make_node):
    """Start-up logs fourteen texts, some of several lines, so the first ten have been flushed."""
    node = make_node(flags="logToFile logForceFlush=5").serve()
    lines = node.log_file.read_text().split("\n")
    assert lines[-4:] == [
        "  daemon port:   %u" % node.port,
        "  GPU selection: all",
        "Slave information:",
        "",
    ]


def test_lines_are_buffered_by_default(idle_node):
    node = idle_node("daemon logToFile")
    assert node.log_file.read_bytes() == b""
    node.quit()
    assert node.log_file.read_text().split("\n")[:-1] == node.own_lines()


def test_lines_are_flushed_by_the_timer(idle_node):
    node = idle_node("daemon logToFile logFlushTime=50")
    wait_until(
        lambda: node.log_file.read_text().split("\n")[:-1] == node.own_lines(),
        "the timer has flushed",
    )


@pytest.mark.parametrize(
    "stream, flags", [("stdout", "daemon"), ("stderr", "daemon logToStdout=2")]
)
def test_redirected_stream_is_not_buffered(make_node, stream, flags):
    node = make_node(flags=flags)
    file = node.folder / "redirected.txt"
    with file.open("wb") as target:
        node.start(**{stream: target})
    text = f"start listening for masters on port {node.port}\n"
    wait_until(lambda: text in file.read_text(), "the line is in the file of a running daemon")
    assert node.process.poll() is None


def test_closed_standard_output_is_harmless(make_node, make_master):
    node = make_node(flags="daemon")
    reader, writer = os.pipe()
    node.serve(stdout=writer)
    os.close(writer)
    os.close(reader)
    master = make_master().join(node)
    master.expect_silence(node.status(1))
    node.quit()


@pytest.mark.linux_only("the terminal of a Windows program is Wine's console")
def test_terminal_gets_plain_lines(make_node):
    node = make_node(flags=None)
    terminal, device = os.openpty()
    node.start([], stdout=device)
    os.close(device)
    text = b""
    while True:
        try:
            piece = os.read(terminal, 4096)
        except OSError:
            break
        text += piece
    os.close(terminal)
    assert node.wait_exit() == 0
    assert text.replace(b"\r\n", b"\n").decode().split("\n")[2:4] == [NO_SLAVE, ""]
    assert b"\0" not in text
