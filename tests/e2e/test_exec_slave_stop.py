"""How the exec slave stops its program: the command, the signal, force."""

import os
import signal

import pytest

from support import programs
from support.exec_slave import (
    ENDED,
    OWN,
    WINE_LACKS_BREAK,
    exit_text,
    native,
    slave_process,
    worker,
)
from support.output import plain_line

ASKED = OWN + "stopping the program: the daemon has asked for it"
FORCED_BY_DAEMON = plain_line("slave didn't stop gracefully, killing process by force")
READY = {"line": "online"}
KILLED = "exit status 1" if programs.ON_WINDOWS else "exit status 137"


def stop(node, master):
    """Gives the slave back; returns the lines of the daemon."""
    master.wait("running")
    master.give_back()
    node.wait_no_slave()
    lines = node.quit()
    assert node.output.count(ASKED) == 1
    assert FORCED_BY_DAEMON not in lines
    return lines


@pytest.mark.linux_only(WINE_LACKS_BREAK)
def test_program_that_obeys_ends_with_its_own_status(exec_node, hold):
    node = exec_node(command=worker("on-stop", 0, "print", "online", "hang"), ready=READY)
    assert exit_text(stop(node, hold(node))) == "exit status 0"
    node.output.wait("stop requested", node.output.wait(ASKED))


@pytest.mark.linux_only(WINE_LACKS_BREAK)
@pytest.mark.slow
def test_program_that_dawdles_has_its_grace_period(exec_node, hold):
    node = exec_node(command=worker("on-stop", 8000, "print", "online", "hang"), ready=READY)
    assert exit_text(stop(node, hold(node))) == "exit status 0"


@pytest.mark.parametrize("grace", [1.5, pytest.param(11, marks=pytest.mark.slow)])
def test_program_that_ignores_the_signal_is_killed(exec_node, hold, grace):
    node = exec_node(
        command=worker("ignore-stop", "print", "online", "hang"),
        ready=READY,
        stop={"grace": grace},
    )
    assert exit_text(stop(node, hold(node))) == KILLED
    node.output.wait(f"{OWN}the program has not ended within {grace:g} s, killing it")


def test_stop_command_comes_before_the_signal(exec_node, hold, tmp_path):
    told = tmp_path / "told"
    node = exec_node(
        command=worker("on-stop", 0, "print", "online", "await", native(told), "exit", "5"),
        ready=READY,
        stop={"command": worker("create", native(told))},
    )
    assert exit_text(stop(node, hold(node))) == "exit status 5"
    assert "stop requested" not in node.output.lines()


@pytest.mark.linux_only(WINE_LACKS_BREAK)
def test_failing_stop_command_is_followed_by_the_signal(exec_node, hold):
    node = exec_node(
        command=worker("on-stop", 0, "print", "online", "hang"),
        ready=READY,
        stop={"command": worker("print", "nobody there", "exit", "3")},
    )
    stop(node, hold(node))
    node.output.wait("stop requested")
    assert any(
        line.endswith("ended with exit status 3: nobody there") for line in node.output.lines()
    )


def test_stop_command_that_hangs_is_killed_with_the_program(exec_node, hold):
    node = exec_node(
        command=worker("ignore-stop", "print", "online", "hang"),
        ready=READY,
        stop={"command": worker("hang"), "grace": 2},
    )
    assert exit_text(stop(node, hold(node))) == KILLED


def test_program_that_is_still_starting_is_stopped(exec_node, hold):
    node = exec_node(command=worker("print", "up", "hang"), ready=READY)
    master = hold(node)
    node.output.wait("up")
    master.interrupt()
    master.wait("stopped: the node is free")
    node.output.wait(ASKED)
    assert "running" not in master.events()


@pytest.mark.linux_only("Windows programs get their signals from the console")
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_signal_stops_the_program(exec_node, hold, number):
    node = exec_node(command=worker("on-stop", 0, "print", "online", "hang"), ready=READY)
    master = hold(node)
    master.wait("running")
    os.kill(slave_process(node), number)
    node.output.wait(OWN + "stopping the program: a signal has asked for it")
    node.output.wait("stop requested")
    master.wait("failed")
    assert exit_text(node.quit()) == "exit status 0"


def test_loss_of_the_daemon_stops_the_program(make_exec_node, daemon_voice):
    node = make_exec_node(command=worker("on-stop", 0, "print", "online", "hang"), ready=READY)
    daemon = daemon_voice(node)
    daemon.output.wait("online")
    daemon.disconnect()
    daemon.output.wait(OWN + "stopping the program: the connection to the daemon is lost")
    assert f"exit status {daemon.wait_exit()}" == ENDED
    assert ("stop requested" in daemon.output.rest()) != programs.ON_WINDOWS


def test_end_of_the_daemon_stops_the_program(exec_node, hold):
    node = exec_node(command=worker("on-stop", 300, "print", "online", "hang"), ready=READY)
    master = hold(node)
    master.wait("running")
    lines = node.quit()
    node.output.wait(ASKED)
    assert exit_text(lines) == ENDED
    assert FORCED_BY_DAEMON not in lines
