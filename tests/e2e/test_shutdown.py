"""Shutting down: on request, by signals, with and without a slave, and by force."""

import os
import signal
import subprocess
import time

import pytest

from support import measure, wire
from support.node import wait_until
from support.output import daemon_line, plain_line
from support.ownership import running, started
from support.scenario import PUPPET, scenario

NOT_UNDER_WINE = pytest.mark.linux_only("Wine passes no other signals to a program")
# For these synchronous signals, the thread sanitizer calls the handler immediately, even inside
# its own code, and occasionally crashes.
NOT_SANITIZED = pytest.mark.skipif(
    measure.THREAD_SANITIZED, reason="the thread sanitizer handles these signals unsafely"
)
SIGNALS = [
    signal.SIGINT,
    pytest.param(signal.SIGTERM, marks=NOT_UNDER_WINE),
    pytest.param(signal.SIGHUP, marks=NOT_UNDER_WINE),
    *(
        pytest.param(number, marks=[NOT_UNDER_WINE, NOT_SANITIZED])
        for number in (signal.SIGABRT, signal.SIGFPE, signal.SIGILL, signal.SIGSEGV)
    ),
]


def closing(count):
    return plain_line(f"closing down all existing master connections ({count})...")


def tail(lines, first):
    """Returns the lines from `first` on, without those that close every log."""
    assert lines[-3] == lines[-1] == plain_line("")
    assert lines[-2].startswith(plain_line("Stopped logging on "))
    return lines[lines.index(first) : -3]


@pytest.mark.parametrize("number", SIGNALS)
def test_signal_shuts_an_idle_daemon_down_cleanly(make_node, number):
    node = make_node().serve()
    node.interrupt(number)
    assert node.wait_exit() == 0
    node.output.rest()
    assert tail(node.own_lines(), closing(0)) == [closing(0)]
    assert node.errors.rest() == []


@pytest.mark.parametrize("number", SIGNALS[:3])
def test_connections_are_closed_in_the_order_of_their_addresses(farm, number):
    node, *masters = farm(3)
    node.interrupt(number)
    assert all(master.connection.is_closed_by_daemon() for master in masters)
    assert node.wait_exit() == 0
    node.output.rest()
    assert tail(node.own_lines(), closing(3)) == [
        closing(3),
        *(daemon_line(f"disconnected from master {master}") for master in masters),
    ]


@pytest.mark.parametrize("number", SIGNALS[:3])
def test_slave_is_stopped_with_its_owners_connection(farm, number):
    node, first, owner, last = farm(3)
    running(node, owner, first, last)
    node.interrupt(number)
    assert first.connection.is_closed_by_daemon()
    for master in (owner, last):
        master.expect(node.status(wire.DAEMON_STATUS))
        assert master.connection.is_closed_by_daemon()
    assert node.wait_exit() == 0
    node.output.rest()
    about_the_slave = ("heartbeat", "slave conn", "monitoring", "slave process")
    lines = [
        line
        for line in tail(node.own_lines(), closing(3))
        if not any(words in line for words in about_the_slave)
    ]
    assert lines == [
        closing(3),
        daemon_line(f"disconnected from master {first}"),
        daemon_line(f"stopping slave because we are disconnecting from its master {owner}"),
        daemon_line("reason for the stop: the daemon ends"),
        daemon_line(f"stopping Quelta slave for master {owner}"),
        daemon_line(f"disconnected from master {owner}"),
        daemon_line(f"disconnected from master {last}"),
    ]
    node.assert_no_slave()


def test_slave_of_a_lost_connection_is_stopped_at_shutdown(farm):
    """The daemon may not have noticed the loss yet, which it does at its next tick."""
    node, owner = farm()
    running(node, owner)
    owner.vanish()
    assert node.quit()
    node.assert_no_slave()


def test_shutdown_with_a_failed_slave(farm):
    node, owner = farm()
    running(node, owner)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    lines = tail(node.quit(), closing(1))
    assert daemon_line(f"stopping Quelta slave for master {owner}") in lines
    owner.expect(node.status(wire.DAEMON_STATUS))


@pytest.mark.slow
def test_unresponsive_slave_is_killed_at_shutdown(farm):
    node, owner = farm(plays=scenario(settings="on-stop ignore\non-lost ignore"))
    running(node, owner)
    begin = time.monotonic()
    lines = node.quit()
    assert time.monotonic() - begin >= 12
    assert plain_line("slave didn't stop gracefully, killing process by force") in lines
    node.assert_no_slave()


def seconds_to_quit(node):
    begin = time.monotonic()
    node.interrupt()
    assert node.wait_exit() == 0
    return time.monotonic() - begin


def test_shutdown_without_a_slave_takes_less_than_a_second(farm):
    """Takes the best of three, so that a busy machine does not look like a slow daemon."""
    assert min(seconds_to_quit(farm(3)[0]) for _ in range(3)) < 1


