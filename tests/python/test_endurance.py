"""Many leases in a row leave nothing behind."""

import asyncio
import threading

import pytest
from helpers import MakeNode, free, name_of, open_files
from support.limits import HANG_LIMIT
from support.node import Node

from quelta import Master

NODES = 4
LEASES_OF_A_NODE = 25


async def hold_often(master: Master, node: Node) -> None:
    for _ in range(LEASES_OF_A_NODE):
        async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
            assert lease.reason is None


@pytest.mark.slow
async def test_a_hundred_leases_leave_no_task_socket_thread_or_slave(make_node: MakeNode) -> None:
    nodes = [make_node() for _ in range(NODES)]
    files, tasks = open_files(), asyncio.all_tasks()
    threads = set(threading.enumerate())
    async with Master(text="td") as master:
        names = [name_of(node) for node in nodes]
        await master.scan(names, HANG_LIMIT)
        files_inside = open_files()
        await asyncio.gather(*(hold_often(master, node) for node in nodes))
        assert asyncio.all_tasks() == tasks
        assert open_files() == files_inside
        assert await master.scan(names, HANG_LIMIT) == [free(node) for node in nodes]
        for node in nodes:
            node.assert_no_slave()
    assert open_files() == files
    assert asyncio.all_tasks() == tasks
    assert set(threading.enumerate()) == threads
    for node in nodes:
        lines = node.output.lines()
        assert sum("standin: sending SLAVE_INFO" in line for line in lines) == LEASES_OF_A_NODE + 1
