"""Steps that many tests share: starting and stopping a slave, with every message involved."""

from . import wire
from .master import Master
from .node import Node
from .output import daemon_line
from .slave import SlaveConnection


def started(node: Node, owner: Master, *others: Master) -> None:
    """`owner` starts the slave: every master is notified, then the owner receives its reply."""
    owner.request(wire.START_REQUEST)
    owner.expect(node.status(wire.DAEMON_STATUS, owner), node.status(wire.START_REPLY, owner))
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS, owner))


def running(node: Node, owner: Master, *others: Master) -> None:
    """Starts the slave and waits until its owner is notified that it runs."""
    started(node, owner, *others)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))


def stopped(node: Node, owner: Master, *others: Master) -> None:
    """`owner` stops its slave: every master is notified, then the owner receives its reply."""
    owner.request(wire.STOP_REQUEST)
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS))


def start_line(node: Node, owner: Master) -> int:
    """Returns the number of the line that logs the first start for this owner."""
    return node.output.wait(daemon_line(f"starting slave for master {owner}"))


def puppet(
    node: Node, owner: Master, *others: Master, slave_ip: str = "127.0.0.1"
) -> SlaveConnection:
    """Starts an idle slave process and returns a connection that speaks in its place."""
    started(node, owner, *others)
    start = start_line(node, owner)
    # A process killed before it has begun would be reported as never launched.
    node.slave_report("hanging", start)
    return SlaveConnection(node.monitor_port(start), slave_ip)
