"""What the protocol leaves open, with a daemon whose answers and troubles the test chooses."""

from __future__ import annotations

import asyncio
from typing import Any, AsyncIterator

import pytest
from fake_daemon import FakeDaemon
from support import wire
from support.limits import HANG_LIMIT

from quelta import (
    Address,
    EventKind,
    Master,
    MasterUnreachableError,
    NoAnswerError,
    NodeBusyError,
    NodeState,
    NodeStatus,
)
from quelta.lease import Lease

OTHER = ("10.0.0.9", 21000)
SCAN, STATUS = wire.SCAN_REQUEST, wire.DAEMON_STATUS


@pytest.fixture
async def daemon() -> AsyncIterator[FakeDaemon]:
    async with FakeDaemon() as fake:
        yield fake


class Holder:
    """Holds the fake daemon's node in a task until `release` is called."""

    def __init__(self, master: Master, daemon: FakeDaemon, **options: Any) -> None:
        self.leases: list[Lease] = []
        self._leave = asyncio.Event()
        self._held = asyncio.Event()
        options.setdefault("timeout", HANG_LIMIT)
        self.hold = master.hold(daemon.name, **options)
        self.task = asyncio.create_task(self._run())

    async def _run(self) -> None:
        async with self.hold as lease:
            self.leases.append(lease)
            self._held.set()
            await self._leave.wait()

    async def lease(self) -> Lease:
        await asyncio.wait_for(self._held.wait(), HANG_LIMIT)
        return self.leases[0]

    async def release(self, daemon: FakeDaemon) -> None:
        """Ends the lease; the daemon confirms it."""
        self._leave.set()
        await daemon.expect(wire.STOP_REQUEST)
        daemon.send(wire.STOP_REPLY)
        await asyncio.wait_for(self.task, HANG_LIMIT)


async def started(daemon: FakeDaemon) -> None:
    """The daemon grants a start request of a master that it has just joined."""
    await daemon.expect(SCAN)
    daemon.send(STATUS)
    await daemon.expect(wire.START_REQUEST)
    daemon.send(STATUS, daemon.master)
    daemon.send(wire.START_REPLY, daemon.master)


async def test_beacons_and_requests_are_the_bytes_of_the_protocol(daemon: FakeDaemon) -> None:
    async with Master(text="artist 7") as master:
        holder = Holder(master, daemon)
        await daemon.join()
        for kind, answer in ((SCAN, STATUS), (wire.START_REQUEST, wire.START_REPLY)):
            record = wire.master_record(kind, daemon.master, b"artist 7")
            assert await daemon.receive_bytes() == record
            daemon.send(answer, wire.NO_ADDRESS if kind == SCAN else daemon.master)
        assert await daemon.beacon() == wire.master_record(SCAN, daemon.master, b"artist 7")
        daemon.send(wire.SLAVE_RUNNING, daemon.master)
        await holder.lease()
        await holder.release(daemon)


async def test_a_start_reply_may_name_another_owner(master: Master, daemon: FakeDaemon) -> None:
    holder = Holder(master, daemon)
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(STATUS)
    await daemon.expect(wire.START_REQUEST)
    daemon.send(wire.START_REPLY, OTHER, b"quicker")
    with pytest.raises(NodeBusyError) as caught:
        await holder.task
    assert (caught.value.owner, caught.value.owner_text) == (Address(*OTHER), "quicker")


async def test_a_thief_steals_from_the_owner_in_a_start_reply(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon, steal=True)
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(STATUS)
    await daemon.expect(wire.START_REQUEST)
    daemon.send(wire.START_REPLY, OTHER, b"quicker")
    await daemon.expect(wire.STEAL_REQUEST)
    daemon.send(STATUS, daemon.master)
    daemon.send(wire.STEAL_REPLY, daemon.master)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    assert (await holder.lease()).confirmed
    await holder.release(daemon)


async def test_a_start_reply_lost_with_its_connection_is_not_asked_for_again(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon)
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(STATUS)
    await daemon.expect(wire.START_REQUEST)
    daemon.drop()
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(STATUS, daemon.master)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    await holder.release(daemon)


async def test_a_start_request_lost_with_its_connection_is_repeated(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon)
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(STATUS)
    await daemon.expect(wire.START_REQUEST)
    daemon.drop()
    await daemon.join()
    await started(daemon)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    await holder.release(daemon)


async def test_a_notification_lost_with_its_connection_is_made_up_for_by_scans(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon, assume_running_after=1)
    await daemon.join()
    await started(daemon)
    daemon.drop()
    await daemon.join()
    while not holder.leases:
        if await daemon.receive() == SCAN:
            daemon.send(STATUS, daemon.master)
            await asyncio.sleep(0.01)
    assert not holder.leases[0].confirmed
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    while not holder.leases[0].confirmed:
        await asyncio.sleep(0.01)
    await holder.release(daemon)


