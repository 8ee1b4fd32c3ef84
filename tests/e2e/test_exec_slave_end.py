"""Nothing of the program is left, however the exec slave ends; many runs leave nothing either."""

import os
import signal

import pytest

from support import measure, programs
from support.exec_slave import OWN, slave_process, worker
from support.node import wait_until
from support.ownership import running, stopped

ROUNDS = 50
PARTS = 4  # run at the same time
WARM_UP = 3

STUBBORN = worker("ignore-stop", "print", "online", "hang")

# A child and a grandchild in sessions of their own, all of which ignore SIGTERM.
FAMILY = [
    "/bin/sh",
    "-c",
    "trap '' TERM; (setsid sh -c 'setsid sleep 3600 & sleep 3600' &); echo online; sleep 3600",
]

PROGRAMS = [
    pytest.param(STUBBORN, 1, id="one"),
    pytest.param(FAMILY, 4, id="family", marks=pytest.mark.linux_only("runs a shell")),
]


def held(exec_node, hold, command, size):
    """Returns a node whose program runs with all of its processes."""
    node = exec_node(command=command, ready={"line": "online"}, stop={"grace": 1})
    hold(node).wait("running")
    wait_until(lambda: len(node.slave_processes()) > size, "all processes run")
    return node


@pytest.mark.parametrize("command, size", PROGRAMS)
def test_nothing_survives_the_kill_of_the_exec_slave(exec_node, hold, command, size):
    node = held(exec_node, hold, command, size)
    os.kill(slave_process(node), signal.SIGKILL)
    node.wait_no_slave()


@pytest.mark.parametrize("command, size", PROGRAMS)
def test_nothing_survives_the_kill_of_the_daemon(exec_node, hold, command, size):
    node = held(exec_node, hold, command, size)
    node.process.kill()
    node.wait_exit()
    node.wait_no_slave()


@pytest.mark.parametrize("command, size", PROGRAMS)
def test_nothing_survives_the_end_of_the_daemon(exec_node, hold, command, size):
    node = held(exec_node, hold, command, size)
    node.quit()
    node.assert_no_slave()


@pytest.mark.linux_only("runs a shell")
@pytest.mark.parametrize("end", ["exit 0", "kill -SEGV $$"], ids=["exit", "crash"])
def test_nothing_survives_the_end_of_the_program(exec_node, hold, end, tmp_path):
    go = tmp_path / "go"
    script = f"setsid sleep 3600 & until [ -e '{go}' ]; do sleep 0.1; done; {end}"
    node = exec_node(command=["/bin/sh", "-c", script], ready={"after": 1})
    master = hold(node)
    master.wait("running")
    go.touch()
    master.wait("failed")
    node.wait_no_slave()


def test_nothing_survives_a_failed_run(exec_node, hold):
    node = exec_node(command=STUBBORN, ready={"line": "never", "timeout": 0.5})
    hold(node).wait("failed")
    node.wait_no_slave()


@pytest.mark.parametrize("part", range(PARTS))
def test_many_runs_leave_nothing(exec_node, make_master, part):
    """200 rounds in all."""
    node = exec_node(command=worker("hang"), ready={"after": 1}, stop={"grace": 0.5})
    owner = make_master().join(node)

    def count():
        if programs.ON_WINDOWS:
            return 0, 0
        process = node.process.pid
        return len(measure.descriptors(process)), measure.threads(process)

    for number in range(ROUNDS):
        running(node, owner)
        stopped(node, owner)
        node.wait_no_slave()
        if number == WARM_UP:
            before = count()
    assert wait_until(lambda: count() <= before, f"{count()} are {before} again")
    assert node.output.count(OWN + "the program is ready") == ROUNDS, part
