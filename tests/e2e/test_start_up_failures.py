"""An invalid slave path or port ends the start-up with its message and exit status 0."""

import resource
import signal

import pytest

from support import programs
from support.output import error_line, plain_line
from support.scenario import GPUS, SLAVE_VERSION, scenario
from support.transcript import INFORMATION_RUN, between_start_and_stop

STANDARD_STREAMS = 3


def whole_output(node):
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert node.errors.rest() == []
    return between_start_and_stop(lines)


def test_slave_path_that_is_a_directory(make_node):
    node = make_node(flags=None)
    folder = programs.native_path(node.slave.parent)
    node.start(["--port", "5130", "--slave", folder])
    assert whole_output(node) == [f'"{folder}" is not an existing file.']


def test_slave_path_that_does_not_exist(make_node):
    node = make_node(flags=None)
    missing = programs.native_path(node.slave.parent / "missing slave")
    node.start(["--port", "5130", "--slave", missing])
    assert whole_output(node) == [f'"{missing}" is not an existing file.']


def test_relative_slave_path_is_taken_from_the_current_directory(make_node):
    node = make_node(flags=None)
    node.start(["--port", "5130", "--slave", node.slave.name], cwd=node.folder)
    expected = programs.native_path(node.folder / node.slave.name)
    assert whole_output(node) == [f'"{expected}" is not an existing file.']


@pytest.mark.parametrize(
    "given, taken", [("1023", 1023), ("1", 1), ("66559", 1023), ("-64536", 1000)]
)
def test_port_below_1024_is_refused(make_node, given, taken):
    node = make_node(flags=None)
    node.start(["--port", given, "--slave", programs.native_path(node.slave)])
    assert whole_output(node) == [f"daemon port {taken} is invalid, should be in range 1024..65535"]


@pytest.mark.parametrize(
    "given, taken", [("1024", 1024), ("70000", 4464), ("  +05130abc", 5130), ("-2", 65534)]
)
def test_port_is_the_leading_integer_in_16_bits(make_node, given, taken):
    node = make_node(flags=None)
    node.start(["--port", given, "--slave", programs.native_path(node.slave)])
    node.output.wait(f"  daemon port:   {taken}")


def test_missing_slave_is_reported_before_a_low_port(make_node):
    node = make_node(flags=None)
    missing = programs.native_path(node.folder / "missing")
    node.start(["--port", "80", "--slave", missing])
    assert whole_output(node) == [f'"{missing}" is not an existing file.']


def test_slave_that_is_not_a_program(make_node):
    node = make_node(flags=None)
    node.slave.unlink()
    node.slave.write_text("echo I am no program\n")
    node.slave.chmod(0o755)
    node.start()
    error_number = 193 if programs.ON_WINDOWS else 8
    assert whole_output(node) == [
        *INFORMATION_RUN,
        f"failed to launch Quelta slave: {error_number}",
    ]


@pytest.mark.linux_only("Windows has no permission to execute")
def test_slave_that_is_not_executable(make_node):
    node = make_node(flags=None)
    node.slave.unlink()
    node.slave.write_text("#!/bin/true\n")
    node.slave.chmod(0o644)
    node.start()
    assert whole_output(node) == [*INFORMATION_RUN, "failed to launch Quelta slave: 13"]


@pytest.mark.linux_only("only Linux interprets the first line of a script")
def test_script_whose_interpreter_is_missing(make_node):
    node = make_node(flags=None)
    node.slave.unlink()
    node.slave.write_text("#!/missing/interpreter\n")
    node.slave.chmod(0o755)
    node.start()
    assert whole_output(node) == [*INFORMATION_RUN, "failed to launch Quelta slave: 2"]


def test_highest_port_leaves_none_for_the_slave(make_node):
    node = make_node(flags=None, plays=scenario(information="exit 0"))
    node.start(["--port", "65535", "--slave", programs.native_path(node.slave)])
    output = node.output.rest()
    assert [line for line in output if line.startswith("standin: argument 6")] == [
        "standin: argument 6: [0]"
    ]
    assert between_start_and_stop(node.own_lines()) == [
        *INFORMATION_RUN,
        "could not find a free socket to monitor slave",
        "slave crashed or was stopped via CTRL-C",
    ]


@pytest.mark.parametrize(
    "port, slave, plays, line",
    [
        ("5130", "missing", "", error_line('"{missing}" is not an existing file.')),
        (
            "80",
            "slave",
            "",
            error_line("daemon port 80 is invalid, should be in range 1024..65535"),
        ),
        ("5130", "slave", "exit 0", plain_line("slave crashed or was stopped via CTRL-C")),
    ],
    ids=["no slave", "low port", "crash"],
)
def test_errors_are_tagged_but_slave_failures_are_not(make_node, port, slave, plays, line):
    node = make_node(flags="logPrefix", plays=scenario(information=plays))
    missing = programs.native_path(node.folder / "missing")
    node.start(
        [
            "--port",
            port,
            "--slave",
            missing if slave == "missing" else programs.native_path(node.slave),
        ]
    )
    node.output.rest()
    assert node.own_lines()[2:-3][-1] == line.format(missing=missing)
    assert node.wait_exit() == 0


def test_launch_error_is_tagged(make_node):
    node = make_node(flags="logPrefix")
    node.slave.unlink()
    node.slave.write_text("echo I am no program\n")
    node.slave.chmod(0o755)
    node.start()
    lines = node.output.rest()
    assert lines[2:3] == [plain_line("Launching slave to gather information:")]
    assert lines[-4] == error_line(
        f"failed to launch Quelta slave: {193 if programs.ON_WINDOWS else 8}"
    )
    assert node.wait_exit() == 0


@pytest.mark.linux_only("limits the descriptors of a Linux process")
def test_start_without_a_descriptor_for_the_quit_pipe_is_an_error(make_node):
    """Signals then have their default effect, which the administrator has to know."""
    node = make_node(
        flags="logPrefix", plays=scenario(information="connect\ninfo\nwait 1000\nexit 0")
    )
    node.start()
    node.slave_report(f"sending SLAVE_INFO, version {SLAVE_VERSION}, GPUs {GPUS}")
    resource.prlimit(node.process.pid, resource.RLIMIT_NOFILE, (STANDARD_STREAMS, STANDARD_STREAMS))
    node.output.wait(error_line("signals end the daemon without a shutdown: Too many open files"))
    node.interrupt(signal.SIGTERM)
    assert node.wait_exit() == -signal.SIGTERM
