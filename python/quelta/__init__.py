"""Holds the nodes of a render network: starts their slaves, keeps them, and gives them back.

    async with Master(text="night shift") as master:
        async with master.hold("10.0.0.5:5130") as lease:
            ...  # the slave runs for this master

`quelta.sync` has the same for programs without asyncio.
"""

from .errors import (
    AddressError,
    GiveBackError,
    MasterClosedError,
    MasterUnreachableError,
    NoAnswerError,
    NodeBusyError,
    NodeNameError,
    QueltaError,
    RecordError,
    SlaveFailedError,
)
from .lease import Lease
from .master import Master
from .nodes import parse_nodes, read_nodes
from .records import Address
from .status import Event, EventKind, LostReason, NodeState, NodeStatus

__all__ = [
    "Address",
    "AddressError",
    "Event",
    "EventKind",
    "GiveBackError",
    "Lease",
    "LostReason",
    "Master",
    "MasterClosedError",
    "MasterUnreachableError",
    "NoAnswerError",
    "NodeBusyError",
    "NodeNameError",
    "NodeState",
    "NodeStatus",
    "QueltaError",
    "RecordError",
    "SlaveFailedError",
    "parse_nodes",
    "read_nodes",
]
