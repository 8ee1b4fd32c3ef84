"""An invalid command line prints the reason and the usage text; the exit status is 0."""

import pytest

from support import programs
from support.transcript import between_start_and_stop, usage

NO_SLAVE = "No path to the Quelta render slave given."
NO_PORT = "no daemon port specified"


def failure(make_node, arguments):
    """Returns the node and everything that a daemon without log flags prints."""
    node = make_node(flags=None)
    node.start(arguments)
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert node.errors.rest() == []
    node.assert_no_slave()
    return node, between_start_and_stop(lines)


def assert_refused(make_node, arguments, reason):
    node, lines = failure(make_node, arguments)
    assert lines == [reason, *usage(node.program)]


def test_no_arguments_report_the_missing_slave(make_node):
    assert_refused(make_node, [], NO_SLAVE)


@pytest.mark.parametrize(
    "arguments, reason",
    [
        (["--port", "5130"], NO_SLAVE),
        (["--port", "5130", "--slave"], NO_SLAVE),
        (["--port", "5130", "--slave", ""], NO_SLAVE),
        (["--port", "5130", "--slave", "''"], NO_SLAVE),
        (["--slave", "x"], NO_PORT),
        (["--slave", "x", "--port"], NO_PORT),
        (["--slave", "x", "--port", "0"], NO_PORT),
        (["--slave", "x", "--port", "65536"], NO_PORT),
        (["--slave", "x", "--port", "port5130"], NO_PORT),
        (["--slave", "x", "--port", "5130", "--port", "0"], NO_PORT),
    ],
)
def test_slave_or_port_missing(make_node, arguments, reason):
    assert_refused(make_node, arguments, reason)


@pytest.mark.parametrize(
    "option", ["--Port", "--help", "-p", "port", "--port=5130", "--gpus ", "--größe", "", "%s%n"]
)
def test_unknown_option_is_reported_first(make_node, option):
    reason = f"unknown command line argument '{option}'"
    assert_refused(make_node, [option, "5130", "--port", "5130", "--slave", "x"], reason)


def test_only_the_first_error_is_reported(make_node):
    assert_refused(
        make_node,
        ["--gpus", "0", "--what", "1"],
        "invalid GPU ID '0', must be an integral number >= 1",
    )


@pytest.mark.parametrize(
    "gpus, shown",
    [
        ("0", "0"),
        ("-1", "-1"),
        ("1, 3", ""),
        ("1,,3", ""),
        ("1,x", "x"),
        ("2 0x3", "0x3"),
        ("4294967296x,0", "0"),
        (",", ""),
        ("1,3,", ""),
    ],
)
def test_invalid_gpu_is_reported(make_node, gpus, shown):
    reason = f"invalid GPU ID '{shown}', must be an integral number >= 1"
    assert_refused(make_node, ["--port", "5130", "--gpus", gpus, "--slave", "x"], reason)


def test_unknown_option_is_shown_at_any_length(make_node):
    option = "-" * 30000
    assert_refused(make_node, [option], f"unknown command line argument '{option}'")


@pytest.mark.linux_only("invalid UTF-8 cannot reach a Windows program")
def test_option_with_invalid_utf8_is_reported(make_node):
    node, lines = failure(make_node, [b"--\xff\xfe", "1"])
    assert lines[0].startswith("unknown command line argument '--")
    assert lines[1:] == usage(node.program)


def test_usage_names_the_executable(make_node):
    node = make_node(flags=None)
    node.program = programs.install(
        programs.DAEMON, node.folder / "renamed", "node seven" + programs.SUFFIX
    )
    node.start([])
    lines = between_start_and_stop(node.output.rest())
    assert lines == [NO_SLAVE, *usage(node.program)]
    assert lines[3].startswith(f"  node seven{programs.SUFFIX}  --port <daemon port>")
