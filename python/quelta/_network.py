"""Sockets: the listeners that daemons connect to, and where addresses come from.

Everything runs on the event loop's thread.
"""

from __future__ import annotations

import asyncio
import ipaddress
import os
import socket
from typing import Protocol

from .errors import RecordError
from .records import Record, RecordReader

BACKLOG = 1024
PROBE_TIME = 0.3  # seconds


class ConnectionUser(Protocol):
    """Is told what happens on the connections of a listener."""

    def connection_made(self, connection: Connection) -> None:
        ...

    def connection_lost(self, connection: Connection) -> None:
        ...

    def record_received(self, connection: Connection, record: Record | RecordError) -> None:
        ...


class Connection(asyncio.Protocol):
    """The connection of one daemon to a listener."""

    def __init__(self, listener: Listener) -> None:
        self.listener = listener
        self.peer_ip = ""
        self._reader = RecordReader()
        self._transport: asyncio.Transport | None = None

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        assert isinstance(transport, asyncio.Transport)
        self._transport = transport
        self.peer_ip = transport.get_extra_info("peername")[0]
        _detect_loss(transport.get_extra_info("socket"))
        self.listener.connections.add(self)
        self.listener.user.connection_made(self)

    def connection_lost(self, exc: Exception | None) -> None:
        self.listener.connections.discard(self)
        self.listener.user.connection_lost(self)

    def data_received(self, data: bytes) -> None:
        for record in self._reader.feed(data):
            self.listener.user.record_received(self, record)
        if self._reader.is_broken:
            self.abort()  # the daemon connects again

    def send(self, data: bytes) -> None:
        if self._transport:
            self._transport.write(data)

    def abort(self) -> None:
        if self._transport:
            self._transport.abort()


class Listener:
    """One port of one announced address."""

    def __init__(self, ip: str, user: ConnectionUser) -> None:
        self.ip = ip
        self.port = 0
        self.user = user
        self.connections: set[Connection] = set()
        self._server: asyncio.Server | None = None

    async def open(self, port: int) -> None:
        """Listens on the announced address alone, or on all if that one belongs to a router.

        Raises OSError. The listener can be closed even if this is cancelled.
        """
        listening = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        try:
            if os.name == "posix":  # elsewhere this option would allow to share the port
                listening.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            listening.bind((self.ip if is_own_address(self.ip) else "0.0.0.0", port))
            self.port = listening.getsockname()[1]
            self._server = await asyncio.get_running_loop().create_server(
                lambda: Connection(self),
                sock=listening,
                backlog=BACKLOG,
                start_serving=False,
            )
        except BaseException:
            listening.close()
            raise
        await self._server.start_serving()

    def close(self) -> None:
        if self._server:
            self._server.close()
        for connection in self.connections:
            connection.abort()

    async def wait_closed(self) -> None:
        """Returns when every connection's socket is closed."""
        while self.connections:
            await asyncio.sleep(0)


def _detect_loss(connection: socket.socket) -> None:
    """Finds out when a peer's machine has vanished without closing its connection."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
    for name, value in (("TCP_KEEPIDLE", 10), ("TCP_KEEPINTVL", 3), ("TCP_KEEPCNT", 3)):
        if hasattr(socket, name):
            connection.setsockopt(socket.IPPROTO_TCP, getattr(socket, name), value)


def is_address(host: str) -> bool:
    try:
        ipaddress.IPv4Address(host)
    except ValueError:
        return False
    return True


def is_loopback(ip: str) -> bool:
    return ipaddress.IPv4Address(ip).is_loopback


def is_own_address(ip: str) -> bool:
    """Returns whether programs on this machine can listen on the address."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            probe.bind((ip, 0))
        except OSError:
            return False
    return True


def own_address_towards(ip: str) -> str:
    """Returns this machine's address on the route to `ip`. Raises OSError without a route."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        probe.connect((ip, 9))  # only selects a route
        address: tuple[str, int] = probe.getsockname()
        return address[0]


async def look_up(host: str) -> str:
    """Returns the IPv4 address of a host. Raises OSError."""
    if is_address(host):
        return host
    loop = asyncio.get_running_loop()
    found = await loop.getaddrinfo(host, None, family=socket.AF_INET, type=socket.SOCK_DGRAM)
    return str(found[0][4][0])


def beacon_socket() -> socket.socket:
    beacons = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    beacons.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    beacons.setblocking(False)
    return beacons


class _Probe(asyncio.DatagramProtocol):
    def __init__(self) -> None:
        self.refused: asyncio.Future[None] = asyncio.get_running_loop().create_future()

    def error_received(self, exc: Exception) -> None:
        if isinstance(exc, ConnectionError) and not self.refused.done():
            self.refused.set_result(None)


async def is_refused(ip: str, port: int, beacon: bytes) -> bool:
    """Sends a beacon and returns whether the machine answers that no program receives it."""
    loop = asyncio.get_running_loop()
    try:
        transport, probe = await loop.create_datagram_endpoint(_Probe, remote_addr=(ip, port))
    except OSError:
        return False
    try:
        transport.sendto(beacon)
        done, _ = await asyncio.wait({probe.refused}, timeout=PROBE_TIME)
        return bool(done)
    finally:
        transport.close()
