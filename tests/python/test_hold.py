"""Master.hold against real daemons: how a node is acquired, and how it is given back."""

import asyncio
import time

import pytest
from helpers import MakeNode, MakeRawMaster, address_of, free, name_of, owned, receive_until, take
from support import wire
from support.limits import HANG_LIMIT
from support.node import Node
from support.output import daemon_line
from support.ports import refusing_socket
from support.scenario import scenario

from quelta import (
    LostReason,
    Master,
    MasterClosedError,
    MasterUnreachableError,
    NoAnswerError,
    NodeBusyError,
    NodeState,
    QueltaError,
    SlaveFailedError,
)


async def assert_free(master: Master, node: Node) -> None:
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]
    await asyncio.to_thread(node.assert_no_slave)


async def test_a_slave_runs_inside_the_block_only(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        assert lease.confirmed
        assert lease.reason is None
        assert lease.node == name_of(node)
        assert lease.status == owned(node, lease.master_address)
        ip, port = lease.master_address.ip, lease.master_address.port
        node.output.wait_sequence(
            ["standin: argument 1: [--net-master-address]", f"standin: argument 2: [{ip}]"]
        )
        node.output.wait(f"standin: argument 4: [{port}]")
        assert len(node.slave_processes()) == 1
    assert lease.reason is LostReason.RELEASED
    assert await asyncio.wait_for(lease.lost, HANG_LIMIT) is LostReason.RELEASED
    await assert_free(master, node)


async def test_an_exception_gives_the_node_back(node: Node, master: Master) -> None:
    with pytest.raises(ZeroDivisionError):
        async with master.hold(name_of(node), timeout=HANG_LIMIT):
            raise ZeroDivisionError
    await assert_free(master, node)


async def test_another_masters_node_is_busy(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    other = make_raw_master(b"artist 7")
    take(other, node)
    with pytest.raises(NodeBusyError) as caught:
        async with master.hold(name_of(node), timeout=HANG_LIMIT):
            pass
    assert str(caught.value) == f'{name_of(node)}: it belongs to {other} ("artist 7")'
    assert caught.value.node == name_of(node)
    assert (caught.value.owner, caught.value.owner_text) == (address_of(other), "artist 7")
    assert len(node.slave_processes()) == 1


async def test_a_node_of_this_master_is_busy(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        with pytest.raises(NodeBusyError, match="another lease of this master holds it") as caught:
            async with master.hold(f"localhost:{node.port}"):
                pass
        assert caught.value.owner == lease.master_address
        assert lease.reason is None
    await assert_free(master, node)


@pytest.mark.slow
async def test_stealing_waits_for_the_other_slaves_end(
    make_node: MakeNode, master: Master, make_raw_master: MakeRawMaster
) -> None:
    node = make_node(plays=scenario(settings="on-stop exit-after 6000"))
    other = make_raw_master()
    take(other, node)
    async with master.hold(name_of(node), timeout=HANG_LIMIT, steal=True) as lease:
        assert lease.status.owner == lease.master_address
        lost = receive_until(other, wire.DAEMON_STATUS)
        assert lost.owner == (lease.master_address.ip, lease.master_address.port)
        assert len(node.slave_processes()) == 1
        node.play(scenario())


@pytest.mark.slow
async def test_a_slave_that_ignores_its_stop_is_waited_for(
    make_node: MakeNode, master: Master
) -> None:
    node = make_node(plays=scenario(settings="on-stop ignore"))
    async with master.hold(name_of(node), timeout=HANG_LIMIT):
        released_at = time.monotonic()
    assert time.monotonic() - released_at > 12
    await assert_free(master, node)


async def test_stealing_a_free_node_just_starts_it(node: Node, master: Master) -> None:
    async with master.hold(name_of(node), timeout=HANG_LIMIT, steal=True) as lease:
        assert lease.status == owned(node, lease.master_address)
    assert not [line for line in node.own_lines() if "received steal request" in line]


async def test_a_slave_left_behind_under_this_address_is_replaced(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    name = name_of(node)
    ours = await master.address_for(name)
    other = make_raw_master().join(node)
    other.request(wire.START_REQUEST, address=(ours.ip, ours.port))
    receive_until(other, wire.SLAVE_RUNNING)
    left_behind = node.slave_process()
    async with master.hold(name, timeout=HANG_LIMIT):
        assert node.slave_process() != left_behind
        assert len(node.slave_processes()) == 1
    await assert_free(master, node)


async def test_a_missed_notification_is_made_up_for_by_scans(
    make_node: MakeNode, master: Master
) -> None:
    """A slave that beats before it has been seen initialised is never notified."""
    node = make_node(plays=scenario("connect\nbeat 500"))
    async with master.hold(name_of(node), timeout=HANG_LIMIT, assume_running_after=1.5) as lease:
        assert not lease.confirmed
        assert lease.status.state is NodeState.OWNED
        assert len(node.slave_processes()) == 1
    await assert_free(master, node)


async def test_a_failed_launch_is_found_by_scans(node: Node, master: Master) -> None:
    await master.scan(name_of(node), HANG_LIMIT)
    node.slave.unlink()
    with pytest.raises(SlaveFailedError) as caught:
        async with master.hold(name_of(node), timeout=HANG_LIMIT):
            pass
    assert str(caught.value) == f"{name_of(node)}: its slave failed before it was running"
    await assert_free(master, node)


async def test_a_slave_that_crashes_at_once_is_a_failure(
    make_node: MakeNode, master: Master
) -> None:
    node = make_node(plays=scenario("connect\nauthenticating\nwait 300\ncrash"))
    with pytest.raises(SlaveFailedError):
        async with master.hold(name_of(node), timeout=HANG_LIMIT):
            pass
    await assert_free(master, node)


async def test_a_slave_that_is_not_running_in_time_is_given_back(
    make_node: MakeNode, master: Master
) -> None:
    node = make_node(plays=scenario("connect\nauthenticating\nhang"))
    await master.scan(name_of(node), HANG_LIMIT)
    with pytest.raises(NoAnswerError) as caught:
        async with master.hold(name_of(node), timeout=4):
            pass
    assert str(caught.value) == f"{name_of(node)}: its slave was not running within 4 s"
    await assert_free(master, node)


async def test_a_node_without_a_daemon_gives_no_answer(master: Master) -> None:
    with refusing_socket() as nowhere:
        name = f"127.0.0.1:{nowhere.getsockname()[1]}"
        with pytest.raises(NoAnswerError) as caught:
            async with master.hold(name, timeout=0.5):
                pass
    assert str(caught.value) == (
        f"{name}: it has not connected to {await master.address_for(name)} within 0.5 s: "
        "no daemon receives beacons on that port"
    )
    assert not isinstance(caught.value, MasterUnreachableError)


async def test_closing_the_master_gives_everything_back(
    make_node: MakeNode, make_raw_master: MakeRawMaster
) -> None:
    node, starting = make_node(), make_node(plays=scenario("connect\nauthenticating\nhang"))
    async with Master(text="td") as master:
        held = await master.hold(name_of(node), timeout=HANG_LIMIT).__aenter__()

        async def hold() -> None:
            async with master.hold(name_of(starting), timeout=HANG_LIMIT):
                pass

        events = master.events()
        task = asyncio.create_task(hold())
        async for event in events:
            if event.kind.value == "starting":
                break
    assert held.reason is LostReason.RELEASED
    with pytest.raises(MasterClosedError):
        await task
    for each in (node, starting):
        each.wait_no_slave()
        each.output.wait_match(daemon_line(r"received stop request from master .*"))


async def test_a_hold_is_entered_once(node: Node, master: Master) -> None:
    hold = master.hold(name_of(node), timeout=HANG_LIMIT)
    async with hold:
        pass
    with pytest.raises(QueltaError, match="a hold can be entered once"):
        await hold.__aenter__()
