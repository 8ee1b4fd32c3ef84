"""The master: announces itself to nodes, scans them and holds them."""

from __future__ import annotations

import asyncio
import ipaddress
from dataclasses import replace
from types import TracebackType
from typing import Iterable, Self

from ._holding import Limits
from ._hub import Hub
from ._link import Link
from ._scan import Scan
from .errors import AddressError, MasterClosedError, RecordError
from .events import EventStream
from .lease import Hold
from .nodes import node_list
from .records import TEXT_SIZE, Address
from .status import NodeStatus


class Master:
    """A render master. Use it with `async with`, on one event loop.

    It announces itself to nodes by beacons; their daemons connect to it. Nothing happens before
    `async with`. At the end of the block every node that is still held is given back.
    """

    def __init__(
        self,
        address: str | None = None,
        port: int = 0,
        text: str = "",
        *,
        port_step: int = 1,
    ) -> None:
        """
        address: the IPv4 address that nodes connect to. By default this machine's address on the
            route to each node.
        port: the TCP port that nodes connect to; 0 for any free one. Several nodes on one machine
            cannot be told apart by their address, so the second one of a machine connects to
            `port + port_step`, and so on.
        text: what nodes show as the owner's text, up to 32 bytes in UTF-8.
        """
        if address is not None:
            _check_address(address)
        if not 0 <= port <= 65535 or port_step < 1:
            raise AddressError(f"{port} is not a port, or {port_step} no distance between ports")
        if len(text.encode()) > TEXT_SIZE or "\0" in text:
            raise RecordError(f"the text {text!r} is not up to {TEXT_SIZE} bytes without NULs")
        self._settings = (address, port, port_step, text.encode())
        self._hub: Hub | None = None

    async def __aenter__(self) -> Self:
        if self._hub:
            raise MasterClosedError("a master can be entered once")
        self._hub = Hub(*self._settings)
        return self

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        await self._open_hub().close()

    async def scan(
        self,
        nodes: str | Iterable[str] = (),
        timeout: float = 5.0,
        *,
        broadcast: str | None = None,
    ) -> list[NodeStatus]:
        """Returns the state of the nodes, in their order.

        Returns as soon as all have answered; `timeout` is the limit in seconds. A broadcast
        address, as in "10.0.0.255:5130", adds all nodes that answer it; the scan then lasts for
        the whole time.
        """
        hub = self._open_hub()
        deadline = asyncio.get_running_loop().time() + timeout
        names = node_list(nodes)
        found = await asyncio.gather(
            *(hub.find(name, timeout) for name in names), return_exceptions=True
        )
        links = [_checked(link) for link in found]
        with Scan(hub) as scan:
            for link in links:
                scan.add(link)
            reached = await scan.broadcast(broadcast, deadline) if broadcast else []
            await scan.wait(deadline)
            others = [link for link in reached if link not in links and scan.has_answered(link)]
            return [
                *(replace(scan.status(link), node=name) for name, link in zip(names, links)),
                *(scan.status(link) for link in others),
            ]

    def hold(
        self,
        node: str,
        *,
        timeout: float = 30.0,
        steal: bool = False,
        stop_timeout: float = 20.0,
        reconnect_timeout: float = 5.0,
        silence_timeout: float = 20.0,
        assume_running_after: float = 11.0,
    ) -> Hold:
        """Starts the slave of a node for `async with`, and stops it at the end of the block.

        All times are in seconds.
        timeout: until the slave runs. A daemon answers nobody for up to 12 s while it stops a
            slave for somebody else.
        steal: take the node over if it belongs to another master.
        stop_timeout: until the node has confirmed that the slave is stopped.
        reconnect_timeout: how long a lost connection may stay away before the lease is lost.
        silence_timeout: how long a connected node may say nothing before the lease is lost.
        assume_running_after: a node that reports a healthy slave for so long is taken to run it,
            because the notification of that may be lost. A slave that does not report to its
            daemon fails after 10 s.
        """
        limits = Limits(
            timeout,
            stop_timeout,
            reconnect_timeout,
            silence_timeout,
            assume_running_after,
        )
        return Hold(self._open_hub(), node, limits, steal=steal)

    def events(
        self, nodes: str | Iterable[str] = (), *, timeout: float | None = None
    ) -> EventStream:
        """Returns the events of all nodes that this master knows, from now on, for `async for`.

        `nodes` adds nodes. As long as the iterator exists, all nodes are scanned every second. It
        ends when the master is closed, or when no event has come for `timeout` seconds.
        """
        hub = self._open_hub()
        stream = EventStream(hub, node_list(nodes), timeout)
        hub.streams.add(stream)
        return stream

    async def address_for(self, node: str, timeout: float = 5.0) -> Address:
        """Returns the address by which the node knows this master."""
        return (await self._open_hub().find(node, timeout)).machine.self_address

    def _open_hub(self) -> Hub:
        if not self._hub:
            raise MasterClosedError("the master is not open: use it with `async with`")
        return self._hub


def _checked(link: Link | BaseException) -> Link:
    if isinstance(link, BaseException):
        raise link
    return link


def _check_address(address: str) -> None:
    try:
        ip = ipaddress.IPv4Address(address)
    except ValueError:
        raise AddressError(f'"{address}" is not an IPv4 address') from None
    if ip.is_unspecified:
        raise AddressError(f"nodes cannot connect to {address}")
