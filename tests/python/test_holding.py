"""The decisions of a lease, with times and events chosen by the test."""

from __future__ import annotations

import pytest

from quelta._holding import Failure, Holding, Limits, Phase
from quelta._node_machine import NodeMachine
from quelta.records import NOBODY, Address, MessageType, Record
from quelta.status import EventKind, LostReason, NodeState

OURS = Address("10.0.0.2", 21000)
OTHER = Address("10.0.0.9", 21000)
LIMITS = Limits(
    timeout=30, stop_timeout=20, reconnect_timeout=5, silence_timeout=20, assume_running_after=11
)

SCAN = MessageType.SCAN_REQUEST
STATUS = MessageType.DAEMON_STATUS
START, STARTED = MessageType.START_REQUEST, MessageType.START_REPLY
STOP, STOPPED = MessageType.STOP_REQUEST, MessageType.STOP_REPLY
STEAL, STOLEN = MessageType.STEAL_REQUEST, MessageType.STEAL_REPLY
RUNNING, FAILED = MessageType.SLAVE_RUNNING, MessageType.SLAVE_FAILED


class Scene:
    """One lease of one node, and a clock that moves when told."""

    def __init__(self, *, steal: bool = False) -> None:
        self.now = 100.0
        self.node = NodeMachine("node:1", OURS)
        self.lease = Holding(self.node, LIMITS, self.now, steal=steal)

    def connect(self) -> None:
        self.node.connect(self.now)

    def disconnect(self) -> None:
        self.node.disconnect(self.now)

    def receive(self, kind: MessageType, owner: Address = NOBODY) -> None:
        self.node.receive(Record(kind, owner), self.now)

    def pass_time(self, seconds: float) -> None:
        """Applies the time limits every 50 ms, as a master does."""
        end = self.now + seconds
        while self.now < end:
            self.now = min(self.now + 0.05, end)
            self.node.tick(self.now, watched=False)

    def requests(self) -> list[MessageType]:
        """Takes the requests since the last call, without scans."""
        taken, self.node.requests = self.node.requests, []
        return [kind for kind in taken if kind != SCAN]

    def events(self) -> list[EventKind]:
        taken, self.node.events = self.node.events, []
        return taken

    def start(self) -> None:
        """The node is free and grants the start."""
        self.connect()
        self.receive(STATUS)
        assert self.requests() == [START]
        self.receive(STATUS, OURS)
        self.receive(STARTED, OURS)
        assert self.lease.phase is Phase.STARTING

    def run(self) -> None:
        self.start()
        self.receive(RUNNING, OURS)
        assert self.lease.phase is Phase.RUNNING
        self.events()


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
    scene.pass_time(5.1)
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