async def test_a_slave_lost_while_starting_is_started_again(
    master: Master, daemon: FakeDaemon
) -> None:
    """The daemon frees itself when it could not connect again."""
    holder = Holder(master, daemon)
    await daemon.join()
    await started(daemon)
    daemon.drop()
    await daemon.join()
    await started(daemon)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    await holder.release(daemon)


async def test_scans_are_sent_one_at_a_time(master: Master, daemon: FakeDaemon) -> None:
    holder = Holder(master, daemon)
    await daemon.join()
    await started(daemon)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    await daemon.expect(SCAN)
    with pytest.raises(TimeoutError):
        await asyncio.wait_for(daemon.receive(), 2.5)
    daemon.send(STATUS, daemon.master)
    await daemon.expect(SCAN)
    await holder.release(daemon)


async def test_a_stop_request_is_repeated_on_a_new_connection(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon)
    await daemon.join()
    await started(daemon)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    holder._leave.set()
    await daemon.expect(wire.STOP_REQUEST)
    daemon.drop()
    await daemon.join()
    await holder.release(daemon)


async def test_an_unconfirmed_stop_is_an_error(master: Master, daemon: FakeDaemon) -> None:
    holder = Holder(master, daemon, stop_timeout=0.5)
    await daemon.join()
    await started(daemon)
    daemon.send(wire.SLAVE_RUNNING, daemon.master)
    await holder.lease()
    holder._leave.set()
    with pytest.raises(NoAnswerError) as caught:
        await holder.task
    assert str(caught.value) == (
        f"{daemon.name}: has not confirmed within 0.5 s that its slave has stopped"
    )


async def test_a_connected_node_that_never_answers_is_reported(
    master: Master, daemon: FakeDaemon
) -> None:
    holder = Holder(master, daemon, timeout=2)
    await daemon.join()
    with pytest.raises(NoAnswerError) as caught:
        await holder.task
    assert str(caught.value) == (
        f"{daemon.name}: is connected, but has not answered within 2 s; a daemon answers nobody "
        "for up to 12 s while it stops a slave"
    )


async def test_a_node_that_never_connects_cannot_reach_the_master(
    master: Master, daemon: FakeDaemon
) -> None:
    with pytest.raises(MasterUnreachableError) as caught:
        async with master.hold(daemon.name, timeout=0.5):
            pass
    assert str(caught.value) == (
        f"{daemon.name}: it has not connected to {await master.address_for(daemon.name)} within "
        "0.5 s: make sure that the node runs and can reach this address and port (firewalls)"
    )


async def test_a_loopback_address_is_of_no_use_to_other_machines() -> None:
    async with Master("127.0.0.1") as master:
        with pytest.raises(MasterUnreachableError) as caught:
            await master.scan("192.0.2.1:5130")
    assert str(caught.value) == (
        "192.0.2.1:5130: it cannot reach this master at 127.0.0.1, an address within this "
        "machine; give this machine's address in the network with address="
    )


async def test_invalid_records_are_reported_and_harm_nobody(
    master: Master, daemon: FakeDaemon
) -> None:
    events = master.events(daemon.name)

    async def next_kind() -> EventKind:
        return (await asyncio.wait_for(anext(events), HANG_LIMIT)).kind

    first = asyncio.create_task(next_kind())
    await daemon.join()
    daemon.send(STATUS)
    assert await first is EventKind.FOUND
    daemon.send_bytes(wire.frame(b"abc"))
    daemon.send_bytes(wire.frame(wire.master_record(13)))
    daemon.send(STATUS, OTHER)
    daemon.send_bytes(wire.frame(wire.master_record(STATUS), magic=0x47455420))
    assert [await next_kind() for _ in range(5)] == [
        EventKind.INVALID_RECORD,
        EventKind.INVALID_RECORD,
        EventKind.CHANGED,
        EventKind.INVALID_RECORD,
        EventKind.DISCONNECTED,
    ]
    assert await daemon.is_closed_by_master()
    await daemon.join()
    daemon.send(STATUS)
    assert await next_kind() is EventKind.FOUND


async def test_a_request_from_a_daemon_is_no_state(master: Master, daemon: FakeDaemon) -> None:
    scanning = asyncio.create_task(master.scan(daemon.name, HANG_LIMIT))
    await daemon.join()
    await daemon.expect(SCAN)
    daemon.send(wire.START_REQUEST, OTHER)
    daemon.send(7, OTHER)
    daemon.send(STATUS, OTHER, b"artist")
    assert await scanning == [
        NodeStatus(daemon.name, NodeState.OWNED, "fake", 2, 7, Address(*OTHER), "artist")
    ]


async def test_a_new_connection_replaces_the_one_before(master: Master, daemon: FakeDaemon) -> None:
    scanning = asyncio.create_task(master.scan(daemon.name, HANG_LIMIT))
    await daemon.join()
    await daemon.join()
    await daemon.expect(SCAN)
    assert await daemon.is_closed_by_master(0)
    daemon.send(STATUS)
    assert await scanning == [NodeStatus(daemon.name, NodeState.FREE, "fake", 2, 7)]
