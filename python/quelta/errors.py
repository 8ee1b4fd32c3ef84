"""The exceptions of this package. Every one of them is a QueltaError."""

from __future__ import annotations

from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from .records import Address


class QueltaError(Exception):
    """Something that this package could not do. `node` is the node concerned, or None."""

    def __init__(self, message: str, node: str | None = None) -> None:
        super().__init__(f"{node}: {message}" if node else message)
        self.node = node


class RecordError(QueltaError, ValueError):
    """Bytes or values that are not a valid record."""


class NodeNameError(QueltaError, ValueError):
    """A text that does not name a node, or names it twice."""


class AddressError(QueltaError):
    """This machine cannot provide the master's address, or does not find the node's."""


class MasterClosedError(QueltaError):
    """The master is not open: use it inside its `async with` block."""


class NoAnswerError(QueltaError, TimeoutError):
    """The node has not answered in time."""


class MasterUnreachableError(NoAnswerError):
    """The node hears this master's beacons, but cannot connect to the announced address."""


class NodeBusyError(QueltaError):
    """The node belongs to another master, or to another lease of this one."""

    def __init__(self, message: str, node: str, owner: Address, owner_text: str) -> None:
        super().__init__(message, node)
        self.owner = owner
        self.owner_text = owner_text


class SlaveFailedError(QueltaError):
    """The slave could not be launched, crashed or hung before it was running."""


class GiveBackError(NoAnswerError):
    """The node has not confirmed that it has stopped the slave."""
