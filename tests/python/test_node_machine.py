"""What is known of a node, and how often it is asked."""

from scene import FAILED, OTHER, OURS, SCAN, STATUS, STOPPED, Scene

from quelta._node_machine import NodeMachine
from quelta.records import Record
from quelta.status import EventKind, NodeState, NodeStatus


def connected() -> NodeMachine:
    node = NodeMachine("node:1", OURS)
    node.connect(0)
    return node


def test_a_new_connection_is_scanned() -> None:
    assert connected().requests == [SCAN]


def test_a_scan_that_is_not_answered_is_not_repeated() -> None:
    node = connected()
    node.scan(1)
    node.tick(100, watched=True)
    assert node.requests == [SCAN]


def test_without_a_connection_nothing_is_asked() -> None:
    node = NodeMachine("node:1", OURS)
    node.scan(0)
    node.tick(100, watched=True)
    assert node.requests == []


def test_watched_nodes_are_scanned_every_second() -> None:
    node = connected()
    node.receive(Record(STATUS), 0)
    node.tick(0.9, watched=True)
    assert node.requests == [SCAN]
    node.tick(1, watched=True)
    assert node.requests == [SCAN, SCAN]


def test_other_nodes_are_not_scanned() -> None:
    node = connected()
    node.receive(Record(STATUS), 0)
    node.tick(100, watched=False)
    assert node.requests == [SCAN]


def test_silence_is_reported_once() -> None:
    node = connected()
    for time in (4.9, 5, 6, 7):
        node.tick(time, watched=True)
    assert node.events == [EventKind.SILENT]
    assert node.status() == NodeStatus("node:1", NodeState.SILENT)


def test_only_news_are_events() -> None:
    node = connected()
    for record in (Record(STATUS), Record(STATUS), Record(STATUS, OTHER), Record(STATUS, OTHER)):
        node.receive(record, 0)
    assert node.events == [EventKind.FOUND, EventKind.CHANGED]


def test_what_was_said_before_a_disconnection_no_longer_counts() -> None:
    node = connected()
    node.receive(Record(STATUS, OTHER, alias=b"render07"), 0)
    node.disconnect(1)
    assert node.status() == NodeStatus("node:1", NodeState.NO_ANSWER)
    node.connect(2)
    assert node.status() == NodeStatus("node:1", NodeState.SILENT)


def test_the_failure_of_a_slave_ends_with_its_lease() -> None:
    scene = Scene()
    scene.run()
    scene.receive(FAILED, OURS)
    assert scene.node.status().state is NodeState.FAILED
    scene.receive(STOPPED, OTHER)
    assert scene.node.status().state is NodeState.OWNED
