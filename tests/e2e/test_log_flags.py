"""The flags file beside the executable controls what is logged, where and in which format."""

import os
import stat

import pytest

from support.transcript import between_start_and_stop, usage

NO_SLAVE = "No path to the Quelta render slave given."

TABLE_HEAD = [
    "",
    "Flag                      Type    Value      Prefix       Description",
    "------------------------- ------- ---------- ------------ " + "-" * 80,
]

TABLE = [
    ("daemon", '"daemon"', "Enables general logging of the slave daemon."),
    ("daemonDetail", '"daemon"', "Enables detailed logging of the slave daemon."),
    (
        "logAppendToFile",
        '""',
        "If enabled, logging will be to the already existing log file appended",
    ),
    ("logFlags", '""', "If enabled, all log flags will be dumped during startup"),
    (
        "logFlushTime",
        '""',
        "The time (ms) after which the log is flushed. "
        "If set to 0, the timer based flush will be disabled.",
    ),
    ("logForceFlush", '""', "If enabled, every logged line will be flushed"),
    (
        "logJuce",
        '"JUCE"',
        "If enabled, JUCE logging will go through the logging framework of Quelta",
    ),
    ("logPrefix", '""', "If enabled, each log line will have a prefix"),
    ("logTime", '""', "If enabled, each log line will have a timestamp"),
    ("logToDebugConsole", '""', "If enabled, logging will go to the debug console (Windows only)"),
    ("logToFile", '""', "If enabled, logging will go to a log file"),
    (
        "logToStdout",
        '""',
        "If enabled, logging will go to standard out (when set to 1) "
        "or standard error (when set to 2)",
    ),
]


def table(**values):
    """Returns the flag table with these values and otherwise the defaults."""
    values = {"logFlags": 1, "logToStdout": 1, **values}
    rows = []
    for name, prefix, description in TABLE:
        rows.append(
            name.ljust(25)
            + " release "
            + str(values.get(name, 0)).ljust(10)
            + " "
            + prefix.ljust(12)
            + " "
            + description
        )
    return TABLE_HEAD + rows


def run_without_arguments(make_node, flags):
    """Runs a daemon that only logs an error and exits; `flags` is the content of its flags file."""
    node = make_node(flags=None)
    if flags is not None:
        node.flags_file.write_bytes(flags)
    node.start([])
    node.output.rest(), node.errors.rest()
    assert node.wait_exit() == 0
    return node


def assert_table(make_node, flags, **values):
    node = run_without_arguments(make_node, flags)
    lines = node.output.lines()
    assert lines[1:-3] == [*table(**values), "", NO_SLAVE, *usage(node.program)]
    assert node.errors.lines() == []


def test_without_a_flags_file_only_standard_output_is_enabled(make_node):
    node = run_without_arguments(make_node, None)
    assert between_start_and_stop(node.output.lines()) == [NO_SLAVE, *usage(node.program)]
    assert node.errors.lines() == []
    assert [file.name for file in node.program.parent.iterdir()] == [node.program.name]


def test_flag_table(make_node):
    assert_table(make_node, b"logFlags")


def test_flag_table_rows_literally(make_node):
    lines = run_without_arguments(make_node, b"logFlags").output.lines()
    assert (
        'daemon                    release 0          "daemon"     '
        "Enables general logging of the slave daemon."
    ) in lines
    assert (
        'logFlags                  release 1          ""           '
        "If enabled, all log flags will be dumped during startup"
    ) in lines


@pytest.mark.parametrize(
    "flags, values",
    [
        (b"logFlags daemonDetail=0 logFlushTime=7", {"logFlushTime": 7}),
        (b"logFlags\nlogFlushTime 7\n", {"logFlushTime": 7}),
        (b"logFlags\r\nlogFlushTime\t=\t7\r\n", {"logFlushTime": 7}),
        (b"=logFlags==logFlushTime=7=", {"logFlushTime": 7}),
        (b"logFlags logFlushTime", {"logFlushTime": 1}),
        (b"logFlags logFlushTime=1000ms", {"logFlushTime": 1}),
        (b"logFlags logFlushTime=5 logFlushTime=6", {"logFlushTime": 6}),
        (b"logFlags logFlushTime=5 logFlushTime", {"logFlushTime": 1}),
        (b"logFlags logFlushTime=1-2", {"logFlushTime": 1}),
        (b"logFlags logFlushTime=-", {}),
        (b"logFlags logFlushTime=--3", {}),
        (b"logFlags logFlushTime=-3", {"logFlushTime": -3}),
        (b"logFlags logFlushTime=99999999999", {"logFlushTime": 2147483647}),
        (b"logFlags logFlushTime=-99999999999999999999", {"logFlushTime": -2147483648}),
        (b"logFlags logAppendToFile=12345678901", {"logAppendToFile": 2147483647}),
        (b'logFlags "logFlushTime" "logFlushTime=4"', {}),
        (b"logFlags logflushtime=4 LogFlushTime=4", {}),
        (b"logFlags 5 6 7", {"logFlags": 5}),
        (b"-1 -2 logFlags nobody=3", {}),
        (b"\xef\xbb\xbflogFlags logFlushTime=4", {"logFlushTime": 4}),
        (b"logFlags logForceFlush=3 logAppendToFile", {"logForceFlush": 3, "logAppendToFile": 1}),
    ],
)
def test_accepted_syntax_of_the_flags_file(make_node, flags, values):
    assert_table(make_node, flags, **values)


