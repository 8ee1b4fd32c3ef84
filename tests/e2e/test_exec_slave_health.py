"""The checks of a program that runs: without them no heartbeat reaches the daemon."""

import pytest

from support.exec_slave import CRASHED, OWN, STATUS, configure, exit_text, native, worker
from support.node import wait_until
from support.output import plain_line

AGAIN = OWN + "the program is alive again, heartbeats go on"
NOT_ALIVE = OWN + "no heartbeats while the program is not alive: "
HEARTBEAT_LOST = plain_line("detected that heart beat of slave stopped -> stopping slave")


def told(node):
    """Returns the lines about the program's health."""
    return [line for line in node.output.lines() if line == AGAIN or line.startswith(NOT_ALIVE)]


def assert_pause(node):
    """Waits for a pause of the heartbeats and its end, and asserts that there were none."""
    pause = node.output.wait(told(node)[0])
    again = node.output.wait(AGAIN, pause)
    # One heartbeat may be on its way when the pause begins.
    assert node.output.lines()[pause:again].count(STATUS) <= 1
    node.output.wait(STATUS, node.output.wait(STATUS, again))


def wait_for_the_pause_to_last(node):
    """Waits for two seconds in which heartbeats are missing: the program's own lines tell them."""
    pause = wait_until(lambda: told(node), "the reason is told")[0]
    tick = node.output.wait(pause)
    for _ in range(4):
        tick = node.output.wait("tick", tick)


def test_heartbeats_pause_while_the_command_fails(exec_node, hold, tmp_path):
    healthy = tmp_path / "healthy"
    healthy.touch()
    ticks = ["wait", "500", "print", "tick"] * 100
    node = exec_node(
        command=worker("print", "online", *ticks),
        ready={"line": "online"},
        alive={"command": worker("require", native(healthy)), "period": 2},
    )
    master = hold(node)
    master.wait("running")
    node.output.wait(STATUS)
    healthy.unlink()
    wait_for_the_pause_to_last(node)
    healthy.touch()
    assert_pause(node)
    reason, again = told(node)
    assert reason.startswith(NOT_ALIVE + "the command ")
    assert reason.endswith(f" ended with exit status 1: there is no {native(healthy)}")
    assert again == AGAIN
    master.give_back()


def test_heartbeats_pause_while_the_port_refuses(exec_node, hold, tcp_listener):
    ticks = ["wait", "500", "print", "tick"] * 100
    node = exec_node(command=["not yet"])
    port = node.port + 3
    configure(
        node,
        command=worker("print", "online", *ticks),
        ready={"line": "online"},
        alive={"tcp": f"127.0.0.1:{port}", "period": 0.5},
    )
    listener = tcp_listener(port, "127.0.0.1")
    master = hold(node)
    master.wait("running")
    node.output.wait(STATUS)
    listener.close()
    wait_for_the_pause_to_last(node)
    tcp_listener(port, "127.0.0.1")
    assert_pause(node)
    reason, again = told(node)
    assert reason.startswith(f"{NOT_ALIVE}cannot connect to 127.0.0.1:{port}: ")
    assert again == AGAIN
    master.give_back()


@pytest.mark.slow
def test_daemon_stops_a_slave_that_is_not_alive(exec_node, hold):
    node = exec_node(
        command=worker("print", "online", "hang"),
        ready={"line": "online"},
        alive={"silence": 2},
    )
    master = hold(node)
    master.wait("running", "failed")
    assert told(node) == [NOT_ALIVE + "no line of output for 2 s"]
    node.wait_no_slave()
    lines = node.quit()
    assert HEARTBEAT_LOST in lines
    assert CRASHED not in lines
    assert exit_text(lines).endswith(("143", "(Terminated)", "status 1"))


def test_check_that_hangs_has_the_period_as_its_limit(exec_node, hold):
    ticks = ["wait", "500", "print", "tick"] * 100
    node = exec_node(
        command=worker("print", "online", *ticks),
        ready={"line": "online"},
        alive={"command": worker("hang"), "period": 1},
    )
    master = hold(node)
    master.wait("running")
    reason = wait_until(lambda: told(node), "the reason is told")[0]
    assert reason.endswith(" took longer than 1 s")
    master.give_back()
    node.wait_no_slave()
