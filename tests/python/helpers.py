"""What many tests of the package share."""

from __future__ import annotations

import asyncio
import gc
import os
from collections.abc import Callable

from support import wire
from support.limits import HANG_LIMIT
from support.master import Master as RawMaster
from support.node import Node
from support.scenario import GPUS, SLAVE_VERSION

from quelta import Address, Master, NodeState, NodeStatus

MakeNode = Callable[..., Node]
MakeRawMaster = Callable[..., RawMaster]


def name_of(node: Node) -> str:
    return f"127.0.0.1:{node.port}"


def free(node: Node) -> NodeStatus:
    return NodeStatus(name_of(node), NodeState.FREE, node.alias, GPUS, SLAVE_VERSION)


def owned(
    node: Node, owner: Address, text: str = "td", state: NodeState = NodeState.OWNED
) -> NodeStatus:
    return NodeStatus(name_of(node), state, node.alias, GPUS, SLAVE_VERSION, owner, text)


def address_of(master: RawMaster) -> Address:
    return Address(*master.address)


async def found_by_broadcast(master: Master, address: str) -> list[NodeStatus]:
    """Repeats the scan until somebody answers: it always takes the whole of its time."""
    async with asyncio.timeout(HANG_LIMIT):
        while True:
            if found := await master.scan(broadcast=address, timeout=1):
                return found


def receive_until(master: RawMaster, kind: int) -> wire.Status:
    """Takes a raw master's messages up to the first one of this type."""
    while True:
        status = master.receive()
        if status.kind == kind:
            return status


def take(master: RawMaster, node: Node) -> None:
    """A raw master takes a free node and waits until the slave runs."""
    master.join(node)
    master.request(wire.START_REQUEST)
    receive_until(master, wire.SLAVE_RUNNING)


def open_files() -> list[str]:
    """Returns what this process has open; sockets are all alike here, so that they are counted."""
    gc.collect()
    found = []
    for entry in os.listdir("/proc/self/fd"):
        try:
            found.append(os.readlink(f"/proc/self/fd/{entry}").partition(":")[0])
        except FileNotFoundError:
            continue  # that of the list itself
    return sorted(found)
