"""A small model of the ownership rules, and random steps that exercise them.

A step is plain data and valid in every state, so that parts of a failing run can be replayed. The
model takes a step and returns the messages that each master has to receive, in order.
"""

from random import Random
from typing import NamedTuple

from . import wire

MASTERS = 4

# The address of a request is the number of a master or one of these.
NOBODY, PORTLESS, STRANGER = range(MASTERS, MASTERS + 3)


class Step(NamedTuple):
    """An action by `master` on behalf of `address`; `number` selects a variant of some actions."""

    action: str
    master: int
    address: int = 0
    number: int = 0


class Message(NamedTuple):
    """A message of the daemon: `owner` is an address number, `text_of` a master or None."""

    kind: int
    owner: int
    text_of: int | None


UNEXPECTED = (1, 3, 5, 6, 7, 8, 9, 10, 12)


class Model:
    """Tracks who owns the slave and which messages the masters receive."""

    def __init__(self) -> None:
        self.owner: int = NOBODY
        self.text_of: int | None = None
        self.connection: int | None = None  # the master whose connection requested the slave
        self.slave = False
        self.failed = False
        self.errors: list[str] = []
        self.changes = 0
        self.sent: list[list[Message]] = []

    def apply(self, step: Step) -> list[list[Message]]:
        """Returns the messages caused by this step, as one list per master."""
        self.sent = [[] for _ in range(MASTERS)]
        getattr(self, "_" + step.action)(step)
        return self.sent

    def _send(self, kind: int, master: int) -> None:
        self.sent[master].append(Message(kind, self.owner, self.text_of))

    def _broadcast(self, absent: int | None = None) -> None:
        for master in range(MASTERS):
            if master != absent:
                self._send(wire.DAEMON_STATUS, master)

    def _start_slave(self, step: Step) -> None:
        if self.slave:
            self.errors.append("already running slave")
        self.owner, self.text_of, self.connection = step.address, step.master, step.master
        self.slave, self.failed = True, False
        self.changes += 1
        self._broadcast()

    def _stop_slave(self, tell_all: bool, absent: int | None = None) -> None:
        if not self.slave:
            self.errors.append("we don't have an Quelta slave running")
            return
        self.owner, self.text_of, self.connection = NOBODY, None, None
        self.slave, self.failed = False, False
        self.changes += 1
        if tell_all:
            self._broadcast(absent)

    def _running(self) -> None:
        """A newly started slave reports that it runs before the next step."""
        assert self.connection is not None
        self._send(wire.SLAVE_RUNNING, self.connection)

    def _scan(self, step: Step) -> None:
        has_failed = self.connection == step.master and self.failed
        self._send(wire.SLAVE_FAILED if has_failed else wire.DAEMON_STATUS, step.master)

    def _start(self, step: Step) -> None:
        free = self.owner in (NOBODY, PORTLESS)
        if free:
            self._start_slave(step)
        self._send(wire.START_REPLY, step.master)
        if free:
            self._running()

    def _stop(self, step: Step) -> None:
        if self.owner == step.address:
            self._stop_slave(True)
        self._send(wire.STOP_REPLY, step.master)

    def _steal(self, step: Step) -> None:
        robs = self.owner != step.address
        if robs:
            self._stop_slave(False)
            self._start_slave(step)
        self._send(wire.STEAL_REPLY, step.master)
        if robs:
            self._running()

    def _unexpected(self, step: Step) -> None:
        kind = UNEXPECTED[step.number % len(UNEXPECTED)]
        self.errors.append(f"unexpected message type ({kind})")
        self._send(wire.UNEXPECTED_REPLY, step.master)

    def _invalid(self, step: Step) -> None:
        """Dropped without a reply."""

    def _reconnect(self, step: Step) -> None:
        """The master keeps everything it had."""

    def _vanish(self, step: Step) -> None:
        if self.connection == step.master:
            self._stop_slave(True, absent=step.master)

    def _crash(self, step: Step) -> None:
        if self.slave and not self.failed:
            self.failed = True
            assert self.connection is not None
            self._send(wire.SLAVE_FAILED, self.connection)


def random_step(model: Model, random: Random) -> Step:
    """Returns a step that is likely to be interesting in this state. Starting and stopping the
    slave is slow and therefore rare.
    """
    master = random.randrange(MASTERS)
    address = master if random.random() < 0.9 else random.randrange(STRANGER + 1)
    held = model.slave and model.connection is not None
    action = random.choices(
        ("scan", "start", "stop", "steal", "unexpected", "invalid", "reconnect", "vanish", "crash"),
        (60, 8 if held else 6, 12 if held else 4, 0, 4, 5, 0.6, 0.8, 1),
    )[0]
    if action == "stop" and held and random.random() < 0.6:
        # Most stops come from other masters and are denied; the owner's own are rare.
        master = address = random.choice(
            [other for other in range(MASTERS) if other != model.owner]
        )
    if random.random() < (0.025 if held else 0.01):
        action = "steal"
    return Step(action, master, address, random.randrange(100))


def random_steps(random: Random, count: int) -> list[Step]:
    model = Model()
    steps: list[Step] = []
    for _ in range(count):
        steps.append(random_step(model, random))
        model.apply(steps[-1])
    return steps
