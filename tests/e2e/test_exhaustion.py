"""A daemon without free descriptors keeps its connections, logs the shortage and recovers."""

import re
import resource
import time

import pytest

from support import measure, wire
from support.node import wait_until
from support.output import daemon_line, error_line
from support.ownership import running, start_line, stopped
from support.slave import SlaveConnection

pytestmark = pytest.mark.linux_only("limits the descriptors of a Linux process")

LIMIT = 64
MASTERS = 200
RESERVE = 16
NOT_CONNECTING = re.compile(
    r"daemon    : not connecting to master ([\d.]+:\d+): only (\d+) file descriptors left"
)
SCARCE = re.compile(
    error_line(
        r"only (\d+) file descriptors left: no more masters are connected until some are free"
    )
)
BUSY_SECONDS = 4
IDLE_SHARE = 0.3  # of a processor; a daemon that spins would use a whole one


def limited():
    resource.setrlimit(resource.RLIMIT_NOFILE, (LIMIT, LIMIT))


def announce_all(node, masters):
    for master in masters:
        master.beacon(node)


def turned_away(node):
    """Returns the masters not connected to, each with the number of descriptors logged as left."""
    return {
        match[1]: int(match[2])
        for match in map(NOT_CONNECTING.fullmatch, node.output.lines())
        if match
    }


def connected(node, masters):
    """Returns the masters that the daemon has logged as connected."""
    lines = set(node.output.lines())
    return [master for master in masters if daemon_line(f"connected to master {master}") in lines]


def accepted(node, masters):
    found = connected(node, masters)
    for master in found:
        master.accept()
    return found


@pytest.fixture
def crowded(make_node, make_master):
    """A node with as many masters as it can connect, and many more: `node, inside, outside`."""
    node = make_node(flags="daemon logPrefix logJuce").serve(preexec_fn=limited)
    masters = [make_master() for _ in range(MASTERS)]

    def all_decided():
        announce_all(node, masters)
        connected = [
            line
            for line in node.output.lines()
            if line.startswith(daemon_line("connected to master "))
        ]
        return len(connected) + len(turned_away(node)) == MASTERS

    wait_until(all_decided, "every master is either connected or turned away")
    inside = accepted(node, masters)
    outside = [master for master in masters if master not in inside]
    assert len(inside) > LIMIT / 2 and outside
    return node, inside, outside


def test_daemon_serves_connected_masters_and_starts_the_slave(crowded):
    node, inside, outside = crowded
    assert set(turned_away(node)) == {str(master) for master in outside}
    assert max(turned_away(node).values()) <= RESERVE
    for _ in range(3):
        running(node, *inside)
        stopped(node, *inside)
    for master in inside:
        master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert len(measure.descriptors(node.process.pid)) <= LIMIT - RESERVE
    errors = [line for line in node.quit() if line.startswith("ERROR")]
    assert len(errors) == 1 and SCARCE.fullmatch(errors[0]), errors


def test_daemon_does_not_spin(crowded):
    node, _, outside = crowded
    begin, used = time.monotonic(), measure.cpu_seconds(node.process.pid)
    while time.monotonic() - begin < BUSY_SECONDS:
        announce_all(node, outside)
        time.sleep(1)  # beacons once a second
    share = (measure.cpu_seconds(node.process.pid) - used) / (time.monotonic() - begin)
    assert share < IDLE_SHARE


def test_strangers_on_the_monitor_port_cannot_use_the_reserve(crowded):
    node, inside, _ = crowded
    running(node, *inside)
    monitor = node.monitor_port(start_line(node, inside[0]))
    for _ in range(2 * RESERVE):
        assert SlaveConnection(monitor).is_closed_by_daemon()
    stopped(node, *inside)
    running(node, *inside)


def test_reconnecting_owner_is_accepted(crowded):
    """The slave's monitor uses part of the reserve, which must not stop a healthy slave."""
    node, (owner, *others), _ = crowded
    running(node, owner, *others)
    owner.connection.close()
    owner.accept()
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    for other in others:
        other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, *others)


def test_daemon_recovers_when_masters_leave(crowded):
    node, inside, outside = crowded
    running(node, *inside)
    owner, *others = inside
    for master in others:
        master.vanish()
    # Only half of them, because the running slave uses some descriptors. Any of the masters turned
    # away may be first, even one whose earlier beacon was still queued.
    wait_until(
        lambda: announce_all(node, outside) or len(connected(node, outside)) >= len(others) // 2,
        "masters that were turned away are connected in the place of those that went",
    )
    newcomers = accepted(node, outside)
    for newcomer in newcomers:
        newcomer.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, *newcomers)
    node.quit()
