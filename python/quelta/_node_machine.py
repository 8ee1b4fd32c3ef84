"""What is known of one node, and when to scan it: decisions without clock, sockets or tasks.

The caller reports what happened and when, sends `requests` and publishes `events`, which it takes
from the lists.
"""

from __future__ import annotations

from collections import deque
from typing import TYPE_CHECKING

from .records import Address, MessageType, Record
from .status import EventKind, NodeState, NodeStatus, status_from

if TYPE_CHECKING:
    from ._holding import Holding

SCAN_INTERVAL = 1.0  # seconds
SCAN_INTERVAL_WHILE_STARTING = 0.25
SILENT_AFTER = 5.0

STATE_MESSAGES = (MessageType.DAEMON_STATUS, MessageType.SLAVE_FAILED)
REPLIES = (MessageType.START_REPLY, MessageType.STOP_REPLY, MessageType.STEAL_REPLY)
SENT_BY_DAEMONS = (*STATE_MESSAGES, *REPLIES, MessageType.SLAVE_RUNNING)


class NodeMachine:
    """The state of one node. `self_address` is the address by which the node knows this master."""

    def __init__(self, name: str, self_address: Address) -> None:
        self.name = name
        self.self_address = self_address
        self.holding: Holding | None = None
        self.connected = False
        self.record: Record | None = None
        self.failed = False
        self.answers = 0
        """The number of states that have arrived."""
        self.requests: list[MessageType] = []
        self.events: list[EventKind] = []
        self._away = True
        self._silent = False
        self._scan_pending = False
        self._scanned_at = 0.0
        # A daemon answers requests in order, so a reply belongs to the oldest unanswered request.
        self._unanswered: deque[int] = deque()
        self._last_serial = 0
        # A lease has ended, and the node has not confirmed that its slave has stopped.
        self._orphaned = False

    @property
    def is_ours(self) -> bool:
        return self.record is not None and self.record.owner == self.self_address

    @property
    def is_owned(self) -> bool:
        return self.record is not None and self.record.owner is not None

    def status(self) -> NodeStatus:
        """Returns what the node has said last, or that it has not."""
        if self.record is None or self._away:
            return NodeStatus(
                self.name, NodeState.SILENT if self.connected else NodeState.NO_ANSWER
            )
        return status_from(self.name, self.record, failed=self.failed)

    def connect(self, now: float) -> None:
        # The earlier connection was lost without notice, for instance because the node crashed.
        if self.connected:
            self.disconnect(now)
        self.connected = True
        self.scan(now)
        if self.holding:
            self.holding.connect(now)

    def disconnect(self, now: float) -> None:
        self.connected = False
        self._scan_pending = False
        self._unanswered.clear()
        if not self._away:
            self.events.append(EventKind.DISCONNECTED)
        self._away = True
        if self.holding:
            self.holding.disconnect(now)

    def receive(self, record: Record, now: float) -> None:
        if record.type not in SENT_BY_DAEMONS:
            return self.receive_junk()
        serial = None
        if record.type in REPLIES:
            serial = self._unanswered.popleft() if self._unanswered else None
        back = self._take(record)
        if self.holding:
            self.holding.receive(record, serial, back, now)
        elif self._orphaned and record.type in STATE_MESSAGES:
            self._give_back_orphan()
        return None

    def receive_junk(self) -> None:
        self.events.append(EventKind.INVALID_RECORD)

    def tick(self, now: float, *, watched: bool) -> None:
        """Applies the time limits and scans. `watched`: somebody wants to hear of changes."""
        if self.holding:
            self.holding.tick(now)
        interval = self._scan_interval(watched)
        if interval is None or not self.connected:
            return
        passed = now - self._scanned_at
        # One scan at a time: if the daemon stopped reading, unlimited requests would pile up.
        if not self._scan_pending and passed >= interval:
            self.scan(now)
        elif self._scan_pending and passed >= SILENT_AFTER and not self._silent:
            self._silent = True
            self.events.append(EventKind.SILENT)

    def scan(self, now: float) -> None:
        """Asks for the state, unless an answer is already due."""
        if self.connected and not self._scan_pending:
            self._scan_pending = True
            self._scanned_at = now
            self.requests.append(MessageType.SCAN_REQUEST)

    def request(self, kind: MessageType) -> int:
        """Asks for anything but the state. Returns the number by which its reply is known."""
        self._last_serial += 1
        self._unanswered.append(self._last_serial)
        self.requests.append(kind)
        return self._last_serial

    def end_holding(self, *, given_back: bool) -> None:
        """Without a confirmation, the node is given back when it next says that it is ours."""
        self.holding = None
        self._orphaned = not given_back
        if self._orphaned and self.connected:
            self.request(MessageType.STOP_REQUEST)

    def _take(self, record: Record) -> bool:
        """Records a state; returns whether the node is back from a disconnection."""
        news = self.record is None or _content(record) != _content(self.record) or self._silent
        back, self._away = self._away, False
        self._silent = False
        self.record = record
        if record.type in STATE_MESSAGES:
            self._scan_pending = False
            self.failed = record.type == MessageType.SLAVE_FAILED
            self.answers += 1
        if not self.is_ours:
            self.failed = False
        if back:
            self.events.append(EventKind.FOUND)
        elif news:
            self.events.append(EventKind.CHANGED)
        return back

    def _scan_interval(self, watched: bool) -> float | None:
        if self.holding and self.holding.is_starting:
            return SCAN_INTERVAL_WHILE_STARTING
        return SCAN_INTERVAL if self.holding or watched else None

    def _give_back_orphan(self) -> None:
        if not self.is_ours:
            self._orphaned = False
        elif not self._unanswered:
            self.request(MessageType.STOP_REQUEST)


def _content(record: Record) -> tuple[object, ...]:
    return (
        record.master_address,
        record.master_text,
        record.alias,
        record.gpus,
        record.slave_version,
    )
