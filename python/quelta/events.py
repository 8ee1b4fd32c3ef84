"""Events of nodes as an asynchronous iterator."""

from __future__ import annotations

import asyncio
from collections import deque
from typing import TYPE_CHECKING, Self

from .errors import QueltaError
from .status import Event

if TYPE_CHECKING:
    from ._hub import Hub

LIMIT = 10_000
LOOK_UP_TIMEOUT = 5.0  # seconds


class EventStream:
    """The events since its creation, oldest first. Ends with its master, or after a time-out."""

    def __init__(self, hub: Hub, nodes: list[str], timeout: float | None) -> None:
        self._hub = hub
        self._nodes = nodes
        self._timeout = timeout
        self._events: deque[Event] = deque()
        self._arrival = asyncio.Event()
        self._ended = False
        self._missed = 0

    def __aiter__(self) -> Self:
        return self

    async def __anext__(self) -> Event:
        if self._nodes:
            nodes, self._nodes = self._nodes, []
            for node in nodes:
                self._hub.use(await self._hub.find(node, LOOK_UP_TIMEOUT))
        while not self._events and not self._ended:
            self._arrival.clear()
            try:
                await asyncio.wait_for(self._arrival.wait(), self._timeout)
            except TimeoutError:
                break
        if self._missed:
            missed, self._missed = self._missed, 0
            raise QueltaError(f"{missed} events were dropped, because nobody took them")
        event = self.take()
        if not event:
            raise StopAsyncIteration
        return event

    def take(self) -> Event | None:
        """Returns the oldest event that has come already."""
        return self._events.popleft() if self._events else None

    def push(self, event: Event) -> None:
        """Keeps the latest events only, so that a stream that nobody reads uses little memory."""
        if len(self._events) == LIMIT:
            self._events.popleft()
            self._missed += 1
        self._events.append(event)
        self._arrival.set()

    def end(self) -> None:
        self._ended = True
        self._arrival.set()
