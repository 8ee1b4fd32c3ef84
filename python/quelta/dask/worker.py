"""One worker of the cluster: a lease on a node, kept until it is lost or given back."""

from __future__ import annotations

import asyncio
import logging
from collections.abc import Awaitable, Callable
from dataclasses import dataclass
from typing import Any

from distributed.core import Status
from distributed.deploy.spec import ProcessInterface

from quelta import Lease, LostReason, Master, NoAnswerError, NodeBusyError, QueltaError

logger = logging.getLogger("quelta.dask")

BLAMELESS_REASONS = (LostReason.STOLEN, LostReason.STOPPED, LostReason.DISCONNECTED)
BLAMELESS_ERRORS = (NodeBusyError, NoAnswerError)


class NotRegistered(Exception):
    """The slave runs, but its Dask worker has not reached the scheduler."""


@dataclass(frozen=True)
class Loss:
    """Why a worker was lost. `blameless`: its node may be taken again as soon as it is free."""

    reason: str
    blameless: bool


class LeasedWorker(ProcessInterface):  # type: ignore[misc]
    """Holds a node whose slave runs a Dask worker.

    Everything runs on the cluster's event loop. `start` returns at once, since a node may need a
    minute to come up. `on_lost(worker, loss)` is awaited once, before the node is given back, if
    the lease ends although nobody has called `close`.
    """

    status: Status

    def __init__(
        self,
        scheduler: str,
        *,
        name: str | int,
        node: str,
        master: Master,
        time_limit: float,
        retire: Callable[[LeasedWorker], Awaitable[None]],
        on_lost: Callable[[LeasedWorker, Loss], Awaitable[None]],
    ) -> None:
        super().__init__(scheduler, name)
        self.name = name
        self.node = node
        self.registered = asyncio.Event()
        self._master = master
        self._time_limit = time_limit
        self._retire = retire
        self._on_lost = on_lost
        self._task: asyncio.Task[None] | None = None

    @property
    def is_free(self) -> bool:
        """Whether the node has been given back, or was never held."""
        return self._task is not None and self._task.done()

    async def start(self) -> None:
        self._task = asyncio.create_task(self._keep(), name=f"lease on {self.node}")
        await super().start()

    async def close(self) -> None:
        """Lets the worker's results move to other workers, then gives the node back."""
        if self.status == Status.closed:
            return
        if self._task and self.status == Status.running:
            try:
                await self._retire(self)
            finally:
                self._task.cancel()
        await self.wait_until_free()
        await super().close()

    async def wait_until_free(self) -> None:
        """Waits until the node has been given back."""
        if self._task:
            await asyncio.wait({self._task})

    async def _keep(self) -> None:
        try:
            async with self._master.hold(self.node, timeout=self._time_limit) as lease:
                logger.info("%s: the slave runs", self.node)
                end = await self._watch(lease)
                await self._lose(end.value, end in BLAMELESS_REASONS)
        except (QueltaError, NotRegistered) as error:
            reason = str(error).removeprefix(f"{self.node}: ")
            await self._lose(reason, isinstance(error, BLAMELESS_ERRORS))
        except Exception as error:  # a defect must not leave a worker that never ends
            logger.exception("%s: the lease has failed", self.node)
            await self._lose(str(error), False)

    async def _lose(self, reason: str, blameless: bool) -> None:
        if self.status == Status.running:
            self.status = Status.failed
            await self._on_lost(self, Loss(reason, blameless))

    async def _watch(self, lease: Lease) -> LostReason:
        """Waits until the lease is lost. Raises NotRegistered if no worker registers in time."""
        lost = lease.lost
        registered = asyncio.create_task(self.registered.wait())
        either: list[asyncio.Future[Any]] = [lost, registered]
        try:
            await asyncio.wait(
                either, timeout=self._time_limit, return_when=asyncio.FIRST_COMPLETED
            )
            if not lost.done() and not self.registered.is_set():
                limit = f"within {self._time_limit:g} s"
                raise NotRegistered(f"no Dask worker named {self.name!r} has registered {limit}")
            return await lost
        finally:
            registered.cancel()
            lost.cancel()
