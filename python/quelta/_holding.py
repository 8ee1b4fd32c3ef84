"""One lease from the first request to the last reply: decisions without clock, sockets or tasks.

The phases and their transitions. Any other event only updates what is known of the node.

  phase      meaning                             transitions
  WAITING    no state received yet               free, or to be stolen: ASKED; ours: CLEARING, or
                                                 STARTING if it was asked for; another's: ENDED
  CLEARING   a slave of ours that no lease       reply: as WAITING with that state
             holds is being stopped
  ASKED      request sent                        reply: STARTING; another's: STEAL_REQUEST or ENDED
  STARTING   the slave is ours                   running, or healthy for long enough: RUNNING;
                                                 failed: RELEASING; another's, or stopped: ENDED;
                                                 free after a disconnection: ASKED
  RUNNING    the slave is ours and works         failed: RELEASING; another's, or free: ENDED
  RELEASING  stop request sent                   reply: ENDED
  ENDED      nothing more to do

A new connection leads from CLEARING and ASKED back to WAITING, and repeats the stop request of
RELEASING. Every phase has a time limit; those before RUNNING share one.
"""

from __future__ import annotations

from dataclasses import dataclass
from enum import Enum, auto

from ._node_machine import STATE_MESSAGES, NodeMachine
from .records import MessageType, Record
from .status import EventKind, LostReason


@dataclass(frozen=True, slots=True)
class Limits:
    """The time limits of a lease in seconds; Master.hold() says what each of them is for."""

    timeout: float
    stop_timeout: float
    reconnect_timeout: float
    silence_timeout: float
    assume_running_after: float


class Phase(Enum):
    WAITING = auto()
    CLEARING = auto()
    ASKED = auto()
    STARTING = auto()
    RUNNING = auto()
    RELEASING = auto()
    ENDED = auto()


class Failure(Enum):
    """Why a node could not be acquired."""

    NO_CONNECTION = auto()
    NO_ANSWER = auto()
    NOT_RUNNING = auto()
    REFUSED = auto()
    STOLEN = auto()
    FAILED = auto()
    STOPPED = auto()
    DISCONNECTED = auto()


