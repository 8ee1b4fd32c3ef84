"""The slave run that reports version and GPUs, and all the ways in which it can fail."""

import pytest

from support import programs
from support.node import wait_until
from support.scenario import scenario
from support.transcript import INFORMATION_RUN, between_start_and_stop

CRASHED = "slave crashed or was stopped via CTRL-C"
HANGING_AT_START = "detected that slave is hanging during startup -> stopping slave"
HANGING_AFTER_INFO = "detected that slave is hanging after initialization -> stopping slave"
HEARTBEAT_STOPPED = "detected that heart beat of slave stopped -> stopping slave"
KILLED = "slave didn't stop gracefully, killing process by force"


def own_output(make_node, information, settings=""):
    """Runs a daemon whose information run fails; returns its lines. It exits without a slave."""
    node = make_node(flags=None, plays=scenario(information=settings + information))
    node.start()
    node.output.rest()
    assert node.wait_exit() == 0
    assert node.errors.rest() == []
    node.assert_no_slave()
    return between_start_and_stop(node.own_lines())


@pytest.mark.parametrize(
    "information",
    [
        "exit 0",
        "exit 7",
        "crash",
        "connect\nexit 0",
        "connect\nauthenticating\nwait 300\nexit 0",
        "connect\nauthenticating\ncrash",
        "connect\ninfo\nwait 300\nauthenticating\nwait 300\nexit 0",
    ],
)
def test_slave_that_ends_before_it_is_initialised(make_node, information):
    assert own_output(make_node, information) == [*INFORMATION_RUN, CRASHED]


@pytest.mark.slow
def test_slave_that_never_connects(make_node):
    lines = own_output(make_node, "wait 11500\nexit 0")
    assert lines == [*INFORMATION_RUN, HANGING_AT_START]


@pytest.mark.slow
def test_slave_that_connects_and_stays_silent(make_node):
    assert own_output(make_node, "connect\nhang") == [*INFORMATION_RUN, HANGING_AT_START]


@pytest.mark.slow
def test_slave_that_hangs_and_ignores_the_stop_is_killed(make_node):
    lines = own_output(make_node, "connect\nhang", "on-stop ignore\non-lost ignore\n")
    assert lines == [*INFORMATION_RUN, HANGING_AT_START, KILLED]


def test_slave_that_reports_but_does_not_end(make_node):
    assert own_output(make_node, "connect\ninfo\nhang") == [*INFORMATION_RUN, HANGING_AFTER_INFO]


@pytest.mark.slow
def test_slave_whose_heartbeat_stops_in_the_information_run(make_node):
    assert own_output(make_node, "connect\ninfo\nstatus\nhang") == [
        *INFORMATION_RUN,
        HEARTBEAT_STOPPED,
    ]


@pytest.mark.parametrize(
    "information, version, gpus",
    [
        ("connect\ninfo 4000000 1\nwait 1000\nexit 0", 4000000, 1),
        ("connect\ninfo 4294967295 4294967295\nwait 1000\nexit 1", 4294967295, 4294967295),
        ("connect\ninfo 0 0\nwait 1000\nexit 0", 0, 0),
        ("connect\ninfo 1 2\ninfo 3 4\nwait 1000\nexit 0", 3, 4),
        ("connect\ninfo 5 6\nstatus\nwait 1000\nexit 0", 5, 6),
        ("connect\nstatus\nwait 1000\nexit 0", 0, 0),
        ("connect\ninfo 7 8\nwait 1000\ncrash", 7, 8),
        ("connect\ninfo 7 8\nwait 1000\ndisconnect\nwait 300\nexit 0", 7, 8),
        ("connect\nframe 0d72ce7f 01000000 01000000 03000000 2a000000\nwait 1000\nexit 0", 42, 3),
    ],
)
def test_slave_that_ends_after_it_was_initialised(make_node, information, version, gpus):
    node = make_node(flags=None, plays=scenario(information=information))
    node.start()
    node.output.wait(f"  version:       {version}")
    node.output.wait(f"  provided GPUs: {gpus}")


def test_slave_without_a_scenario_behaves_well(make_node):
    node = make_node(flags=None)
    node.scenario_file.unlink()
    node.start()
    node.output.wait("  version:       4000000")


@pytest.mark.slow
def test_authenticating_has_no_time_limit(make_node):
    node = make_node(
        flags=None,
        plays=scenario(information="connect\nauthenticating\nwait 12000\ninfo\nwait 300\nexit 0"),
    )
    node.start()
    node.output.wait("Launching daemon with:")


def test_slave_is_asked_for_information_only(make_node):
    node = make_node(flags="daemon")
    node.start()
    port = node.output.wait_match(r"using free port (\d+) to communicate with slave").group(1)
    node.output.wait("Launching daemon with:")
    arguments = [line for line in node.output.lines() if line.startswith("standin: argument ")]
    assert arguments == [
        f"standin: argument {number}: [{text}]"
        for number, text in enumerate(
            [
                programs.STANDIN_SLAVE,
                "--net-master-address",
                "0.0.0.0",
                "--net-master-port",
                "0",
                "--daemon-port",
                port,
                "--alias",
                "",
                "--daemon-info-request",
            ]
        )
    ]


def test_information_run_leaves_no_slave_behind(make_node):
    node = make_node().serve()
    node.assert_no_slave()


@pytest.mark.linux_only("Wine reports the end of a process by a signal in its own way")
def test_interrupt_during_the_information_run_ends_the_process_immediately(make_node):
    node = make_node(flags="daemon", plays=scenario(information="connect\nhang"))
    node.start()
    node.slave_report("hanging")
    node.interrupt()
    assert node.wait_exit() == -2
    wait_until(lambda: not node.slave_processes(), "the slave has gone with its daemon")
    assert "Stopped logging" not in "\n".join(node.output.rest())
