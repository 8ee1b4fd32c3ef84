"""Masters that never read, do not exist or name the daemon's ports; strangers on the monitor port.
"""

import time
from concurrent.futures import ThreadPoolExecutor
from itertools import count, islice

import pytest

from support import measure, wire
from support.hostile import (
    announce,
    black_hole,
    flood,
    loopback_addresses,
    scan_without_reading,
    timed,
)
from support.node import wait_until
from support.output import daemon_line, error_line, plain_line
from support.ownership import running, start_line, started, stopped
from support.ports import refusing_socket
from support.scenario import PUPPET, scenario
from support.slave import SlaveConnection

FLAGS = "daemon logPrefix logJuce"
HANGS_AT_START = plain_line("detected that slave is hanging during startup -> stopping slave")
MAX_MASTERS = 10000
SEVERAL_TICKS = 6  # seconds; a tick takes one, and the next follows after half a second
REFUSED = error_line("multiple connections requested for slave monitor")


def seconds_to_be_served(master, expected):
    return timed(master.expect_silence, expected)


def test_master_that_never_reads_does_not_block_others_and_is_reconnected(farm):
    """A send times out after 200 ms; the daemon disconnects at its next tick and reconnects."""
    node, patient, deaf = farm(2, flags=FLAGS)
    free = node.status(wire.DAEMON_STATUS)
    with ThreadPoolExecutor() as elsewhere:
        scanning = elsewhere.submit(scan_without_reading, deaf)
        while not scanning.done():
            assert seconds_to_be_served(patient, free) < 2
        scanning.result()
    deaf.accept()
    deaf.expect_silence(free)
    running(node, patient, deaf)
    stopped(node, patient, deaf)
    lines = node.quit()
    assert lines.count(daemon_line(f"connected to master {deaf}")) == 2


def test_status_change_reaches_the_others_if_some_never_read(farm):
    node, owner, other, *deaf = farm(5, flags=FLAGS)
    for master in deaf:
        # Fits into the socket buffers, so that the daemon's next send times out, not the test's.
        for _ in range(60):
            master.connection.send_bytes(wire.frame(master.record(wire.SCAN_REQUEST)) * 100)
    assert timed(running, node, owner, other) < 5
    assert timed(stopped, node, owner, other) < 5
    node.quit()


def test_owner_that_never_reads_keeps_its_slave_across_a_reconnect(farm):
    node, other, owner = farm(2, flags=FLAGS)
    running(node, owner, other)
    slave = node.slave_process()
    scan_without_reading(owner)
    owner.accept()
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes() == [slave]
    stopped(node, owner, other)


@pytest.mark.parametrize(
    "junk",
    [b"", b"x", bytes(1000), wire.master_record(wire.SCAN_REQUEST, version=9)],
    ids=["nothing", "a byte", "zeros", "another version"],
)
def test_beacon_is_received_after_20000_junk_datagrams(farm, make_master, beacon_socket, junk):
    node, first = farm(flags="logPrefix")
    flood(beacon_socket, node, junk, 20000)
    make_master().join(node).expect_silence(node.status(wire.DAEMON_STATUS))
    first.expect_silence(node.status(wire.DAEMON_STATUS))
    assert [line for line in node.quit() if line.startswith("ERROR")] == []


@pytest.mark.linux_only("Windows needs a second to detect a refused connection")
def test_thousands_of_refusing_masters_are_unregistered_immediately(
    farm, make_master, beacon_socket
):
    node, owner = farm(flags=FLAGS)
    with refusing_socket("0.0.0.0") as refusing:
        announce(beacon_socket, node, loopback_addresses(3000, refusing.getsockname()[1]))
        assert timed(running, node, owner) < 10
        make_master().join(node)
    assert timed(node.quit) < 5


@pytest.mark.slow
def test_thousands_of_unresponsive_masters_do_not_starve_the_others(farm, beacon_socket):
    """A tick tries them for one second, the next tick continues; requests are served in between."""
    node, owner, other = farm(2, flags=FLAGS)
    with black_hole() as port:
        addresses = loopback_addresses(3000, port)
        announce(beacon_socket, node, addresses)
        first_registered = daemon_line("detected new master on address %s:%u" % addresses[0])
        node.output.wait(first_registered)
        begin = time.monotonic()
        while time.monotonic() - begin < SEVERAL_TICKS:
            assert seconds_to_be_served(other, node.status(wire.DAEMON_STATUS)) < 4
            time.sleep(0.1)
        running(node, owner, other)
        stopped(node, owner, other)

        def registered_again():
            announce(beacon_socket, node, addresses[:1])
            return node.output.count(first_registered) > 1

        wait_until(
            registered_again,
            "the first one is unregistered after a failed attempt and registered again",
        )
        assert timed(node.quit) < 5


