"""A render master made of plain sockets that exchanges hand-written bytes with the daemon."""

from __future__ import annotations

import select
import socket
import struct
import time
from typing import Self

from . import wire
from .limits import HANG_LIMIT
from .node import Node

BEACON_INTERVAL = 0.2
SO_TIMESTAMPNS = 35  # Linux; missing from Python's socket module
TIMESPEC = struct.Struct("@ll")


class MasterConnection:
    """One connection that the daemon has opened to a master."""

    def __init__(self, connection: socket.socket, patience: float) -> None:
        self._socket = connection
        self._socket.settimeout(patience)
        self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def send_bytes(self, data: bytes) -> None:
        self._socket.sendall(data)

    def send(self, payload: bytes) -> None:
        self.send_bytes(wire.frame(payload))

    def receive(self) -> bytes:
        """Returns the payload of the next message."""
        header = self._read(8)
        magic, length = int.from_bytes(header[:4], "little"), int.from_bytes(header[4:], "little")
        assert magic == wire.FRAME_MAGIC, header.hex()
        assert length == wire.MASTER_RECORD_SIZE, header.hex()
        return self._read(length)

    def is_answered(self) -> bool:
        """Waits for an answer, which stays to be read, or for the end of the connection."""
        try:
            return bool(self._socket.recv(1, socket.MSG_PEEK))
        except ConnectionResetError:
            return False

    def stamp_arrivals(self) -> None:
        self._socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)

    def time_of_arrival(self) -> int | None:
        """Consumes the next byte; returns when the kernel received it, in nanoseconds, or None."""
        _, ancillary, _, _ = self._socket.recvmsg(1, socket.CMSG_SPACE(TIMESPEC.size))
        for _, kind, data in ancillary:
            if kind == SO_TIMESTAMPNS:
                seconds, nanoseconds = TIMESPEC.unpack(data)
                return int(seconds * 10**9 + nanoseconds)
        return None

    def skip(self, size: int) -> None:
        self._read(size)

    def _read(self, size: int) -> bytes:
        data = b""
        while len(data) < size:
            piece = self._socket.recv(size - len(data))
            if not piece:
                raise EOFError(f"the daemon closed the connection after {data.hex()!r}")
            data += piece
        return data

    def is_closed_by_daemon(self) -> bool:
        """Waits for the daemon to close the connection; any further data is an error."""
        try:
            late = self._socket.recv(1)
        except ConnectionResetError:
            return True
        assert not late, f"got {late!r} instead of the end of the connection"
        return True

    def close(self) -> None:
        self._socket.close()

    def fileno(self) -> int:
        return self._socket.fileno()

    def shut_sending(self) -> None:
        self._socket.shutdown(socket.SHUT_WR)


class Master:
    """A master with its own loopback address and descriptive text."""

    def __init__(
        self, ip: str, text: bytes, beacon_socket: socket.socket, patience: float = HANG_LIMIT
    ) -> None:
        self.text = text
        self._connection: MasterConnection | None = None
        self._beacons = beacon_socket
        self._patience = patience
        self._listen((ip, 0))
        self.address: wire.Address = self._listener.getsockname()

    @property
    def connection(self) -> MasterConnection:
        assert self._connection, f"the daemon has not connected to {self}"
        return self._connection

    def _listen(self, address: wire.Address) -> None:
        self._listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._listener.bind(address)
        self._listener.listen()

    def __str__(self) -> str:
        return "%s:%u" % self.address

    def beacon(self, node: Node, address: wire.Address | None = None) -> None:
        record = wire.master_record(wire.SCAN_REQUEST, address or self.address, self.text)
        self._beacons.sendto(record, ("127.0.0.1", node.port))

    def accept(self) -> MasterConnection:
        self._listener.settimeout(self._patience)
        self._connection = MasterConnection(self._listener.accept()[0], self._patience)
        return self._connection

    def join(self, node: Node) -> Self:
        """Sends beacons until the daemon has connected."""
        deadline = time.monotonic() + HANG_LIMIT
        while time.monotonic() < deadline:
            self.beacon(node)
            if select.select([self._listener], [], [], BEACON_INTERVAL)[0]:
                self.accept()
                return self
        raise AssertionError(f"the daemon on port {node.port} never connected to {self}")

    def record(
        self, kind: int, address: wire.Address | None = None, text: bytes | None = None
    ) -> bytes:
        return wire.master_record(
            kind, address or self.address, self.text if text is None else text
        )

    def request(
        self, kind: int, address: wire.Address | None = None, text: bytes | None = None
    ) -> None:
        self.connection.send(self.record(kind, address, text))

    def receive(self) -> wire.Status:
        return wire.read_status(self.connection.receive())

    def expect(self, *statuses: wire.Status) -> None:
        """Asserts that exactly these messages arrive next, in this order."""
        for expected in statuses:
            received = self.receive()
            assert received == expected, f"{self}: got {received}, expected {expected}"

    def expect_silence(self, status: wire.Status) -> None:
        """Asserts that nothing else was sent: the reply to a scan is the very next message."""
        self.request(wire.SCAN_REQUEST)
        self.expect(status)

    def vanish(self) -> None:
        """Closes the listener and the connection."""
        self._listener.close()
        self.connection.close()

    def return_to(self, node: Node) -> Self:
        """Listens again at the same address after `vanish`, and joins the node."""
        self._listen(self.address)
        return self.join(node)

    def close(self) -> None:
        self._listener.close()
        if self._connection:
            self._connection.close()
