"""How a lease decides from the moment its slave runs to its end."""

from __future__ import annotations

import pytest
from scene import FAILED, LIMITS, OTHER, OURS, START, STARTED, STATUS, STOP, STOPPED, Scene

from quelta._holding import Failure, Holding, Phase
from quelta.records import NOBODY, Address
from quelta.status import EventKind, LostReason, NodeState


def test_a_slave_that_fails_later_is_given_back_at_once() -> None:
    scene = Scene()
    scene.run()
    scene.receive(FAILED, OURS)
    assert scene.lease.lost is LostReason.FAILED
    assert scene.requests() == [STOP]
    assert scene.node.status().state is NodeState.FAILED
    scene.receive(STOPPED)
    assert scene.lease.phase is Phase.ENDED
    assert scene.node.status().state is NodeState.FREE


def test_a_slave_that_has_run_and_failed_at_once_was_acquired() -> None:
    """Both notifications may arrive before anybody looks."""
    scene = Scene()
    scene.run()
    scene.receive(FAILED, OURS)
    assert (scene.lease.phase, scene.lease.is_settled) == (Phase.RELEASING, True)
    assert scene.lease.failure is None


@pytest.mark.parametrize(
    "owner, starting, failure, lost, event",
    [
        (OTHER, False, None, LostReason.STOLEN, EventKind.STOLEN),
        (NOBODY, False, None, LostReason.STOPPED, EventKind.LOST),
        (OTHER, True, Failure.STOLEN, None, EventKind.STOLEN),
        (NOBODY, True, Failure.STOPPED, None, EventKind.LOST),
    ],
)
def test_a_node_with_another_owner_is_no_longer_held(
    owner: Address,
    starting: bool,
    failure: Failure | None,
    lost: LostReason | None,
    event: EventKind,
) -> None:
    scene = Scene()
    scene.start() if starting else scene.run()
    scene.receive(STATUS, owner)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, True)
    assert (scene.lease.failure, scene.lease.lost) == (failure, lost)
    assert scene.events()[-1] is event
    assert scene.requests() == []


def test_a_connection_may_stay_away_for_a_while() -> None:
    scene = Scene()
    scene.run()
    scene.disconnect()
    scene.pass_time(4.9)
    scene.connect()
    scene.receive(STATUS, OURS)
    scene.pass_time(4.9)
    assert scene.lease.lost is None
    assert scene.events() == [EventKind.DISCONNECTED, EventKind.FOUND]


def test_a_connection_that_stays_away_is_a_lost_lease() -> None:
    scene = Scene()
    scene.run()
    scene.disconnect()
    scene.pass_time(5.1)
    assert scene.lease.lost is LostReason.DISCONNECTED
    assert not scene.lease.given_back


def test_a_node_that_comes_back_free_is_a_lost_lease() -> None:
    scene = Scene()
    scene.run()
    scene.disconnect()
    scene.connect()
    scene.receive(STATUS)
    assert scene.lease.lost is LostReason.DISCONNECTED
    assert scene.lease.given_back


def test_a_slave_that_is_lost_while_starting_is_started_again() -> None:
    scene = Scene()
    scene.start()
    scene.disconnect()
    scene.connect()
    scene.receive(STATUS)
    assert (scene.lease.phase, scene.requests()) == (Phase.ASKED, [START])


def test_a_node_that_vanishes_while_starting_fails() -> None:
    scene = Scene()
    scene.start()
    scene.disconnect()
    scene.pass_time(5.1)
    assert scene.lease.failure is Failure.DISCONNECTED
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, False)


def test_a_connection_without_notice_of_its_loss_is_replaced() -> None:
    scene = Scene()
    scene.run()
    scene.connect()
    scene.receive(STATUS, OURS)
    assert scene.lease.lost is None
    assert scene.events() == [EventKind.DISCONNECTED, EventKind.FOUND]


def test_a_request_lost_with_its_connection_is_repeated_if_it_had_no_effect() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.disconnect()
    scene.connect()
    scene.receive(STATUS)
    assert scene.requests() == [START, START]


def test_a_request_lost_with_its_connection_is_not_repeated_if_it_had() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.disconnect()
    scene.connect()
    scene.receive(STATUS, OURS)
    assert (scene.lease.phase, scene.requests()) == (Phase.STARTING, [START])


def test_the_failure_of_such_a_slave_is_seen() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.disconnect()
    scene.connect()
    scene.receive(FAILED, OURS)
    assert scene.lease.failure is Failure.FAILED


def test_a_release_before_any_request_sends_nothing() -> None:
    scene = Scene()
    scene.connect()
    scene.lease.release(scene.now)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, True)
    assert scene.requests() == []


def test_a_release_between_request_and_reply_stops_what_was_started() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.lease.release(scene.now)
    assert scene.requests() == [START, STOP]
    scene.receive(STARTED, OURS)
    scene.receive(STOPPED)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, True)


def test_a_release_after_a_lost_request_waits_for_the_node() -> None:
    scene = Scene()
    scene.connect()
    scene.receive(STATUS)
    scene.disconnect()
    scene.connect()
    scene.lease.release(scene.now)
    assert scene.lease.phase is Phase.RELEASING
    assert scene.requests() == [START, STOP]


def test_a_release_is_repeated_on_a_new_connection() -> None:
    scene = Scene()
    scene.run()
    scene.lease.release(scene.now)
    scene.disconnect()
    scene.pass_time(4.9)
    scene.connect()
    assert scene.requests() == [STOP, STOP]
    scene.receive(STOPPED)
    assert scene.lease.given_back


@pytest.mark.parametrize("connected, limit", [(True, 20), (False, 5)])
def test_a_release_without_an_answer_ends_at_its_limit(connected: bool, limit: float) -> None:
    scene = Scene()
    scene.run()
    if not connected:
        scene.disconnect()
    scene.lease.release(scene.now)
    scene.pass_time(limit - 0.1)
    assert scene.lease.phase is Phase.RELEASING
    scene.pass_time(0.2)
    assert (scene.lease.phase, scene.lease.given_back) == (Phase.ENDED, False)
    assert scene.events()[-1] is EventKind.NO_ANSWER


def test_a_release_is_idempotent() -> None:
    scene = Scene()
    scene.run()
    scene.lease.release(scene.now)
    scene.lease.release(scene.now)
    assert scene.requests() == [STOP]
    scene.receive(STOPPED)
    scene.lease.release(scene.now)
    assert scene.requests() == []


def test_a_node_given_up_for_lost_is_stopped_when_it_comes_back() -> None:
    scene = Scene()
    scene.run()
    scene.disconnect()
    scene.pass_time(5.1)
    scene.connect()
    scene.receive(STATUS, OURS)
    assert scene.requests() == [STOP]
    scene.receive(STATUS, OURS)
    assert scene.requests() == []
    scene.receive(STOPPED)
    scene.receive(STATUS)
    scene.receive(STATUS, OURS)
    assert scene.requests() == []


def test_a_reply_to_an_earlier_lease_does_not_count() -> None:
    scene = Scene()
    scene.run()
    scene.lease.release(scene.now)
    scene.pass_time(20.1)
    assert not scene.lease.given_back
    second = Holding(scene.node, LIMITS, scene.now, steal=False)
    assert scene.requests() == [STOP, STOP]
    scene.receive(STATUS, OURS)
    assert scene.requests() == [STOP]
    scene.receive(STOPPED)
    scene.receive(STOPPED)
    assert second.phase is Phase.CLEARING
    scene.receive(STOPPED)
    assert (second.phase, scene.requests()) == (Phase.ASKED, [START])
