"""The nodes and listeners of a master: which address a node is told, and who it is that connects.

A connection is matched to a node by the listener and by the address that it comes from. All
addresses of this machine are treated as one. The nodes of one machine use different listeners.
"""

from __future__ import annotations

import asyncio
from dataclasses import dataclass

from . import _network
from ._link import Link
from ._network import Connection, ConnectionUser, Listener
from .errors import AddressError, MasterClosedError, MasterUnreachableError
from .nodes import split_node

THIS_MACHINE = ""


@dataclass(frozen=True, slots=True)
class Broadcast:
    """Where beacons for unknown nodes go, and where those nodes connect to."""

    ip: str
    port: int
    listener: Listener


class Registry:
    """Grows only, until close(). The lock keeps two tasks from opening the same listener."""

    def __init__(
        self, address: str | None, port: int, port_step: int, user: ConnectionUser
    ) -> None:
        self._address = address
        self._port = port
        self._port_step = port_step
        self._user = user
        self._closed = False
        self._opening = asyncio.Lock()
        self._names: dict[str, Link] = {}
        self._links: dict[tuple[str, int], Link] = {}  # by machine and daemon port
        self._callers: dict[tuple[Listener, str], Link] = {}  # by listener and machine
        self._listeners: dict[tuple[str, int], Listener] = {}  # by announced address and number

    @property
    def links(self) -> list[Link]:
        return list(self._links.values())

    async def close(self) -> None:
        """Returns when every listener and connection is closed."""
        self._closed = True
        for listener in self._listeners.values():
            listener.close()
        for listener in self._listeners.values():
            await listener.wait_closed()

    async def find(self, name: str, timeout: float) -> Link:
        """Returns the link of a node. Looks the host up when the name is first used."""
        if link := self._names.get(name):
            return link
        host, port = split_node(name)
        ip = await _look_up(host, name, timeout)
        try:
            machine = _machine(ip)
        except OSError as error:  # for instance too many open files
            raise AddressError(f"no socket can be made: {error.strerror}", name) from error
        async with self._opening:
            link = self._links.get((machine, port))
            if not link:
                announced = self._announced_towards(ip, name)
                number = sum(
                    other.machine_ip == machine and other.listener.ip == announced
                    for other in self._links.values()
                )
                listener = await self._listener(announced, number, name)
                link = self._add(Link(name, ip, port, machine, listener))
        self._names[name] = link
        return link

    async def broadcast(self, name: str) -> Broadcast:
        """Prepares a broadcast. Its nodes connect to the first listener."""
        ip, port = split_node(name)
        if not _network.is_address(ip):
            raise AddressError("give IP:port, for example 10.0.0.255:5130", name)
        async with self._opening:
            listener = await self._listener(self._announced_towards(ip, name), 0, name)
        return Broadcast(ip, port, listener)

    def link_of(self, connection: Connection, broadcast: Broadcast | None) -> Link | None:
        """Returns the node that has connected. A broadcast's unknown nodes become known."""
        machine = _machine(connection.peer_ip)
        known = self._callers.get((connection.listener, machine))
        if known or not broadcast or broadcast.listener is not connection.listener:
            return known
        if (machine, broadcast.port) in self._links:
            return None  # it uses another listener
        name = f"{connection.peer_ip}:{broadcast.port}"
        return self._add(
            Link(name, connection.peer_ip, broadcast.port, machine, connection.listener)
        )

    def _add(self, link: Link) -> Link:
        self._links[link.machine_ip, link.port] = link
        self._callers[link.listener, link.machine_ip] = link
        self._names.setdefault(link.name, link)
        return link

    async def _listener(self, announced: str, number: int, name: str) -> Listener:
        listener = self._listeners.get((announced, number))
        if listener and listener.port:
            return listener
        if self._closed:
            raise MasterClosedError("the master is closed", name)
        port = self._port + number * self._port_step if self._port else 0
        listener = self._listeners[announced, number] = Listener(announced, self._user)
        try:
            if port > 65535:
                raise OSError(None, "there is no such port")
            await listener.open(port)
        except OSError as error:
            del self._listeners[announced, number]
            raise AddressError(
                f"cannot listen on {announced}:{port} for it: {error.strerror}", name
            ) from error
        return listener

    def _announced_towards(self, ip: str, name: str) -> str:
        try:
            announced = self._address or _network.own_address_towards(ip)
        except OSError as error:
            raise AddressError(
                f"no route to it ({error.strerror}); give this machine's address with address=",
                name,
            ) from error
        if _network.is_loopback(announced) and _machine(ip) != THIS_MACHINE:
            raise MasterUnreachableError(
                f"it cannot reach this master at {announced}, an address within this machine; "
                "give this machine's address in the network with address=",
                name,
            )
        return announced


def _machine(ip: str) -> str:
    """Maps all addresses of this machine to one: a daemon on it may connect from any of them."""
    return THIS_MACHINE if _network.is_own_address(ip) else ip


async def _look_up(host: str, name: str, timeout: float) -> str:
    try:
        async with asyncio.timeout(timeout):
            return await _network.look_up(host)
    except TimeoutError:
        raise AddressError(f"the look-up of its host has taken over {timeout:g} s", name) from None
    except OSError as error:
        raise AddressError(f"unknown host: {error.strerror}", name) from error
