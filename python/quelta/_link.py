"""What a master keeps for one node: its decisions, its connection and those who wait for it."""

from __future__ import annotations

import asyncio
from typing import TYPE_CHECKING, Callable

from ._network import Connection, Listener
from ._node_machine import NodeMachine
from .records import Address

if TYPE_CHECKING:
    from .lease import Lease


class Link:
    """One node. Used on the event loop's thread only."""

    def __init__(self, name: str, ip: str, port: int, machine_ip: str, listener: Listener) -> None:
        self.ip = ip
        self.port = port
        self.machine_ip = machine_ip
        self.listener = listener
        self.machine = NodeMachine(name, Address(listener.ip, listener.port))
        self.connection: Connection | None = None
        self.lease: Lease | None = None
        self.users = 0
        """The number of scans that wait for this node."""
        self.beacon_error: OSError | None = None
        self._changed = asyncio.Event()

    @property
    def name(self) -> str:
        return self.machine.name

    @property
    def is_in_use(self) -> bool:
        return self.users > 0 or self.machine.holding is not None

    def has_no_lease(self) -> bool:
        return self.machine.holding is None

    def wake(self) -> None:
        """Lets those who wait look again."""
        if self.lease:
            self.lease.update()
        self._changed.set()
        self._changed.clear()

    async def until(self, condition: Callable[[], bool]) -> None:
        """Waits for a condition that becomes true through an event of this node."""
        while not condition():
            await self._changed.wait()

    async def until_in_any_case(self, condition: Callable[[], bool]) -> None:
        """The same, but a cancellation takes effect at the end. The condition needs a limit."""
        cancelled: asyncio.CancelledError | None = None
        while not condition():
            try:
                await self._changed.wait()
            except asyncio.CancelledError as request:
                cancelled = request
        if cancelled:
            raise cancelled
