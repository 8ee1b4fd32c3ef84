"""One scan: which nodes it asks, and which of them have answered since."""

from __future__ import annotations

import asyncio
from functools import partial
from types import TracebackType
from typing import TYPE_CHECKING, Self

from ._link import Link
from .status import NodeState, NodeStatus

if TYPE_CHECKING:
    from ._hub import Hub


class Scan:
    """Asks nodes for their state inside a `with` block; they get beacons for as long."""

    def __init__(self, hub: Hub) -> None:
        self._hub = hub
        self._answers_before: dict[Link, int] = {}

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        for link in self._answers_before:
            link.users -= 1

    def add(self, link: Link) -> None:
        if link not in self._answers_before:
            self._answers_before[link] = link.machine.answers
            link.users += 1
            self._hub.use(link)

    async def broadcast(self, address: str, deadline: float) -> list[Link]:
        """Sends beacons to the address until the deadline; returns the nodes that may answer."""
        target = await self._hub.begin_broadcast(address)
        try:
            for link in self._hub.links_of(target):
                self.add(link)
            await asyncio.sleep(deadline - asyncio.get_running_loop().time())
        finally:
            self._hub.end_broadcast()
        reached = self._hub.links_of(target)
        for link in reached:
            if link not in self._answers_before:  # unknown before, so any answer is new
                self._answers_before[link] = 0
                link.users += 1
        return reached

    async def wait(self, deadline: float) -> None:
        """Returns when all nodes have answered, or at the deadline."""
        try:
            async with asyncio.timeout_at(deadline):
                for link in self._answers_before:
                    await link.until(partial(self.has_answered, link))
        except TimeoutError:
            pass

    def status(self, link: Link) -> NodeStatus:
        if self.has_answered(link):
            return link.machine.status()
        state = NodeState.SILENT if link.machine.connected else NodeState.NO_ANSWER
        return NodeStatus(link.name, state)

    def has_answered(self, link: Link) -> bool:
        return link.machine.connected and link.machine.answers > self._answers_before[link]
