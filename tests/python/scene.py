"""A lease without a network: the test says what arrives and how much time passes."""

from __future__ import annotations

from quelta._holding import Holding, Limits, Phase
from quelta._node_machine import NodeMachine
from quelta.records import NOBODY, Address, MessageType, Record
from quelta.status import EventKind

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
