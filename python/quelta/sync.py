"""The same for programs without asyncio: a thread with an event loop does the work.

    with sync.Master(text="night shift") as master:
        with master.hold("10.0.0.5:5130") as lease:
            ...  # the slave runs for this master

The arguments and exceptions are those of quelta.Master. A master and its leases may be used from
any thread. Ctrl-C interrupts every wait; what is being held is given back first.
"""

from __future__ import annotations

import asyncio
import concurrent.futures
import threading
from contextlib import contextmanager
from types import TracebackType
from typing import Any, Coroutine, Iterable, Iterator, Self, TypeVar

from . import lease as asynchronous_lease
from . import master as asynchronous_master
from .errors import MasterClosedError
from .events import EventStream
from .records import Address
from .status import Event, LostReason, NodeStatus

T = TypeVar("T")

POLL = 0.1  # seconds: Windows delivers Ctrl-C only between two waits

__all__ = ["Lease", "Master"]


class Lease:
    """A node that is held. Valid inside the `with` block of Master.hold()."""

    def __init__(self, master: Master, lease: asynchronous_lease.Lease) -> None:
        self._master = master
        self._lease = lease
        self.node = lease.node
        self.master_address = lease.master_address

    @property
    def lost(self) -> LostReason | None:
        """Why the lease has ended; None while it lasts."""
        return self._lease.reason

    @property
    def confirmed(self) -> bool:
        return self._lease.confirmed

    @property
    def status(self) -> NodeStatus:
        """What the node has said last."""
        return self._lease.status

    def wait(self, timeout: float | None = None) -> LostReason | None:
        """Waits until the lease is lost; returns the reason, or None after the time-out."""
        return self._master._call(self._wait(timeout))

    async def _wait(self, timeout: float | None) -> LostReason | None:
        await asyncio.wait({self._lease.lost}, timeout=timeout)
        return self._lease.reason


class Master:
    """quelta.Master for `with`. Its thread begins and ends with the block."""

    def __init__(
        self,
        address: str | None = None,
        port: int = 0,
        text: str = "",
        *,
        port_step: int = 1,
    ) -> None:
        self._master = asynchronous_master.Master(address, port, text, port_step=port_step)
        self._thread = threading.Thread(target=self._run, name="quelta.sync")
        self._loop: asyncio.AbstractEventLoop | None = None
        self._opened: concurrent.futures.Future[None] = concurrent.futures.Future()
        self._closed: concurrent.futures.Future[None] = concurrent.futures.Future()
        self._leave = asyncio.Event()

    def __enter__(self) -> Self:
        self._thread.start()
        _wait_for(self._opened)
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        assert self._loop
        self._loop.call_soon_threadsafe(self._leave.set)
        _wait_for(self._closed)
        self._thread.join()

    def scan(
        self,
        nodes: str | Iterable[str] = (),
        timeout: float = 5.0,
        *,
        broadcast: str | None = None,
    ) -> list[NodeStatus]:
        return self._call(self._master.scan(nodes, timeout, broadcast=broadcast))

    @contextmanager
    def hold(
        self, node: str, *, timeout: float = 30.0, steal: bool = False, **limits: float
    ) -> Iterator[Lease]:
        """`limits`: the other time limits of quelta.Master.hold()."""
        hold = self._master.hold(node, timeout=timeout, steal=steal, **limits)
        lease = self._call(hold.__aenter__())
        try:
            yield Lease(self, lease)
        except BaseException as error:
            self._call(hold.__aexit__(type(error), error, error.__traceback__))
            raise
        self._call(hold.__aexit__(None, None, None))

    def events(
        self, nodes: str | Iterable[str] = (), *, timeout: float | None = None
    ) -> Iterator[Event]:
        """Returns the events from now on. The iterator ends with the master or the time-out."""

        async def subscribe() -> EventStream:
            return self._master.events(nodes, timeout=timeout)

        return self._iterate(self._call(subscribe()))

    def address_for(self, node: str, timeout: float = 5.0) -> Address:
        return self._call(self._master.address_for(node, timeout))

    def _call(self, coroutine: Coroutine[Any, Any, T]) -> T:
        """Runs a coroutine on this master's event loop and returns its result.

        An interrupted wait cancels the coroutine and lets it end.
        """
        if not self._loop or self._closed.done():
            coroutine.close()
            raise MasterClosedError("the master is not open: use it with `with`")
        result: concurrent.futures.Future[T] = concurrent.futures.Future()

        async def run() -> None:
            try:
                result.set_result(await coroutine)
            except asyncio.CancelledError:
                result.set_exception(MasterClosedError("the master was closed"))
            except BaseException as error:
                result.set_exception(error)

        task = asyncio.run_coroutine_threadsafe(run(), self._loop)
        try:
            return _wait_for(result, self._closed)
        except BaseException:
            task.cancel()  # without effect on one that has ended
            ends: list[concurrent.futures.Future[Any]] = [result, self._closed]
            concurrent.futures.wait(ends, return_when=concurrent.futures.FIRST_COMPLETED)
            raise

    def _iterate(self, stream: EventStream) -> Iterator[Event]:
        while True:
            try:
                yield self._call(stream.__anext__())
            except StopAsyncIteration:
                return
            except MasterClosedError:
                break
        while event := stream.take():
            yield event

    def _run(self) -> None:
        try:
            asyncio.run(self._serve())
        except BaseException as error:
            if not self._opened.done():
                self._opened.set_exception(error)
            self._closed.set_exception(error)
        else:
            self._closed.set_result(None)

    async def _serve(self) -> None:
        async with self._master:
            self._loop = asyncio.get_running_loop()
            self._opened.set_result(None)
            await self._leave.wait()


def _wait_for(
    future: concurrent.futures.Future[T],
    end: concurrent.futures.Future[None] | None = None,
) -> T:
    """Returns the result. Raises MasterClosedError if `end` is over first."""
    while not future.done():
        concurrent.futures.wait({future}, timeout=POLL)
        if end and end.done() and not future.done():
            raise MasterClosedError("the master was closed")
    return future.result()