class Holding:
    """One lease of a node. The node's machine calls it; the caller only begins and releases it."""

    def __init__(self, node: NodeMachine, limits: Limits, now: float, *, steal: bool) -> None:
        assert node.holding is None, "a node has one lease at a time"
        self.node = node
        self.limits = limits
        self.steal = steal
        self.phase = Phase.WAITING
        self.failure: Failure | None = None
        self.failed_with: Record | None = None
        """What the node had said last when it could not be acquired."""
        self.lost: LostReason | None = None
        self.given_back = False
        self.has_run = False
        self.confirmed = False
        """Whether the node has said that the slave runs."""
        self._deadline = now + limits.timeout
        self._asked = False
        self._awaited: int | None = None  # the request whose reply is due
        self._started_at = now
        self._released_at = now
        self._heard_at = now
        self._disconnected_at = now
        node.holding = self
        node.scan(now)

    @property
    def is_starting(self) -> bool:
        return self.phase is Phase.STARTING

    @property
    def is_settled(self) -> bool:
        """Whether it is known if the node could be acquired."""
        return self.has_run or self.phase is Phase.ENDED

    @property
    def is_ended(self) -> bool:
        return self.phase is Phase.ENDED

    def release(self, now: float) -> None:
        """Gives the node back, whatever has been asked of it. Idempotent."""
        if self.phase in (Phase.RELEASING, Phase.ENDED):
            return
        self.lost = self.lost or LostReason.RELEASED
        if self.phase is Phase.WAITING and not self._asked:
            self._end(given_back=True)
        else:
            self._release(now)

    def connect(self, now: float) -> None:
        self._heard_at = now
        if self.phase in (Phase.CLEARING, Phase.ASKED):
            self.phase = Phase.WAITING
        elif self.phase is Phase.RELEASING:
            self._awaited = self.node.request(MessageType.STOP_REQUEST)

    def disconnect(self, now: float) -> None:
        self._disconnected_at = now
        self._awaited = None

    def receive(self, record: Record, serial: int | None, back: bool, now: float) -> None:
        """`serial`: the request that the record replies to; `back`: after a disconnection."""
        self._heard_at = now
        replied = serial is not None and serial == self._awaited
        if self.phase is Phase.WAITING and record.type in STATE_MESSAGES:
            self._decide(record, now)
        elif self.phase is Phase.CLEARING and replied:
            self._decide(record, now)
        elif self.phase is Phase.ASKED and replied:
            self._settle(record, now)
        elif self.phase in (Phase.STARTING, Phase.RUNNING):
            self._check_held(record, back, now)
        elif self.phase is Phase.RELEASING and replied:
            self.node.events.append(EventKind.STOLEN if self.node.is_owned else EventKind.STOPPED)
            self._end(given_back=not self.node.is_ours)

    def tick(self, now: float) -> None:
        if self.phase in (Phase.WAITING, Phase.CLEARING, Phase.ASKED, Phase.STARTING):
            if now >= self._deadline:
                self._expire(now)
            elif self.phase is Phase.STARTING and self._has_vanished(now):
                self._fail(Failure.DISCONNECTED, EventKind.LOST, now)
        elif self.phase is Phase.RUNNING and self._has_vanished(now):
            self._lose(LostReason.DISCONNECTED, EventKind.LOST)
        elif self.phase is Phase.RELEASING and self._stop_is_overdue(now):
            self.node.events.append(EventKind.NO_ANSWER)
            self._end(given_back=False)

    def _decide(self, record: Record, now: float) -> None:
        if self.node.is_ours and self._asked:
            # The reply was lost with the connection.
            self._start(now)
            self._check_held(record, False, now)
        elif self.node.is_ours:
            self.phase = Phase.CLEARING
            self._awaited = self.node.request(MessageType.STOP_REQUEST)
        elif self.node.is_owned and not self.steal:
            self._fail(Failure.REFUSED, EventKind.REFUSED, now)
        else:
            self._ask()

    def _ask(self) -> None:
        self._asked = True
        self.phase = Phase.ASKED
        steals = self.node.is_owned
        self._awaited = self.node.request(
            MessageType.STEAL_REQUEST if steals else MessageType.START_REQUEST
        )

    def _settle(self, record: Record, now: float) -> None:
        """A reply names the owner, whether or not anything was started."""
        if self.node.is_ours:
            self._start(now)
        elif self.steal:
            self._ask()
        else:
            self._fail(Failure.REFUSED, EventKind.REFUSED, now)

    def _start(self, now: float) -> None:
        self.phase = Phase.STARTING
        self._started_at = now
        self.node.events.append(EventKind.STARTING)
        # A launch that has failed at once is not notified: the daemon tells it only when scanned.
        self.node.scan(now)

    def _check_held(self, record: Record, back: bool, now: float) -> None:
        if not self.node.is_ours:
            self._check_lost(back, now)
        elif record.type == MessageType.SLAVE_FAILED:
            self._take_failure(now)
        elif record.type == MessageType.SLAVE_RUNNING:
            self.confirmed = True
            self._run()
        elif record.type in STATE_MESSAGES and self._is_healthy_for_long(now):
            self._run()

    def _check_lost(self, back: bool, now: float) -> None:
        starting = self.phase is Phase.STARTING
        if self.node.is_owned:
            if starting:
                self._fail(Failure.STOLEN, EventKind.STOLEN, now)
            else:
                self._lose(LostReason.STOLEN, EventKind.STOLEN)
        elif starting and back:
            self._ask()
        elif starting:
            self._fail(Failure.STOPPED, EventKind.LOST, now)
        else:
            self._lose(LostReason.DISCONNECTED if back else LostReason.STOPPED, EventKind.LOST)

    def _take_failure(self, now: float) -> None:
        if self.phase is Phase.STARTING:
            return self._fail(Failure.FAILED, EventKind.FAILED, now)
        self.node.events.append(EventKind.FAILED)
        self.lost = LostReason.FAILED
        return self._release(now)

    def _is_healthy_for_long(self, now: float) -> bool:
        """The notification may never come: the slave's beats can overtake its information, or the
        connection can drop in between. A slave that reports nothing fails before this.
        """
        return now - self._started_at >= self.limits.assume_running_after

    def _run(self) -> None:
        if self.phase is Phase.STARTING:
            self.phase = Phase.RUNNING
            self.has_run = True
            self.node.events.append(EventKind.RUNNING)

    def _has_vanished(self, now: float) -> bool:
        if self.node.connected:
            return now - self._heard_at >= self.limits.silence_timeout
        return now - self._disconnected_at >= self.limits.reconnect_timeout

    def _stop_is_overdue(self, now: float) -> bool:
        if now - self._released_at >= self.limits.stop_timeout:
            return True
        away = now - self._disconnected_at
        return not self.node.connected and away >= self.limits.reconnect_timeout

    def _expire(self, now: float) -> None:
        if self.phase is Phase.STARTING:
            failure = Failure.NOT_RUNNING
        elif self.node.connected:
            failure = Failure.NO_ANSWER
        else:
            failure = Failure.NO_CONNECTION
        self._fail(failure, EventKind.NO_ANSWER, now)

    def _fail(self, failure: Failure, event: EventKind, now: float) -> None:
        self.failure = failure
        self.failed_with = self.node.record
        self.node.events.append(event)
        nothing_is_ours = self.phase is Phase.WAITING and not self._asked
        if nothing_is_ours or failure in (
            Failure.REFUSED,
            Failure.STOLEN,
            Failure.STOPPED,
        ):
            self._end(given_back=True)
        else:
            self._release(now)

    def _lose(self, reason: LostReason, event: EventKind) -> None:
        self.lost = reason
        self.node.events.append(event)
        self._end(given_back=not self.node.is_ours)

    def _release(self, now: float) -> None:
        self.phase = Phase.RELEASING
        self._released_at = now
        if self.node.connected:
            self._awaited = self.node.request(MessageType.STOP_REQUEST)

    def _end(self, *, given_back: bool) -> None:
        self.phase = Phase.ENDED
        self.given_back = given_back
        self.node.end_holding(given_back=given_back)
