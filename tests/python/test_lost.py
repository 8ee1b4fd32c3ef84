"""How a lease ends before its block does, and what it survives."""

import asyncio
import os
import signal
import time

import pytest
from helpers import MakeNode, MakeRawMaster, address_of, free, name_of, owned, receive_until
from support import wire
from support.limits import HANG_LIMIT
from support.node import Node
from support.output import daemon_line
from support.scenario import scenario

from quelta import EventKind, LostReason, Master, NodeState
from quelta.lease import Lease


async def reason_of(lease: Lease) -> LostReason:
    return await asyncio.wait_for(lease.lost, HANG_LIMIT)


async def test_a_crashed_slave_is_failed_and_given_back_at_once(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        node.kill_slave()
        assert await reason_of(lease) is LostReason.FAILED
        while (await master.scan(name_of(node), HANG_LIMIT))[0].state is not NodeState.FREE:
            pass
    assert lease.reason is LostReason.FAILED


async def test_a_stolen_node_is_stolen(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    thief = make_raw_master(b"thief").join(node)
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        thief.request(wire.STEAL_REQUEST)
        assert await reason_of(lease) is LostReason.STOLEN
        assert lease.status == owned(node, address_of(thief), "thief")
    receive_until(thief, wire.SLAVE_RUNNING)
    assert len(node.slave_processes()) == 1


async def test_a_slave_stopped_in_this_masters_name_is_stopped(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    other = make_raw_master().join(node)
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        ours = lease.master_address
        other.request(wire.STOP_REQUEST, address=(ours.ip, ours.port))
        assert await reason_of(lease) is LostReason.STOPPED


async def test_a_killed_daemon_is_disconnected(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT, reconnect_timeout=1) as lease:
        node.process.kill()
        assert await reason_of(lease) is LostReason.DISCONNECTED
    node.wait_exit()


async def test_a_node_that_comes_back_can_be_held_again(node: Node, master: Master) -> None:
    async with master.hold(
        name_of(node), timeout=HANG_LIMIT, reconnect_timeout=HANG_LIMIT
    ) as lease:
        node.process.kill()
        node.wait_exit()
        node.serve()
        assert await reason_of(lease) is LostReason.DISCONNECTED
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        assert lease.status == owned(node, lease.master_address)


def drop_connections(master: Master) -> None:
    """Closes this end of every connection, as a broken network does."""
    assert master._hub
    for link in master._hub._registry.links:
        assert link.connection
        link.connection.abort()


async def test_a_dropped_connection_is_survived(node: Node, master: Master) -> None:
    events = master.events()
    async with master.hold(
        name_of(node), timeout=HANG_LIMIT, reconnect_timeout=HANG_LIMIT
    ) as lease:
        drop_connections(master)
        back = [EventKind.DISCONNECTED, EventKind.FOUND]
        async for event in events:
            if back and event.kind is back[0]:
                del back[0]
            if not back:
                break
        assert lease.reason is None
        assert lease.status == owned(node, lease.master_address)
    assert node.output.count(daemon_line(f"starting slave for master {lease.master_address}")) == 1


@pytest.mark.slow
async def test_a_blocked_event_loop_does_not_end_a_lease(node: Node, master: Master) -> None:
    async with master.hold(
        name_of(node), timeout=HANG_LIMIT, silence_timeout=3, reconnect_timeout=3
    ) as lease:
        time.sleep(5)
        await asyncio.sleep(1)
        drop_connections(master)
        await asyncio.sleep(0)
        time.sleep(5)
        await asyncio.sleep(1)
        assert lease.reason is None
        assert lease.status == owned(node, lease.master_address)


async def test_a_connection_dropped_at_the_end_is_survived(
    make_node: MakeNode, master: Master
) -> None:
    node = make_node(plays=scenario(settings="on-stop exit-after 1500"))
    async with master.hold(
        name_of(node), timeout=HANG_LIMIT, reconnect_timeout=HANG_LIMIT, stop_timeout=HANG_LIMIT
    ):

        async def drop() -> None:
            await asyncio.to_thread(node.slave_report, "stopping in 1500 ms")
            drop_connections(master)

        dropping = asyncio.create_task(drop())
    await dropping
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


async def test_without_a_listener_the_node_frees_itself(node: Node, master: Master) -> None:
    """A daemon tries once to connect again, and then stops the slave of an unreachable owner."""
    async with master.hold(
        name_of(node), timeout=HANG_LIMIT, reconnect_timeout=HANG_LIMIT
    ) as lease:
        assert master._hub
        (listener,) = master._hub._registry._listeners.values()
        port = listener.port
        listener.close()
        await listener.wait_closed()
        await asyncio.to_thread(node.wait_no_slave)
        assert lease.reason is None
        await listener.open(port)
        assert await reason_of(lease) is LostReason.DISCONNECTED
        assert lease.status == free(node)


async def test_a_node_that_hangs_is_disconnected_and_given_back_later(
    node: Node, master: Master
) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT, silence_timeout=2) as lease:
        os.kill(node.process.pid, signal.SIGSTOP)
        try:
            assert await reason_of(lease) is LostReason.DISCONNECTED
        finally:
            os.kill(node.process.pid, signal.SIGCONT)
    await asyncio.to_thread(node.wait_no_slave)
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


async def test_many_tasks_may_await_the_loss(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        with pytest.raises(TimeoutError):
            await asyncio.wait_for(lease.lost, 0.01)
        waiting = [asyncio.ensure_future(reason_of(lease)) for _ in range(3)]
        waiting[0].cancel()
        node.kill_slave()
        assert await asyncio.gather(*waiting[1:]) == [LostReason.FAILED] * 2
