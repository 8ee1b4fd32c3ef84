"""Master.scan against real daemons."""

import asyncio

import pytest
from helpers import (
    MakeNode,
    MakeRawMaster,
    address_of,
    found_by_broadcast,
    free,
    name_of,
    open_files,
    owned,
    take,
)
from support import wire
from support.limits import HANG_LIMIT
from support.node import Node
from support.ports import Ports, refusing_socket
from support.scenario import scenario

from quelta import (
    _network,
    AddressError,
    Master,
    MasterClosedError,
    NodeNameError,
    NodeState,
    NodeStatus,
    RecordError,
)


async def test_a_free_node_is_described(node: Node, master: Master) -> None:
    assert await master.scan([name_of(node)], HANG_LIMIT) == [free(node)]


async def test_an_owner_is_described(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    other = make_raw_master("caf\N{LATIN SMALL LETTER E WITH ACUTE}".encode())
    take(other, node)
    assert await master.scan(name_of(node), HANG_LIMIT) == [
        owned(node, address_of(other), "caf\N{LATIN SMALL LETTER E WITH ACUTE}")
    ]


async def test_nodes_of_one_machine_are_told_apart_and_stay_in_order(
    make_node: MakeNode, master: Master
) -> None:
    nodes = [make_node(alias=f"n{number}") for number in range(3)]
    for order in (nodes, nodes[::-1]):
        found = await master.scan(map(name_of, order), HANG_LIMIT)
        assert found == [free(node) for node in order]


async def test_a_node_without_a_daemon_gives_no_answer(node: Node, master: Master) -> None:
    await master.scan(name_of(node), HANG_LIMIT)
    with refusing_socket() as nowhere:
        name = f"127.0.0.1:{nowhere.getsockname()[1]}"
        assert await master.scan([name, name_of(node)], 2) == [
            NodeStatus(name, NodeState.NO_ANSWER),
            free(node),
        ]


async def test_a_node_that_stops_a_slave_is_silent(
    make_node: MakeNode, master: Master, make_raw_master: MakeRawMaster
) -> None:
    node = make_node(plays=scenario(settings="on-stop exit-after 5000"))
    other = make_raw_master()
    take(other, node)
    await master.scan(name_of(node), HANG_LIMIT)
    other.request(wire.STOP_REQUEST)
    await asyncio.to_thread(node.slave_report, "stopping in 5000 ms")
    assert await master.scan(name_of(node), 0.5) == [NodeStatus(name_of(node), NodeState.SILENT)]
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


async def test_a_host_name_is_looked_up_and_means_the_same_node(node: Node, master: Master) -> None:
    for host in ("127.0.0.1", "localhost"):
        name = f"{host}:{node.port}"
        found = await master.scan(name, HANG_LIMIT)
        assert [(status.node, status.state) for status in found] == [(name, NodeState.FREE)]
    assert await master.address_for(name_of(node)) == await master.address_for(name)


async def test_a_broadcast_finds_nodes(node: Node, master: Master) -> None:
    address = f"127.255.255.255:{node.port}"
    assert await found_by_broadcast(master, address) == [free(node)]
    assert await found_by_broadcast(master, address) == [free(node)]
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


async def test_a_broadcast_adds_to_the_named_nodes(node: Node, master: Master) -> None:
    name = f"localhost:{node.port}"
    found = await master.scan(name, 1, broadcast=f"127.0.0.1:{node.port}")
    assert [status.node for status in found] == [name]


async def test_a_broadcast_goes_to_an_address(master: Master) -> None:
    with pytest.raises(AddressError) as caught:
        await master.scan(broadcast="localhost:5130")
    assert str(caught.value) == "localhost:5130: give IP:port, for example 10.0.0.255:5130"


async def test_an_unanswered_broadcast_finds_nothing(master: Master, ports: Ports) -> None:
    assert await master.scan(broadcast=f"127.0.0.1:{ports.free_block()}", timeout=0.5) == []


async def test_ports_are_those_that_were_asked_for(make_node: MakeNode, ports: Ports) -> None:
    port = ports.free_block()
    first, second = make_node(), make_node()
    async with Master("127.0.0.1", port, port_step=2) as master:
        names = [name_of(first), name_of(second)]
        assert await master.scan(names, HANG_LIMIT) == [free(first), free(second)]
        found = [await master.address_for(name) for name in names]
        assert [str(address) for address in found] == [f"127.0.0.1:{port}", f"127.0.0.1:{port + 2}"]


async def test_a_port_in_use_is_an_error(node: Node) -> None:
    with refusing_socket() as holder:
        holder.listen()
        port = holder.getsockname()[1]
        async with Master("127.0.0.1", port) as master:
            with pytest.raises(AddressError) as caught:
                await master.scan(name_of(node))
    assert str(caught.value) == (
        f"{name_of(node)}: cannot listen on 127.0.0.1:{port} for it: Address already in use"
    )
    assert caught.value.node == name_of(node)


async def test_unknown_hosts_are_an_error(master: Master) -> None:
    with pytest.raises(AddressError, match="^no host of that name:5130: unknown host: "):
        await master.scan("no host of that name:5130")


async def test_nodes_without_a_port_are_an_error(master: Master) -> None:
    with pytest.raises(NodeNameError):
        await master.scan("render07")


async def test_a_closed_master_does_nothing(node: Node) -> None:
    with pytest.raises(MasterClosedError):
        await Master().scan(name_of(node))
    async with Master() as master:
        pass
    with pytest.raises(MasterClosedError):
        await master.scan(name_of(node))
    with pytest.raises(MasterClosedError):
        await master.__aenter__()


@pytest.mark.parametrize("address", ["", "render07", "10.0.0", "0.0.0.0", "::1"])
def test_a_master_needs_an_address_that_nodes_can_connect_to(address: str) -> None:
    with pytest.raises(AddressError):
        Master(address)


@pytest.mark.parametrize("text", ["x" * 33, "\N{EURO SIGN}" * 11, "a\0b"])
def test_a_masters_text_has_up_to_32_bytes(text: str) -> None:
    with pytest.raises(RecordError):
        Master(text=text)


async def test_a_scan_that_outlasts_its_master_leaves_no_listener(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    asked, closed = asyncio.Event(), asyncio.Event()

    async def look_up(host: str) -> str:
        asked.set()
        await closed.wait()
        return host

    monkeypatch.setattr(_network, "look_up", look_up)
    files = open_files()
    async with Master() as master:
        scanning = asyncio.create_task(master.scan("127.0.0.1:5130", HANG_LIMIT))
        await asked.wait()
    closed.set()
    with pytest.raises(MasterClosedError):
        await scanning
    assert open_files() == files


async def test_one_unknown_host_does_not_leave_the_others_being_looked_up(master: Master) -> None:
    before = asyncio.all_tasks()
    with pytest.raises(AddressError):
        await master.scan(["no host of that name:5130", "localhost:5130", "localhost:5131"])
    assert asyncio.all_tasks() == before
