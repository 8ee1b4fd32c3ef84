"""What is behind a master: its beacons, what its connections bring, and the clock for both.

Everything runs on the event loop's thread. Time advances by timer callbacks rather than by a task,
so that a program that cancels all its tasks still gives its nodes back.
"""

from __future__ import annotations

import asyncio
import ipaddress
import logging
import weakref
from datetime import datetime, timezone

from . import _network
from ._link import Link
from ._network import Connection
from ._registry import Broadcast, Registry
from .errors import (
    MasterClosedError,
    MasterUnreachableError,
    NoAnswerError,
    QueltaError,
    RecordError,
)
from .events import EventStream
from .records import Address, MessageType, Record, encode, frame
from .status import Event

TICK = 0.05  # seconds
BEACON_INTERVAL = 0.5
LATE = 0.5

_log = logging.getLogger(__name__)


class Hub:
    """One open master."""

    def __init__(self, address: str | None, port: int, port_step: int, text: bytes) -> None:
        self.streams: weakref.WeakSet[EventStream] = weakref.WeakSet()
        self._text = text
        self._registry = Registry(address, port, port_step, self)
        self._link_of_connection: dict[Connection, Link] = {}
        self._broadcast: Broadcast | None = None
        self._strangers: set[str] = set()
        self._closed = False
        self._beacons = _network.beacon_socket()
        self._loop = asyncio.get_running_loop()
        self._stood_still = 0.0
        self._tick_is_due = self._loop.time() + TICK
        self._ticker = self._loop.call_at(self._tick_is_due, self._tick)
        self._beacons_at = self.now()

    def now(self) -> float:
        """Returns the time for which the event loop has been running.

        A program that blocks its event loop does not see what nodes say in the meantime, so that
        this time counts for no limit.
        """
        return self._loop.time() - self._stood_still

    def check_open(self) -> None:
        if self._closed:
            raise MasterClosedError("the master is closed")

    async def find(self, node: str, timeout: float) -> Link:
        self.check_open()
        link = await self._registry.find(node, timeout)
        self.check_open()
        return link

    async def close(self) -> None:
        """Gives every node back, then closes every socket. The listeners stay open until the end:
        a daemon that cannot reach its owner stops the slave. Cancellation takes effect then."""
        self._closed = True
        cancelled: asyncio.CancelledError | None = None
        for link in self._registry.links:
            if link.machine.holding:
                link.machine.holding.release(self.now())
                self.pump(link)
        for link in self._registry.links:
            try:
                await link.until_in_any_case(link.has_no_lease)
            except asyncio.CancelledError as request:
                cancelled = request
        for stream in list(self.streams):
            stream.end()
        self.streams.clear()
        self._ticker.cancel()
        self._beacons.close()
        await self._registry.close()
        if cancelled:
            raise cancelled

    async def begin_broadcast(self, address: str) -> Broadcast:
        """Takes daemons that connect from now on, and that nobody has named, for nodes."""
        broadcast = await self._registry.broadcast(address)
        self.check_open()
        if self._broadcast:
            raise QueltaError("a scan by broadcast is running already", address)
        self._broadcast = broadcast
        self._send_broadcast(broadcast)
        return broadcast

    def end_broadcast(self) -> None:
        self._broadcast = None

    def links_of(self, broadcast: Broadcast) -> list[Link]:
        """Returns the nodes that the broadcast may have reached, ordered by their addresses."""
        links = [
            link
            for link in self._registry.links
            if link.listener is broadcast.listener and link.port == broadcast.port
        ]
        return sorted(links, key=lambda link: ipaddress.IPv4Address(link.ip))

    def use(self, link: Link) -> None:
        """Asks for the node's state; a node that is not connected gets a beacon."""
        link.machine.scan(self.now())
        self._send_beacon(link)
        self.pump(link)

    def pump(self, link: Link) -> None:
        """Carries out what the node's machine has decided."""
        requests, link.machine.requests = link.machine.requests, []
        for kind in requests:
            # A request without a connection needs no handling: the machine knows of the loss.
            if link.connection:
                link.connection.send(frame(self._record(kind, link.machine.self_address)))
        events, link.machine.events = link.machine.events, []
        for event in events:
            _log.debug("%s %s", link.name, event.value)
            for stream in list(self.streams):
                stream.push(Event(datetime.now(timezone.utc), event, link.machine.status()))
        link.wake()

    async def no_connection_error(self, link: Link, limit: str) -> NoAnswerError:
        """Returns the error for a node that has not connected, with the likely reason."""
        where = f"it has not connected to {link.machine.self_address} within {limit}"
        if link.beacon_error:
            return NoAnswerError(
                f"{where}: beacons cannot be sent to it: {link.beacon_error.strerror}",
                link.name,
            )
        beacon = self._record(MessageType.SCAN_REQUEST, link.machine.self_address)
        if await _network.is_refused(link.ip, link.port, beacon):
            return NoAnswerError(f"{where}: no daemon receives beacons on that port", link.name)
        hints = ["make sure that the node runs and can reach this address and port (firewalls)"]
        if not _network.is_own_address(link.listener.ip):
            hints.insert(0, f"{link.listener.ip} is no address of this machine")
        if self._strangers:
            strangers = ", ".join(sorted(self._strangers))
            hints.append(f"if it has connected from {strangers}, name it by that address")
        return MasterUnreachableError(f"{where}: {'; '.join(hints)}", link.name)

    # What the listeners' connections report.

    def connection_made(self, connection: Connection) -> None:
        link = self._registry.link_of(connection, self._broadcast)
        if not link:
            if connection.peer_ip not in self._strangers:
                self._strangers.add(connection.peer_ip)
                _log.warning(
                    "ignoring a connection from %s, which is no node",
                    connection.peer_ip,
                )
            return
        # A daemon that connects again has dropped its earlier connection, even if this end has not
        # noticed yet.
        if link.connection:
            del self._link_of_connection[link.connection]
            link.connection.abort()
        link.connection = connection
        self._link_of_connection[connection] = link
        link.machine.connect(self.now())
        self.pump(link)

    def connection_lost(self, connection: Connection) -> None:
        link = self._link_of_connection.pop(connection, None)
        if link:
            link.connection = None
            link.machine.disconnect(self.now())
            self.pump(link)

    def record_received(self, connection: Connection, record: Record | RecordError) -> None:
        link = self._link_of_connection.get(connection)
        if not link:
            return
        if isinstance(record, RecordError):
            _log.warning("%s: %s", link.name, record)
            link.machine.receive_junk()
        else:
            link.machine.receive(record, self.now())
        self.pump(link)

    def _tick(self) -> None:
        late = self._loop.time() - self._tick_is_due
        if late >= LATE:
            self._stood_still += late
        self._tick_is_due = self._loop.time() + TICK
        self._ticker = self._loop.call_at(self._tick_is_due, self._tick)
        beacons_are_due = self.now() - self._beacons_at >= BEACON_INTERVAL
        if beacons_are_due:
            self._beacons_at = self.now()
            if self._broadcast:
                self._send_broadcast(self._broadcast)
        watched = bool(self.streams)
        for link in self._registry.links:
            if not (watched or link.is_in_use):
                continue
            link.machine.tick(self.now(), watched=watched)
            if beacons_are_due:
                self._send_beacon(link)
            if link.machine.requests or link.machine.events:
                self.pump(link)

    def _send_beacon(self, link: Link) -> None:
        link.beacon_error = self._send(link.ip, link.port, link.machine.self_address)

    def _send_broadcast(self, broadcast: Broadcast) -> None:
        listener = broadcast.listener
        self._send(broadcast.ip, broadcast.port, Address(listener.ip, listener.port))

    def _send(self, ip: str, port: int, announced: Address) -> OSError | None:
        """Sends a beacon. A failure is not final: the network may come back."""
        try:
            self._beacons.sendto(self._record(MessageType.SCAN_REQUEST, announced), (ip, port))
        except OSError as error:
            return error
        return None

    def _record(self, kind: MessageType, announced: Address) -> bytes:
        return encode(Record(kind, announced, self._text))
