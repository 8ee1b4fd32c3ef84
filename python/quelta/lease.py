"""Leases: a node whose slave runs for this master, from `async with` to its end."""

from __future__ import annotations

import asyncio
import logging
from types import TracebackType
from typing import TYPE_CHECKING

from ._holding import Failure, Holding, Limits
from ._link import Link
from .errors import (
    GiveBackError,
    MasterClosedError,
    NoAnswerError,
    NodeBusyError,
    QueltaError,
    SlaveFailedError,
)
from .records import NOBODY, Address, Record
from .status import LostReason, NodeStatus

if TYPE_CHECKING:
    from ._hub import Hub

_log = logging.getLogger(__name__)


class Lease:
    """A node that is held. Valid inside the `async with` block of Master.hold()."""

    def __init__(self, link: Link, holding: Holding) -> None:
        self._link = link
        self._holding = holding
        self._lost: asyncio.Future[LostReason] = asyncio.get_running_loop().create_future()
        self.update()

    @property
    def node(self) -> str:
        return self._link.name

    @property
    def master_address(self) -> Address:
        """The address by which the node and its slave know this master."""
        return self._link.machine.self_address

    @property
    def status(self) -> NodeStatus:
        """What the node has said last."""
        return self._link.machine.status()

    @property
    def confirmed(self) -> bool:
        """Whether the node has said that the slave runs. It is also taken to run if it has been
        healthy for some time; see `assume_running_after` of Master.hold()."""
        return self._holding.confirmed

    @property
    def reason(self) -> LostReason | None:
        """Why the lease has ended; None while it lasts."""
        return self._holding.lost

    @property
    def lost(self) -> asyncio.Future[LostReason]:
        """Ends with the reason when the lease does. Any number of tasks may await it."""
        return asyncio.shield(self._lost)

    def update(self) -> None:
        if self._holding.lost and not self._lost.done():
            self._lost.set_result(self._holding.lost)


class Hold:
    """What Master.hold() returns, for use with `async with`."""

    def __init__(self, hub: Hub, node: str, limits: Limits, *, steal: bool) -> None:
        self._hub = hub
        self._node = node
        self._limits = limits
        self._steal = steal
        self._link: Link | None = None
        self._holding: Holding | None = None

    async def __aenter__(self) -> Lease:
        if self._link:
            raise QueltaError("a hold can be entered once; call hold() again", self._node)
        began = self._hub.now()
        self._link = link = await self._hub.find(self._node, self._limits.timeout)
        if link.machine.holding:
            raise _busy(link, link.machine.record, "another lease of this master holds it")
        self._holding = holding = Holding(link.machine, self._limits, began, steal=self._steal)
        self._hub.use(link)
        try:
            await link.until(lambda: holding.is_settled)
        except BaseException:
            await self._give_back(link, holding)
            raise
        if holding.failure:
            raise await self._error(link, holding, holding.failure)
        if not holding.has_run:
            raise MasterClosedError(
                "the master was closed before the slave was running", self._node
            )
        link.lease = Lease(link, holding)
        return link.lease

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        assert self._link and self._holding
        link, holding = self._link, self._holding
        await self._give_back(link, holding)
        if holding.given_back or holding.lost is LostReason.DISCONNECTED:
            return
        unconfirmed = GiveBackError(
            f"has not confirmed within {self._limits.stop_timeout:g} s that its slave has stopped",
            self._node,
        )
        if error is None:
            raise unconfirmed
        _log.warning("%s", unconfirmed)

    async def _give_back(self, link: Link, holding: Holding) -> None:
        """Cancellation takes effect when the node is given back or its time is over."""
        holding.release(self._hub.now())
        self._hub.pump(link)
        await link.until_in_any_case(lambda: holding.is_ended)

    async def _error(self, link: Link, holding: Holding, failure: Failure) -> QueltaError:
        limit = f"{self._limits.timeout:g} s"
        if failure in (Failure.REFUSED, Failure.STOLEN):
            what = "belongs to" if failure is Failure.REFUSED else "was stolen by"
            return _busy(link, holding.failed_with, f"it {what} {{owner}}")
        if failure is Failure.FAILED:
            return SlaveFailedError("its slave failed before it was running", self._node)
        if failure is Failure.STOPPED:
            return SlaveFailedError("its slave was stopped before it was running", self._node)
        if failure is Failure.NO_CONNECTION:
            return await self._hub.no_connection_error(link, limit)
        return NoAnswerError(
            {
                Failure.NO_ANSWER: f"is connected, but has not answered within {limit}; a daemon "
                "answers nobody for up to 12 s while it stops a slave",
                Failure.NOT_RUNNING: f"its slave was not running within {limit}",
                Failure.DISCONNECTED: "it vanished before its slave was running",
            }[failure],
            self._node,
        )


def _busy(link: Link, record: Record | None, message: str) -> NodeBusyError:
    """`message` may name the {owner}."""
    owner, text = (record.owner, record.text) if record else (None, "")
    name = f'{owner} ("{text}")' if text else f"{owner}"
    return NodeBusyError(message.format(owner=name), link.name, owner or NOBODY, text)
