"""A master and a node on two machines, simulated by network namespaces."""

from collections.abc import Iterator

import pytest
from helpers import MakeNode, found_by_broadcast
from support import namespaces, programs
from support.limits import HANG_LIMIT
from support.namespaces import Cable
from support.node import Node

from quelta import (
    AddressError,
    LostReason,
    Master,
    MasterUnreachableError,
    NoAnswerError,
    NodeState,
)

REASON = "needs Linux's network namespaces" if programs.ON_WINDOWS else namespaces.why_not()
pytestmark = pytest.mark.skipif(bool(REASON), reason=REASON or "-")


@pytest.fixture
def cable() -> Iterator[Cable]:
    laid = Cable()
    try:
        yield laid.lay()
    finally:
        laid.remove()


@pytest.fixture
def far_node(cable: Cable, make_node: MakeNode) -> Node:
    with cable.near.entered():
        return make_node()


async def test_an_address_that_the_node_cannot_reach_is_named(cable: Cable, far_node: Node) -> None:
    nobody = "10.231.0.77"
    name = f"{cable.near.address}:{far_node.port}"
    with cable.far.entered():
        async with Master(nobody) as master:
            with pytest.raises(MasterUnreachableError) as caught:
                async with master.hold(name, timeout=3):
                    pass
            announced = await master.address_for(name)
    far_node.output.wait(f"daemon    : detected new master on address {announced}")
    assert str(caught.value) == (
        f"{name}: it has not connected to {announced} within 3 s: {nobody} is no address of this "
        "machine; make sure that the node runs and can reach this address and port (firewalls)"
    )
    assert caught.value.node == name


async def test_a_node_on_another_machine_is_held_until_the_cable_is_cut(
    cable: Cable, far_node: Node
) -> None:
    name = f"{cable.near.address}:{far_node.port}"
    with cable.far.entered():
        async with Master(text="far away") as master:
            async with master.hold(name, timeout=HANG_LIMIT, silence_timeout=2) as lease:
                assert lease.master_address.ip == cable.far.address
                assert lease.status.state is NodeState.OWNED
                cable.cut()
                assert await lease.lost is LostReason.DISCONNECTED


async def test_a_broadcast_finds_a_node_on_another_machine(cable: Cable, far_node: Node) -> None:
    with cable.far.entered():
        async with Master() as master:
            found = await found_by_broadcast(master, f"10.231.0.255:{far_node.port}")
    assert [status.node for status in found] == [f"{cable.near.address}:{far_node.port}"]


async def test_without_a_route_beacons_cannot_be_sent(cable: Cable) -> None:
    with cable.far.entered():
        async with Master(cable.far.address) as master:
            with pytest.raises(NoAnswerError) as caught:
                async with master.hold("192.0.2.1:5130", timeout=0.3):
                    pass
            announced = await master.address_for("192.0.2.1:5130")
    assert str(caught.value) == (
        f"192.0.2.1:5130: it has not connected to {announced} within 0.3 s: beacons cannot be "
        "sent to it: Network is unreachable"
    )


async def test_without_a_route_the_address_has_to_be_given(cable: Cable) -> None:
    with cable.far.entered():
        async with Master() as master:
            with pytest.raises(AddressError) as caught:
                await master.scan("192.0.2.1:5130")
    assert str(caught.value) == (
        "192.0.2.1:5130: no route to it (Network is unreachable); give this machine's address "
        "with address="
    )


async def test_a_node_that_connects_from_another_address_is_named(
    cable: Cable, far_node: Node
) -> None:
    namespaces.ip(f"-n {cable.near.name} addr add 10.231.0.9/24 dev {cable.near.device}")
    name = f"10.231.0.9:{far_node.port}"
    with cable.far.entered():
        async with Master() as master:
            with pytest.raises(MasterUnreachableError) as caught:
                async with master.hold(name, timeout=3):
                    pass
    assert str(caught.value).endswith(
        f"; if it has connected from {cable.near.address}, name it by that address"
    )
