"""A daemon made of plain sockets: the test decides what it answers, and when.

Its bytes are written by the module of the end-to-end tests, not by the package under test.
"""

from __future__ import annotations

import asyncio
import socket
from typing import Self

from support import wire
from support.limits import HANG_LIMIT

Address = tuple[str, int]


class FakeDaemon:
    """Hears beacons, connects to the master and speaks as told. Use it with `async with`."""

    def __init__(self) -> None:
        self._beacons = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._beacons.bind(("127.0.0.1", 0))
        self._beacons.setblocking(False)
        self.name = "127.0.0.1:%d" % self._beacons.getsockname()[1]
        self.master: Address = wire.NO_ADDRESS
        self._streams: list[tuple[asyncio.StreamReader, asyncio.StreamWriter]] = []

    async def __aenter__(self) -> Self:
        return self

    async def __aexit__(self, *_: object) -> None:
        self._beacons.close()
        for stream in self._streams:
            stream[1].close()

    async def beacon(self) -> bytes:
        """Waits for a beacon and returns its bytes."""
        loop = asyncio.get_running_loop()
        return await asyncio.wait_for(loop.sock_recv(self._beacons, 1000), HANG_LIMIT)

    async def join(self) -> Self:
        """Waits for a beacon and connects to the address in it."""
        data = await self.beacon()
        self.master = wire.read_status(data).owner
        self._streams.append(await asyncio.open_connection(*self.master))
        return self

    async def receive(self) -> int:
        """Returns the type of the next request, whose other contents are checked."""
        payload = await self.receive_bytes()
        kind, master, *_ = wire.read_status(payload)
        assert master == self.master
        return kind

    async def receive_bytes(self) -> bytes:
        reader, _ = self._streams[-1]
        data = await asyncio.wait_for(reader.readexactly(8 + wire.MASTER_RECORD_SIZE), HANG_LIMIT)
        assert data[:8] == bytes.fromhex("2C9EB4F2 5C000000")
        return data[8:]

    async def expect(self, *kinds: int) -> None:
        """Takes these requests, and any scans before them, which it does not answer."""
        for kind in kinds:
            received = await self.receive()
            while received == wire.SCAN_REQUEST != kind:
                received = await self.receive()
            assert received == kind

    def send(self, kind: int, owner: Address = wire.NO_ADDRESS, text: bytes = b"") -> None:
        self.send_bytes(wire.frame(wire.master_record(kind, owner, text, b"fake", 2, 7)))

    def send_bytes(self, data: bytes) -> None:
        self._streams[-1][1].write(data)

    async def is_closed_by_master(self, number: int = -1) -> bool:
        """Waits for the end of a connection."""
        try:
            while await asyncio.wait_for(self._streams[number][0].read(1000), HANG_LIMIT):
                pass
        except ConnectionResetError:
            pass
        return True

    def drop(self) -> None:
        """Closes the connection without a word."""
        self._streams[-1][1].transport.abort()
