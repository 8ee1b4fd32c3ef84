"""Master.events: what happens to nodes, in order."""

import asyncio
from datetime import datetime, timedelta, timezone

import pytest
from helpers import MakeNode, MakeRawMaster, address_of, free, name_of, owned
from support import wire
from support.limits import HANG_LIMIT
from support.node import Node

from quelta import Event, EventKind, Master, NodeState, NodeStatus, QueltaError
from quelta.events import LIMIT, EventStream


async def next_event(events: EventStream) -> Event:
    return await asyncio.wait_for(anext(events), HANG_LIMIT)


async def test_nodes_are_followed_without_being_held(
    node: Node, master: Master, make_raw_master: MakeRawMaster
) -> None:
    other = make_raw_master(b"artist").join(node)
    events = master.events(name_of(node))
    found = await next_event(events)
    assert (found.kind, found.status, found.node) == (EventKind.FOUND, free(node), name_of(node))
    assert abs(datetime.now(timezone.utc) - found.time) < timedelta(seconds=HANG_LIMIT)
    other.request(wire.START_REQUEST)
    changed = await next_event(events)
    assert (changed.kind, changed.status) == (
        EventKind.CHANGED,
        owned(node, address_of(other), "artist"),
    )


async def test_a_restarted_node_is_found_again(node: Node, master: Master) -> None:
    events = master.events(name_of(node))
    assert (await next_event(events)).kind is EventKind.FOUND
    node.quit()
    gone = await next_event(events)
    assert gone.kind is EventKind.DISCONNECTED
    assert gone.status == NodeStatus(name_of(node), NodeState.NO_ANSWER)
    node.serve()
    back = await next_event(events)
    assert (back.kind, back.status) == (EventKind.FOUND, free(node))


async def test_every_iterator_has_all_events(node: Node, master: Master) -> None:
    both = [master.events(), master.events()]
    async with master.hold(name_of(node), timeout=HANG_LIMIT):
        pass
    for events in both:
        assert [(await next_event(events)).kind for _ in range(6)] == [
            EventKind.FOUND,
            EventKind.CHANGED,
            EventKind.STARTING,
            EventKind.RUNNING,
            EventKind.CHANGED,
            EventKind.STOPPED,
        ]


async def test_an_iterator_ends_with_its_master(node: Node) -> None:
    async with Master() as master:
        events = master.events(name_of(node))
        assert (await next_event(events)).kind is EventKind.FOUND
        waiting = asyncio.create_task(next_event(events))
        await asyncio.sleep(0)
    with pytest.raises(StopAsyncIteration):
        await waiting


async def test_an_iterator_ends_after_its_time(master: Master) -> None:
    assert [event async for event in master.events(timeout=0.1)] == []


async def test_a_dropped_iterator_lets_the_nodes_rest(make_node: MakeNode, master: Master) -> None:
    node = make_node()
    async for event in master.events(name_of(node)):
        assert event.kind is EventKind.FOUND
        break
    assert master._hub and not master._hub.streams


async def test_a_neglected_iterator_keeps_the_latest_events(master: Master) -> None:
    events = master.events()
    status = NodeStatus("a:1", NodeState.FREE)
    times = [datetime.fromtimestamp(second, timezone.utc) for second in range(LIMIT + 3)]
    for time in times:
        events.push(Event(time, EventKind.CHANGED, status))
    with pytest.raises(QueltaError, match="^3 events were dropped, because nobody took them$"):
        await next_event(events)
    assert [(await next_event(events)).time for _ in range(LIMIT)] == times[3:]