@pytest.mark.linux_only("reads the memory of a Linux process")
def test_forged_masters_are_registered_up_to_a_limit(farm, beacon_socket):
    node, owner = farm(flags=FLAGS)
    before = measure.resident_kilobytes(node.process.pid)
    invented = count()
    complaint = f": there are {MAX_MASTERS} already"
    with black_hole() as port:

        def full():
            """Announces new masters each time, because a busy daemon misses many beacons."""
            names = [
                f"127.{9 + number // 65536}.{number // 256 % 256}.{number % 256}"
                for number in islice(invented, 250)
            ]
            announce(beacon_socket, node, [(name, port) for name in names])
            return any(line.endswith(complaint) for line in node.output.lines()[-300:])

        wait_until(full, "there are as many masters as the daemon keeps")
        node.output.wait_match(
            r"daemon    : not registering master 127\.[\d.]+:%u" % port + complaint
        )
        assert (
            measure.SANITIZED or measure.resident_kilobytes(node.process.pid) - before < 40 * 1024
        )
        owner.expect_silence(node.status(wire.DAEMON_STATUS))
        assert timed(node.quit) < 10
    kept = node.output.wait_match(
        r" +closing down all existing master connections \((\d+)\)\.\.\."
    ).group(1)
    assert MAX_MASTERS - 10 <= int(kept) <= MAX_MASTERS  # a few may have been unregistered since


def test_beacons_with_the_daemons_own_ports(farm, beacon_socket):
    """The beacon port refuses connections; on the monitor port, the daemon is another stranger."""
    node, owner, other = farm(2, flags=FLAGS)
    running(node, owner, other)
    monitor = node.monitor_port(start_line(node, owner))
    announce(
        beacon_socket,
        node,
        [("127.0.0.1", node.port), ("127.0.0.1", monitor), ("0.0.0.0", monitor)],
    )
    node.output.wait(daemon_line(f"connected to master 127.0.0.1:{monitor}"))
    node.output.wait(REFUSED)
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, other)
    started(node, owner, other)  # the slave or the stranger may connect first
    lines = node.quit()
    assert daemon_line(f"connected to master 127.0.0.1:{node.port}") not in lines
    node.assert_no_slave()


def test_daemon_survives_connecting_to_its_own_monitor_port_first(farm, beacon_socket):
    """Taking the slave's place, it fails that start and survives talking to itself."""
    node, owner, other = farm(2, flags=FLAGS, plays=scenario(PUPPET))
    started(node, owner, other)
    start = start_line(node, owner)
    node.slave_report("hanging", start)
    monitor = node.monitor_port(start)
    announce(beacon_socket, node, [("127.0.0.1", monitor)])
    node.output.wait(daemon_line(f"connected to master 127.0.0.1:{monitor}"))
    assert SlaveConnection(monitor).is_closed_by_daemon()
    node.output.wait(REFUSED)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, other)
    node.play(scenario())
    started(node, owner, other)
    node.quit()


@pytest.mark.slow
def test_stranger_first_on_the_monitor_port_fails_only_that_start(farm):
    """The first connection is kept, so the slave itself is refused and is treated as hanging."""
    node, owner, other = farm(2, flags=FLAGS, plays=scenario(PUPPET))
    begin = time.monotonic()
    started(node, owner, other)
    start = start_line(node, owner)
    node.slave_report("hanging", start)
    monitor = node.monitor_port(start)
    stranger = SlaveConnection(monitor)
    stranger.send_bytes(b"GET / HTTP/1.1\r\n")
    node.output.wait(daemon_line("started to monitor slave"), start)
    assert SlaveConnection(monitor).is_closed_by_daemon()
    line = node.output.wait(REFUSED, start)
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    line = node.output.wait(HANGS_AT_START, line)
    assert time.monotonic() - begin >= 10
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    node.output.wait(daemon_line(f"notifying master {owner} that the slave has crashed"), line)
    stranger.close()
    stopped(node, owner, other)
    node.play(scenario())
    running(node, owner, other)
    node.quit()


def test_many_strangers_on_the_monitor_port_of_a_running_slave(farm):
    node, owner, other = farm(2, flags=FLAGS)
    running(node, owner, other)
    monitor = node.monitor_port(start_line(node, owner))
    for _ in range(200):
        assert SlaveConnection(monitor).is_closed_by_daemon()
    wait_until(lambda: node.output.count(REFUSED) == 200, "each of them has been logged")
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, other)
    node.quit()
