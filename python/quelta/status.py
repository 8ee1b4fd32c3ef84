"""What a master tells about nodes: values without behaviour."""

from __future__ import annotations

from dataclasses import dataclass
from datetime import datetime
from enum import Enum

from .records import Address, Record


class NodeState(Enum):
    NO_ANSWER = "no answer"
    """The node has not connected in time."""
    SILENT = "silent"
    """The node is connected, but has not answered in time: it may be stopping a slave."""
    FREE = "free"
    OWNED = "owned"
    FAILED = "failed"
    """The node belongs to this master and its slave has failed."""


@dataclass(frozen=True, slots=True)
class NodeStatus:
    """What is known of a node. The fields after `state` are empty unless the node has answered."""

    node: str
    state: NodeState
    alias: str = ""
    gpus: int = 0
    slave_version: int = 0
    owner: Address | None = None
    owner_text: str = ""


class EventKind(Enum):
    FOUND = "found"
    """The first answer of a node, and the first one after a disconnection."""
    CHANGED = "changed"
    STARTING = "starting"
    RUNNING = "running"
    FAILED = "failed"
    STOPPED = "stopped"
    """This master has given the node back."""
    REFUSED = "refused"
    STOLEN = "stolen"
    LOST = "lost"
    """The node no longer belongs to this master, and nobody has stolen it."""
    DISCONNECTED = "disconnected"
    NO_ANSWER = "no answer"
    SILENT = "silent"
    INVALID_RECORD = "invalid record"


@dataclass(frozen=True, slots=True)
class Event:
    time: datetime
    kind: EventKind
    status: NodeStatus

    @property
    def node(self) -> str:
        return self.status.node


class LostReason(Enum):
    """Why a lease has ended."""

    FAILED = "failed"
    """The slave crashed or hung. The node has been given back."""
    STOLEN = "stolen"
    STOPPED = "stopped"
    """Somebody has sent a stop request in the name of this master."""
    DISCONNECTED = "disconnected"
    """The node has vanished, or has freed itself because it could not reach this master."""
    RELEASED = "released"
    """This program has given the node back."""


def status_from(node: str, record: Record, *, failed: bool) -> NodeStatus:
    """Returns the status in a daemon's record. `failed`: the slave of this master has failed."""
    state = NodeState.FAILED if failed else NodeState.OWNED
    return NodeStatus(
        node,
        state if record.owner else NodeState.FREE,
        record.slave_alias,
        record.gpus,
        record.slave_version,
        record.owner,
        record.text if record.owner else "",
    )