def test_junk_around_the_flags_is_ignored(make_node):
    junk = bytes(byte for byte in range(1, 256) if byte != ord('"'))
    assert_table(make_node, junk + b"\nlogFlags\nlogFlushTime=4\n" + junk, logFlushTime=4)


def test_large_flags_file_is_read_completely(make_node):
    assert_table(
        make_node, b"nobody=1 someone else\n" * 200000 + b"logFlags logFlushTime=4", logFlushTime=4
    )


def test_folder_in_place_of_the_flags_file_is_ignored(make_node):
    node = make_node(flags=None)
    node.flags_file.mkdir()
    node.start([])
    assert between_start_and_stop(node.output.rest()) == [NO_SLAVE, *usage(node.program)]


@pytest.mark.linux_only("Windows has no socket files")
def test_unopenable_flags_file_is_ignored(make_node):
    """Not even root can open a socket file; file permissions would not stop root."""
    node = make_node(flags=None)
    os.mknod(node.flags_file, stat.S_IFSOCK | 0o666)
    with pytest.raises(OSError):
        node.flags_file.read_bytes()
    node.start([])
    assert between_start_and_stop(node.output.rest()) == [NO_SLAVE, *usage(node.program)]
    assert node.wait_exit() == 0


@pytest.mark.linux_only("needs /proc/self/mem, which opens but cannot be read")
def test_unreadable_flags_file_is_ignored(make_node):
    node = make_node(flags=None)
    node.flags_file.symlink_to("/proc/self/mem")
    node.start([])
    assert between_start_and_stop(node.output.rest()) == [NO_SLAVE, *usage(node.program)]
    assert node.wait_exit() == 0


def test_output_can_be_disabled(make_node):
    node = run_without_arguments(make_node, b"logToStdout 0")
    assert (node.output.lines(), node.errors.lines()) == ([], [])


def test_output_can_go_to_standard_error(make_node):
    node = run_without_arguments(make_node, b"logToStdout 2")
    assert node.output.lines() == []
    assert between_start_and_stop(node.errors.lines()) == [NO_SLAVE, *usage(node.program)]


@pytest.mark.parametrize("value", [b"3", b"-1", b"2147483648"])
def test_any_other_value_means_standard_output(make_node, value):
    node = run_without_arguments(make_node, b"logToStdout=" + value)
    assert between_start_and_stop(node.output.lines()) == [NO_SLAVE, *usage(node.program)]
    assert node.errors.lines() == []


@pytest.mark.parametrize(
    "flags", [b"daemon=1", b"daemon 1", b"daemon", b"daemon=-1", b"daemon=2147483648"]
)
def test_nonzero_daemon_flag_logs_the_command_line(make_node, flags):
    node = make_node(flags=None)
    node.flags_file.write_bytes(flags)
    node.start(["--port", "5130", "--gpus", "1 2", "--alias", "x"])
    lines = between_start_and_stop(node.output.rest())
    assert lines == [
        "Command line:",
        '--port 5130 --gpus "1 2" --alias x',
        NO_SLAVE,
        *usage(node.program),
    ]


@pytest.mark.parametrize(
    "flags", [b"", b"daemon=0", b"daemonDetail", b"daemon=1 daemon=0", b'"daemon"']
)
def test_command_line_is_not_logged_without_the_daemon_flag(make_node, flags):
    node = run_without_arguments(make_node, flags)
    assert between_start_and_stop(node.output.lines()) == [NO_SLAVE, *usage(node.program)]
