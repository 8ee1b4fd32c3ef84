"""Dropped, re-established and lost connections to masters, and what happens to their slave."""

from support import wire
from support.hostile import timed
from support.node import wait_until
from support.output import daemon_line
from support.ownership import puppet, running, stopped
from support.scenario import PUPPET, scenario

FRAME_SIZE = 8 + wire.MASTER_RECORD_SIZE


def test_dropped_connection_is_reestablished(farm):
    node, master = farm()
    master.connection.close()
    master.accept()
    node.output.wait_sequence(
        [
            daemon_line(f"connected to master {master}"),
            daemon_line(f"disconnected from master {master}"),
            daemon_line(f"connected to master {master}"),
        ]
    )
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert node.own_lines().count(daemon_line(f"detected new master on address {master}")) == 1


def test_connections_are_made_every_half_second(farm):
    """A dropped connection is retried at the next tick; the fastest of five shows its length."""
    node, master = farm()

    def reconnect():
        master.connection.close()
        master.accept()

    reconnect()  # from now on right after a tick
    assert 0.4 < min(timed(reconnect) for _ in range(5)) < 1


def test_half_closed_connection_is_reestablished(farm):
    node, master = farm()
    master.connection.shut_sending()
    assert master.connection.is_closed_by_daemon()
    master.accept()
    master.expect_silence(node.status(wire.DAEMON_STATUS))


def test_owner_keeps_its_slave_across_a_reconnect(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    slave = node.slave_process()
    owner.connection.close()
    owner.accept()
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes() == [slave]
    stopped(node, owner, other)


def test_failure_is_reported_on_the_owners_new_connection(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    owner.connection.close()
    owner.accept()
    node.output.wait_sequence(
        [
            daemon_line(f"disconnected from master {owner}"),
            daemon_line(f"connected to master {owner}"),
        ]
    )
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    owner.expect_silence(node.status(wire.SLAVE_FAILED, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))


def test_slave_stops_when_its_owner_is_lost(farm):
    node, owner, other, third = farm(3)
    running(node, owner, other, third)
    owner.vanish()
    for remaining in (other, third):
        remaining.expect(node.status(wire.DAEMON_STATUS))
        remaining.expect_silence(node.status(wire.DAEMON_STATUS))
    node.wait_no_slave()
    node.output.wait_sequence(
        [
            daemon_line(f"disconnected from master {owner}"),
            daemon_line(f"stopping Quelta slave for master {owner}"),
        ]
    )
    running(node, other, third)


def test_losing_a_master_without_a_slave_changes_nothing(farm):
    node, owner, lost = farm(2)
    running(node, owner, lost)
    slave = node.slave_process()
    lost.vanish()
    node.output.wait(daemon_line(f"disconnected from master {lost}"))
    stopped(node, owner)
    running(node, owner)
    assert slave not in node.slave_processes()


def test_failed_slave_is_cleared_when_its_owner_is_lost(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    running(node, other)


def test_slave_stops_when_the_requesting_connection_is_lost(farm):
    """A slave started on behalf of another master stops with the connection that requested it."""
    node, named, asking = farm(2)
    asking.request(wire.START_REQUEST, address=named.address)
    status = node.status(wire.DAEMON_STATUS, named, text=asking.text)
    asking.expect(
        status, status._replace(kind=wire.START_REPLY), status._replace(kind=wire.SLAVE_RUNNING)
    )
    named.expect(status)
    asking.vanish()
    named.expect(node.status(wire.DAEMON_STATUS))
    node.wait_no_slave()


def test_lost_master_can_reconnect(farm, make_master):
    node, owner, other = farm(2)
    running(node, owner, other)
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    # The old address now refuses and is unregistered; another port of the host is a new master.
    again = make_master(ip=owner.address[0], text=owner.text).join(node)
    running(node, again, other)


def test_request_during_a_slow_stop_is_answered_afterwards(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    owner.request(wire.STOP_REQUEST)
    slave.expect_stop()
    other.request(wire.START_REQUEST)
    node.play(scenario())
    node.kill_slave()
    owner.expect(
        node.status(wire.DAEMON_STATUS),
        node.status(wire.STOP_REPLY),
        node.status(wire.DAEMON_STATUS, other),
    )
    other.expect(
        node.status(wire.DAEMON_STATUS),
        node.status(wire.DAEMON_STATUS, other),
        node.status(wire.START_REPLY, other),
        node.status(wire.SLAVE_RUNNING, other),
    )


def wait_until_stamped(master):
    """The kernel begins to stamp arrivals some time after it was first asked to."""

    def is_stamped():
        master.request(wire.SCAN_REQUEST)
        stamp = master.connection.time_of_arrival()
        master.connection.skip(FRAME_SIZE - 1)
        return stamp is not None

    wait_until(is_stamped, "the kernel stamps arrivals")


def test_status_change_reaches_masters_in_address_order(farm):
    node, *masters = farm(6)
    for master in masters:
        master.connection.stamp_arrivals()
    for master in masters:
        wait_until_stamped(master)
    owner = masters.pop(3)  # its reply follows at once, and the kernel stamps both as one
    owner.request(wire.START_REQUEST)
    arrivals = [master.connection.time_of_arrival() for master in masters]
    assert None not in arrivals
    assert arrivals == sorted(arrivals)
    assert len(set(arrivals)) == len(arrivals)


def test_every_status_change_reaches_many_masters(make_node, make_master):
    node = make_node().serve()
    owner, *others = masters = [make_master() for _ in range(20)]
    for master in masters:
        master.beacon(node)
    for master in masters:
        master.accept()
    running(node, owner, *others)
    stopped(node, owner, *others)
    for master in masters:
        master.expect_silence(node.status(wire.DAEMON_STATUS))
