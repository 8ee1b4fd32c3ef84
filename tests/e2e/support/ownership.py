"""Steps that many tests share: a slave started, running, stopped, with every message that goes with it."""

from . import wire
from .output import daemon_line
from .slave import SlaveConnection


def started(node, owner, *others):
    """`owner` starts the slave: everybody hears of it, the owner first, then the owner gets its reply."""
    owner.request(wire.START_REQUEST)
    owner.expect(node.status(wire.DAEMON_STATUS, owner), node.status(wire.START_REPLY, owner))
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS, owner))


def running(node, owner, *others):
    """The slave is started and reports itself to its owner alone."""
    started(node, owner, *others)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))


def stopped(node, owner, *others):
    """`owner` stops its slave: everybody hears that the node is free, then the owner gets its reply."""
    owner.request(wire.STOP_REQUEST)
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS))


def start_line(node, owner):
    """The number of the line behind which everything belongs to the slave that was first started for this owner."""
    return node.output.wait(daemon_line(f"starting slave for master {owner}"))


def puppet(node, owner, *others, slave_ip="127.0.0.1"):
    """A slave process that leaves its connection to the test, which gets it."""
    started(node, owner, *others)
    start = start_line(node, owner)
    node.slave_report(
        "hanging", start
    )  # a process killed before it has begun would count as never launched
    return SlaveConnection(node.monitor_port(start), slave_ip)
