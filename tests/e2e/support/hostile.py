"""Misbehaving peers."""

from __future__ import annotations

import socket
import time
from contextlib import contextmanager
from typing import Any, Callable, Iterable, Iterator

from . import wire
from .limits import HANG_LIMIT
from .master import Master
from .node import Node


def timed(action: Callable[..., object], *arguments: Any) -> float:
    """Returns how many seconds the action took."""
    begin = time.monotonic()
    action(*arguments)
    return time.monotonic() - begin


def flood(beacon_socket: socket.socket, node: Node, datagram: bytes, count: int) -> None:
    for _ in range(count):
        beacon_socket.sendto(datagram, ("127.0.0.1", node.port))


def announce(beacon_socket: socket.socket, node: Node, addresses: Iterable[wire.Address]) -> None:
    """Sends a beacon for each of these addresses."""
    for address in addresses:
        beacon_socket.sendto(
            wire.master_record(wire.SCAN_REQUEST, address), ("127.0.0.1", node.port)
        )


def loopback_addresses(count: int, port: int, first: str = "127.9.0.0") -> list[wire.Address]:
    """Returns `count` loopback addresses with this port, all higher than those of the masters."""
    begin = wire.ip_number(first)
    return [(wire.dotted(begin + number), port) for number in range(count)]


@contextmanager
def black_hole() -> Iterator[int]:
    """Yields a port whose backlog is full: connections are neither accepted nor refused."""
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as listener:
        listener.bind(("0.0.0.0", 0))
        listener.listen(0)
        address = ("127.0.0.1", listener.getsockname()[1])
        waiting: list[socket.socket] = []
        try:
            while len(waiting) < 16:
                visitor = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
                waiting.append(visitor)
                visitor.settimeout(0.5)  # on the loopback, a handshake ends within connect()
                try:
                    visitor.connect(address)
                except TimeoutError:
                    yield address[1]
                    return
            raise AssertionError("the queue of the listener was never full")
        finally:
            for visitor in waiting:
                visitor.close()


def scan_without_reading(master: Master) -> None:
    """Sends scans without reading the replies until the daemon disconnects."""
    scans = wire.frame(master.record(wire.SCAN_REQUEST)) * 100
    deadline = time.monotonic() + HANG_LIMIT
    while time.monotonic() < deadline:
        try:
            master.connection.send_bytes(scans)
        except (ConnectionResetError, BrokenPipeError):
            return
    raise AssertionError("the daemon never disconnected a master that does not read")
