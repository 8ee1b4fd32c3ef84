"""A daemon killed by force leaves no slave behind, regardless of its state."""

import signal
import time
from pathlib import Path

import pytest

from support import programs, wire
from support.node import wait_until
from support.ownership import running, start_line, started
from support.scenario import PUPPET, scenario

SLAVE_GAVE_UP = "standin: without a connection for "
TERMINATE = "quelta_windows_terminate.exe"
OUTER_JOB = "quelta_windows_outerjob.exe"
BREAKAWAY = "quelta_windows_breakaway.exe"
STUBBORN = "on-stop ignore\non-lost ignore"


def kill_daemon(node):
    """Kills the daemon without notice: by SIGKILL, or Wine's equivalent."""
    node.process.kill()
    assert node.wait_exit() == -signal.SIGKILL


def terminate_daemon(node):
    """Has another program call TerminateProcess for the parent of the latest slave."""
    programs.run(programs.bin_dir() / TERMINATE, node.slave_id())
    node.wait_exit()


def assert_nothing_left(node):
    node.wait_no_slave()
    # The stream ends with its last holder; the slave is one, and Wine's server may keep it open.
    lines = node.output.lines() if programs.ON_WINDOWS else node.output.rest()
    assert not [line for line in lines if line.startswith(("Stopped logging on ", SLAVE_GAVE_UP))]


@pytest.mark.parametrize(
    "end",
    [
        kill_daemon,
        pytest.param(terminate_daemon, marks=pytest.mark.windows_only("Linux knows SIGKILL alone")),
    ],
)
@pytest.mark.parametrize(
    "settings, run",
    [
        ("", "connect\ninfo\nwait 300\nbeat 1000"),
        (STUBBORN, "connect\ninfo\nwait 300\nbeat 1000"),
        (STUBBORN, "connect\nauthenticating\nhang"),
        (STUBBORN, "connect\ninfo\nhang"),
        (STUBBORN, "hang"),
    ],
    ids=["well-behaved", "stubborn", "authenticating", "hanging", "never connected"],
)
def test_no_slave_survives_in_any_state(farm, settings, run, end):
    node, owner = farm(plays=scenario(run, settings=settings))
    started(node, owner)
    start = start_line(node, owner)
    node.output.wait_match(r"standin: (sending (SLAVE_STATUS|AUTHENTICATING)|hanging)", start)
    end(node)
    assert_nothing_left(node)


@pytest.mark.parametrize("delay_ms", [0, 1, 2, 4, 8, 16, 32])
def test_no_slave_survives_a_kill_during_start(farm, delay_ms):
    """Covers the time from the request to the slave's first line."""
    node, owner = farm(plays=scenario(PUPPET, settings=STUBBORN))
    owner.request(wire.START_REQUEST)
    time.sleep(delay_ms / 1000)
    kill_daemon(node)
    assert_nothing_left(node)


def test_no_slave_survives_a_kill_during_stop(farm):
    node, owner = farm(plays=scenario(settings=STUBBORN))
    running(node, owner)
    owner.request(wire.STOP_REQUEST)
    node.slave_report("ignoring the stop message")
    kill_daemon(node)
    assert_nothing_left(node)


def test_no_slave_survives_a_kill_during_steal(farm):
    node, owner, thief = farm(2, plays=scenario(settings=STUBBORN))
    running(node, owner, thief)
    thief.request(wire.STEAL_REQUEST)
    node.slave_report("ignoring the stop message")
    kill_daemon(node)
    assert_nothing_left(node)


def test_next_daemon_can_use_the_same_ports(farm, make_node):
    node, owner = farm(plays=scenario(settings=STUBBORN))
    running(node, owner)
    kill_daemon(node)
    assert_nothing_left(node)
    successor = make_node()
    successor.port = node.port
    successor.serve()
    owner.vanish()
    owner.return_to(successor)
    running(successor, owner)


@pytest.mark.windows_only("Linux knows no jobs")
def test_no_slave_survives_a_kill_inside_a_job(make_node, make_master):
    """The Task Scheduler and build systems use jobs; this one outlives the daemon."""
    node = make_node(plays=scenario(settings=STUBBORN))
    daemon = programs.native_path(node.program)
    node.program = programs.install(OUTER_JOB, node.program.parent)
    node.start([daemon, *node.usual_arguments()])
    node.wait_until_listening()
    running(node, make_master().join(node))
    programs.run(programs.bin_dir() / TERMINATE, node.slave_id())
    node.output.wait("outer job: the program has ended")
    assert_nothing_left(node)
    assert node.process.poll() is None
    assert not [line for line in node.own_lines() if "cannot assign the slave to a job" in line]


@pytest.mark.windows_only("Linux knows no jobs")
def test_process_that_breaks_away_from_the_job_survives(make_node):
    node = make_node()
    node.slave = programs.install(BREAKAWAY, node.slave.parent, node.slave.name)
    node.start()
    node.output.wait("breakaway: started")
    wait_until(lambda: len(node.slave_processes()) == 2, "slave and copy run")
    kill_daemon(node)
    wait_until(lambda: len(node.slave_processes()) < 2, "the slave is gone")
    [survivor] = node.slave_processes()
    assert b"escaped" in Path(f"/proc/{survivor}/cmdline").read_bytes()
