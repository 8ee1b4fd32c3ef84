"""How a lease decides until its slave runs."""

from __future__ import annotations

import pytest
from scene import (
    FAILED,
    OTHER,
    OURS,
    RUNNING,
    SCAN,
    START,
    STARTED,
    STATUS,
    STEAL,
    STOLEN,
    STOP,
    STOPPED,
    Scene,
)

from quelta._holding import Failure, Phase
from quelta.records import MessageType
from quelta.status import EventKind, LostReason


def test_a_free_node_is_started_run_and_given_back() -> None:
    scene = Scene()
    scene.start()
    scene.receive(RUNNING, OURS)
    assert (scene.lease.phase, scene.lease.confirmed) == (Phase.RUNNING, True)
    scene.lease.release(scene.now)
    assert scene.requests() == [STOP]
    scene.receive(STATUS)
    assert scene.lease.phase is Phase.RELEASING
    scene.receive(STOPPED)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, True)
    assert scene.lease.lost is LostReason.RELEASED
    assert scene.node.holding is None
    assert scene.events() == [
        EventKind.FOUND,
        EventKind.CHANGED,
        EventKind.STARTING,
        EventKind.RUNNING,
        EventKind.CHANGED,
        EventKind.STOPPED,
    ]


def test_another_masters_node_is_not_even_asked() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS, OTHER)
    assert (scene.lease.phase, scene.lease.failure) == (Phase.ENDED, Failure.REFUSED)
    assert scene.requests() == []


def test_a_thief_steals_it() -> None:
    scene = Scene(steal=True)
    scene.connect()
    scene.receive(STATUS, OTHER)
    assert scene.requests() == [STEAL]
    scene.receive(STATUS, OURS)
    scene.receive(STOLEN, OURS)
    assert scene.lease.phase is Phase.STARTING


def test_a_start_reply_with_another_owner_is_a_refusal() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.receive(STARTED, OTHER)
    assert (scene.lease.phase, scene.lease.failure) == (Phase.ENDED, Failure.REFUSED)


def test_states_that_overtake_the_reply_decide_nothing() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.receive(STATUS, OTHER)
    assert scene.lease.phase is Phase.ASKED
    scene.receive(STATUS, OURS)
    assert scene.lease.phase is Phase.ASKED


def test_a_slave_left_behind_is_stopped_before_a_new_one_is_started() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS, OURS)
    assert (scene.lease.phase, scene.requests()) == (Phase.CLEARING, [STOP])
    scene.receive(STATUS)
    assert scene.requests() == []
    scene.receive(STOPPED)
    assert scene.requests() == [START]


def test_a_node_that_never_connects_fails_at_the_time_limit() -> None:
    scene = Scene()
    scene.pass_time(29.9)
    assert scene.lease.phase is Phase.WAITING
    scene.pass_time(0.2)
    assert (scene.lease.phase, scene.lease.failure) == (Phase.ENDED, Failure.NO_CONNECTION)
    assert scene.events() == [EventKind.NO_ANSWER]


@pytest.mark.parametrize("answers", [[], [STATUS]])
def test_a_connected_node_without_an_answer_fails_at_the_time_limit(
    answers: list[MessageType],
) -> None:
    scene = Scene()
    scene.connect()
    for kind in answers:
        scene.receive(kind)
    scene.pass_time(30.1)
    assert scene.lease.failure is Failure.NO_ANSWER


def test_a_request_without_an_answer_is_taken_back() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.pass_time(30.1)
    assert scene.requests() == [START, STOP]
    assert scene.lease.phase is Phase.RELEASING
    scene.receive(STARTED, OURS)  # the node answers in order
    assert scene.lease.phase is Phase.RELEASING
    scene.receive(STOPPED)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, True)


def test_a_node_may_be_silent_while_it_stops_a_slave_for_twelve_seconds() -> None:
    scene = Scene()
    scene.run()
    scene.pass_time(12.5)
    assert scene.lease.lost is None
    assert scene.events() == [EventKind.SILENT]
    scene.receive(STATUS, OURS)
    assert scene.events() == [EventKind.CHANGED]  # says what it has said before, but says it
    scene.pass_time(12.5)
    assert scene.lease.lost is None


def test_a_node_that_stays_silent_is_lost_and_told_to_stop() -> None:
    scene = Scene()
    scene.run()
    scene.pass_time(20.1)
    assert scene.lease.lost is LostReason.DISCONNECTED
    assert scene.lease.phase is Phase.ENDED
    assert scene.requests() == [STOP]


def test_a_missing_notification_is_replaced_by_a_healthy_scan_after_a_while() -> None:
    scene = Scene()
    scene.start()
    scene.pass_time(10.9)
    scene.receive(STATUS, OURS)
    assert scene.lease.phase is Phase.STARTING
    scene.pass_time(0.2)
    assert scene.lease.phase is Phase.STARTING
    scene.receive(STATUS, OURS)
    assert (scene.lease.phase, scene.lease.confirmed) == (Phase.RUNNING, False)


def test_a_late_notification_confirms_the_slave_once() -> None:
    scene = Scene()
    scene.start()
    scene.pass_time(11.1)
    scene.receive(STATUS, OURS)
    scene.receive(RUNNING, OURS)
    assert scene.lease.confirmed
    assert scene.events().count(EventKind.RUNNING) == 1


def test_a_start_is_scanned_at_once_and_often() -> None:
    scene = Scene()
    scene.start()
    assert SCAN in scene.node.requests
    scene.node.requests.clear()
    scene.receive(STATUS, OURS)
    scene.pass_time(0.3)
    assert scene.node.requests == [SCAN]


@pytest.mark.parametrize("seconds", [0.0, 12.0])
def test_a_failed_launch_is_given_back(seconds: float) -> None:
    scene = Scene()
    scene.start()
    scene.pass_time(seconds)
    scene.receive(FAILED, OURS)
    assert (scene.lease.phase, scene.requests()) == (Phase.RELEASING, [STOP])
    scene.receive(STOPPED)
    assert (scene.lease.failure, scene.lease.given_back) == (Failure.FAILED, True)