def test_shutdown_under_a_flood_takes_less_than_a_second(farm, beacon_socket):
    def flooded():
        node, *masters = farm(2, flags="logPrefix")
        for master in masters:
            master.connection.send_bytes(wire.frame(master.record(wire.SCAN_REQUEST)) * 500)
        beacon = wire.master_record(wire.SCAN_REQUEST, masters[0].address)
        for _ in range(500):
            beacon_socket.sendto(beacon, ("127.0.0.1", node.port))
        return seconds_to_quit(node)

    assert min(flooded() for _ in range(3)) < 1


# Seconds during which a further signal is the same request, plus a margin.
REPETITION = 1.1


@pytest.mark.linux_only("Wine reports the end of a process by a signal in its own way")
@pytest.mark.parametrize("second", [signal.SIGINT, signal.SIGTERM])
def test_second_signal_ends_a_slow_shutdown_immediately(farm, second):
    node, owner = farm(plays=scenario(settings="on-stop ignore\non-lost ignore"))
    running(node, owner)
    node.interrupt()
    asked = time.monotonic()
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    wait_until(lambda: time.monotonic() - asked > REPETITION, "a second signal is another request")
    node.interrupt(second)
    assert node.wait_exit() == -second
    node.wait_no_slave()


@pytest.mark.parametrize(
    "first, second",
    [
        (signal.SIGINT, signal.SIGINT),
        pytest.param(signal.SIGTERM, signal.SIGHUP, marks=NOT_UNDER_WINE),
    ],
)
def test_signals_within_a_second_are_one_request(farm, first, second):
    """A process manager may signal a process and its group, or send SIGHUP after SIGTERM."""
    node, owner = farm(plays=scenario(settings="on-stop exit-after 1500"))
    running(node, owner)
    node.interrupt(first)
    node.interrupt(second)
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    node.interrupt(second)
    assert node.wait_exit() == 0
    node.output.rest()
    assert tail(node.own_lines(), closing(1))[-1] == daemon_line(
        f"disconnected from master {owner}"
    )


@pytest.mark.linux_only("Wine passes no other signals to a program")
@NOT_SANITIZED
def test_second_crash_ends_the_daemon_immediately(farm):
    """A genuine fault recurs as soon as its handler returns."""
    node, owner = farm(plays=scenario(settings="on-stop ignore\non-lost ignore"))
    running(node, owner)
    node.interrupt(signal.SIGSEGV)
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    node.interrupt(signal.SIGSEGV)
    assert node.wait_exit() == -signal.SIGSEGV
    node.wait_no_slave()


@pytest.mark.linux_only("only Linux has SIGHUP")
def test_ignored_sighup_stays_ignored(make_node):
    """nohup starts programs this way."""
    node = make_node()
    node.serve(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    node.interrupt(signal.SIGHUP)
    with pytest.raises(subprocess.TimeoutExpired):
        node.process.wait(REPETITION)
    assert tail(node.quit(), closing(0)) == [closing(0)]


def test_no_slave_outlives_a_killed_daemon(farm):
    node, owner = farm(plays=scenario(settings="on-stop ignore\non-lost ignore"))
    running(node, owner)
    node.process.kill()
    assert node.wait_exit() == -signal.SIGKILL
    node.wait_no_slave()


def test_no_slave_outlives_a_daemon_killed_in_its_information_run(make_node):
    node = make_node(plays=scenario(information="connect\nauthenticating\nhang", settings=""))
    node.start()
    node.slave_report("hanging")
    node.process.kill()
    node.wait_no_slave()


@pytest.mark.linux_only("a terminal's Ctrl-C is a signal to a process group on Linux only")
def test_interrupt_from_the_terminal_reaches_daemon_and_slave(farm):
    node, owner = farm()
    running(node, owner)
    os.killpg(node.process.pid, signal.SIGINT)
    assert node.wait_exit() == 0
    node.wait_no_slave()


def test_shutdown_before_the_slave_has_connected(farm):
    node, owner = farm(plays=scenario(PUPPET))
    started(node, owner)
    node.slave_report("hanging")
    node.interrupt()
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    node.kill_slave()
    assert node.wait_exit() == 0


def test_ports_are_released_at_exit(make_node):
    node = make_node().serve()
    node.quit()
    again = make_node()
    again.port = node.port
    again.serve()
    again.quit()


def test_streams_close_with_the_daemon(make_node):
    """Neither a slave nor a helper process keeps the daemon's streams open."""
    node = make_node(flags=None).serve()
    lines = node.quit()
    assert lines[-2].startswith("Stopped logging on ")
    assert node.errors.rest() == []


def test_daemon_shuts_down_with_discarded_output(make_node):
    """A service manager may discard the output."""
    node = make_node().serve(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    node.interrupt()
    assert node.wait_exit() == 0
    wait_until(lambda: not node.slave_processes(), "no slave is left")
