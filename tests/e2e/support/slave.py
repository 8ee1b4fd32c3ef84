"""The slave's end of the monitor connection as a plain socket, for tests that choose every byte."""

import socket

from . import wire
from .limits import HANG_LIMIT

STOP_MESSAGE = bytes.fromhex("2c9eb4f2 14000000" "0d72ce7f 01000000 03000000 00000000 00000000")


class SlaveConnection:
    """Connects to the daemon's monitor in place of a slave process that does not."""

    def __init__(self, monitor_port: int, ip: str = "127.0.0.1") -> None:
        self._socket = socket.create_connection((ip, monitor_port), HANG_LIMIT)
        self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def send_bytes(self, data: bytes) -> None:
        self._socket.sendall(data)

    def send(self, payload: bytes) -> None:
        self.send_bytes(wire.frame(payload))

    def report(self, kind: int, gpus: int = 0, slave_version: int = 0) -> None:
        self.send(wire.slave_record(kind, gpus, slave_version))

    def read(self, size: int) -> bytes:
        data = b""
        while len(data) < size:
            piece = self._socket.recv(size - len(data))
            if not piece:
                raise EOFError(f"the daemon closed the slave's connection after {data.hex()!r}")
            data += piece
        return data

    def expect_stop(self) -> None:
        assert self.read(len(STOP_MESSAGE)) == STOP_MESSAGE

    def is_closed_by_daemon(self) -> bool:
        """Waits for the daemon to close the connection; no data may precede it."""
        try:
            return self._socket.recv(1) == b""
        except ConnectionResetError:
            return True

    def fileno(self) -> int:
        return self._socket.fileno()

    def close(self) -> None:
        self._socket.close()
