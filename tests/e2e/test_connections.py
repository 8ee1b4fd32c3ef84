"""Connections to masters that break, come back or are lost, and what becomes of their slave."""

from support import wire
from support.hostile import timed
from support.output import daemon_line
from support.ownership import running, stopped
from support.scenario import scenario


def test_dropped_connection_is_made_again(farm):
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


def test_connections_are_made_at_ticks_of_half_a_second(farm):
    """A connection that drops as soon as it is made waits for a whole tick; the quickest of five shows its length."""
    node, master = farm()

    def reconnect():
        master.connection.close()
        master.accept()

    reconnect()  # from here on just behind a tick
    assert 0.4 < min(timed(reconnect) for _ in range(5)) < 1


def test_connection_that_the_master_half_closes_is_made_again(farm):
    node, master = farm()
    master.connection.shut_sending()
    assert master.connection.is_closed_by_daemon()
    master.accept()
    master.expect_silence(node.status(wire.DAEMON_STATUS))


def test_owner_keeps_its_slave_over_a_dropped_connection(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    slave = node.slave_process()
    owner.connection.close()
    owner.accept()
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes() == [slave]
    stopped(node, owner, other)


def test_owner_hears_of_a_failure_on_its_new_connection(farm):
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


def test_lost_owner_loses_its_slave(farm):
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


def test_lost_master_that_owns_nothing_changes_nothing(farm):
    node, owner, lost = farm(2)
    running(node, owner, lost)
    slave = node.slave_process()
    lost.vanish()
    node.output.wait(daemon_line(f"disconnected from master {lost}"))
    stopped(node, owner)
    running(node, owner)
    assert slave not in node.slave_processes()


def test_lost_owner_of_a_failed_slave(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    running(node, other)


def test_loss_is_a_matter_of_the_connection_that_asked(farm):
    """A slave that was started in another master's name goes with the connection that asked for it."""
    node, named, asking = farm(2)
    asking.request(wire.START_REQUEST, address=named.address)
    told = node.status(wire.DAEMON_STATUS, named, text=asking.text)
    asking.expect(
        told, told._replace(kind=wire.START_REPLY), told._replace(kind=wire.SLAVE_RUNNING)
    )
    named.expect(told)
    asking.vanish()
    named.expect(node.status(wire.DAEMON_STATUS))
    node.wait_no_slave()


def test_lost_master_may_come_back(farm, make_master):
    node, owner, other = farm(2)
    running(node, owner, other)
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    # Refused from now on, the address is forgotten; a master at another port of that host is new.
    again = make_master(ip=owner.address[0], text=owner.text).join(node)
    running(node, again, other)


def test_request_that_waits_behind_a_slow_stop_is_answered_after_it(farm):
    node, owner, other = farm(2, plays=scenario(settings="on-stop exit-after 1500"))
    running(node, owner, other)
    owner.request(wire.STOP_REQUEST)
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    other.request(wire.START_REQUEST)
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


def test_change_reaches_masters_in_the_order_of_their_addresses(farm):
    node, *masters = farm(6)
    for master in masters:
        master.connection.stamp_arrivals()
    owner = masters.pop(3)  # whose reply follows at once, and the kernel stamps the two as one
    owner.request(wire.START_REQUEST)
    arrivals = [master.connection.time_of_arrival() for master in masters]
    assert arrivals == sorted(arrivals)
    assert len(set(arrivals)) == len(arrivals)


def test_many_masters_hear_every_change(make_node, make_master):
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
