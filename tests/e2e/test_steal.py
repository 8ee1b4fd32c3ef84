"""A master takes the slave over from another one."""

from support import wire
from support.node import wait_until
from support.output import daemon_line, error_line
from support.ownership import running, stopped

NO_SLAVE_RUNNING = error_line("we don't have an Quelta slave running")


def stolen(node, thief, *others):
    """Every master is notified of the new owner; the thief receives its reply and a slave."""
    thief.request(wire.STEAL_REQUEST)
    thief.expect(node.status(wire.DAEMON_STATUS, thief), node.status(wire.STEAL_REPLY, thief))
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS, thief))
    thief.expect(node.status(wire.SLAVE_RUNNING, thief))


def test_steal_from_the_owner(farm):
    node, owner, thief, third = farm(3)
    running(node, owner, thief, third)
    before = node.slave_process()
    stolen(node, thief, owner, third)
    wait_until(lambda: before not in node.slave_processes(), "the old slave is gone")
    assert len(node.slave_processes()) == 1
    node.output.wait_sequence(
        [
            daemon_line(f"received steal request from master {thief}"),
            daemon_line(f"stopping Quelta slave for master {owner}"),
            daemon_line(f"starting slave for master {thief}"),
            daemon_line(f"notifying master {thief} that the slave is initialized and running"),
        ]
    )
    assert NO_SLAVE_RUNNING not in node.quit()


def test_steal_never_reports_a_free_node(farm):
    node, owner, thief = farm(2)
    running(node, owner, thief)
    stolen(node, thief, owner)
    owner.expect_silence(node.status(wire.DAEMON_STATUS, thief))
    thief.expect_silence(node.status(wire.DAEMON_STATUS, thief))


def test_former_owner_cannot_stop_the_stolen_slave(farm):
    node, owner, thief = farm(2)
    running(node, owner, thief)
    stolen(node, thief, owner)
    owner.request(wire.STOP_REQUEST)
    owner.expect(node.status(wire.STOP_REPLY, thief))
    thief.expect_silence(node.status(wire.DAEMON_STATUS, thief))
    stopped(node, thief, owner)


def test_steal_by_the_owner_changes_nothing(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    slave = node.slave_process()
    owner.request(wire.STEAL_REQUEST, text=b"another text")
    owner.expect(node.status(wire.STEAL_REPLY, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes() == [slave]


def test_steal_on_a_free_node_logs_an_error_and_starts(farm):
    node, thief, other = farm(2)
    stolen(node, thief, other)
    node.output.wait_sequence(
        [
            daemon_line(f"received steal request from master {thief}"),
            NO_SLAVE_RUNNING,
            daemon_line(f"starting slave for master {thief}"),
        ]
    )
    stopped(node, thief, other)
    assert daemon_line("stopping Quelta slave for master 0.0.0.0:0") not in node.quit()


def test_slave_can_be_stolen_back(farm):
    node, first, second = farm(2)
    running(node, first, second)
    for thief, robbed in ((second, first), (first, second), (second, first)):
        stolen(node, thief, robbed)
    stopped(node, second, first)
    node.wait_no_slave()


def test_steal_uses_the_address_in_the_request(farm):
    """A request that names the owner is treated as the owner's, regardless of its sender."""
    node, owner, other = farm(2)
    running(node, owner, other)
    other.request(wire.STEAL_REQUEST, address=owner.address)
    other.expect(node.status(wire.STEAL_REPLY, owner))
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


def test_same_host_with_another_port_is_another_master(make_node, make_master):
    node = make_node().serve()
    owner, thief = (make_master(ip="127.0.0.9", text=text).join(node) for text in (b"one", b"two"))
    running(node, owner, thief)
    stolen(node, thief, owner)


def test_steal_of_a_failed_slave(farm):
    node, owner, thief = farm(2)
    running(node, owner, thief)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stolen(node, thief, owner)
    thief.expect_silence(node.status(wire.DAEMON_STATUS, thief))
