"""Plays the model's steps on a real daemon and compares everything that the masters receive."""

import os
import signal
from typing import Callable, Iterable, Sequence

from . import wire
from .master import Master
from .model import MASTERS, NOBODY, PORTLESS, UNEXPECTED, Message, Model, Step
from .node import Node, wait_until

STRANGERS_ADDRESS = ("10.9.8.7", 21000)


class Disagreement(AssertionError):
    """The daemon behaved differently from the model at this step."""

    def __init__(self, number: int, step: Step, what: object) -> None:
        super().__init__(f"step {number}, {step}: {what}")
        self.number = number


class ModelRun:
    """One daemon and its masters, driven through a list of steps."""

    def __init__(self, node: Node, masters: Sequence[Master]) -> None:
        self.node = node
        self.masters = masters
        self.model = Model()
        self.slaves: set[int] = set()
        self.current_slave = 0

    def play(self, steps: Iterable[Step]) -> None:
        for number, step in enumerate(steps):
            try:
                self._play(step)
            except (AssertionError, OSError, EOFError) as error:
                raise Disagreement(number, step, error) from error
        self._compare_errors()

    def _play(self, step: Step) -> None:
        changes, had_slave = self.model.changes, self.model.slave and not self.model.failed
        expected = self.model.apply(step)
        getattr(self, "_" + step.action)(step, had_slave)
        # The requester first: its reply is the last message that the daemon sends.
        order = [step.master, *(other for other in range(MASTERS) if other != step.master)]
        for number in order:
            for message in expected[number]:
                received, wanted = self.masters[number].receive(), self._status(message)
                assert received == wanted, f"master {number} got {received}, expected {wanted}"
        if step.action == "vanish":
            self.masters[step.master].return_to(self.node)
        if self.model.changes != changes and self.model.slave:
            self._note_new_slave()

    def _address(self, number: int) -> wire.Address:
        if number < MASTERS:
            return self.masters[number].address
        return {NOBODY: wire.NO_ADDRESS, PORTLESS: (self.masters[0].address[0], 0)}.get(
            number, STRANGERS_ADDRESS
        )

    def _status(self, message: Message) -> wire.Status:
        text = b"" if message.text_of is None else self.masters[message.text_of].text
        return self.node.status(message.kind)._replace(
            owner=self._address(message.owner), text=text
        )

    def _note_new_slave(self) -> None:
        """Records the current slave: replaced slaves keep running, so it is the one that is new."""
        new = set(self.node.slave_processes()) - self.slaves
        assert len(new) == 1, f"{len(new)} new slaves"
        self.current_slave = new.pop()
        self.slaves.add(self.current_slave)

    def _request(self, step: Step, kind: int) -> None:
        self.masters[step.master].request(kind, address=self._address(step.address))

    def _scan(self, step: Step, _: bool) -> None:
        self._request(step, wire.SCAN_REQUEST)

    def _start(self, step: Step, _: bool) -> None:
        self._request(step, wire.START_REQUEST)

    def _stop(self, step: Step, _: bool) -> None:
        self._request(step, wire.STOP_REQUEST)

    def _steal(self, step: Step, _: bool) -> None:
        self._request(step, wire.STEAL_REQUEST)

    def _unexpected(self, step: Step, _: bool) -> None:
        self._request(step, UNEXPECTED[step.number % len(UNEXPECTED)])

    def _invalid(self, step: Step, _: bool) -> None:
        good = self.masters[step.master].record(wire.START_REQUEST)
        bad = (
            good[:91],
            good + b"\0",
            b"\0" + good[1:],
            good[:4] + b"\7" + good[5:],
            good[:8] + b"\x0d" + good[9:],
        )
        self.masters[step.master].connection.send(bad[step.number % len(bad)])

    def _reconnect(self, step: Step, _: bool) -> None:
        self.masters[step.master].connection.close()
        self.masters[step.master].accept()

    def _vanish(self, step: Step, _: bool) -> None:
        self.masters[step.master].vanish()

    def _crash(self, step: Step, had_slave: bool) -> None:
        if had_slave:
            os.kill(self.current_slave, signal.SIGKILL)

    def _compare_errors(self) -> None:
        """Asserts that the daemon logged exactly the model's errors."""
        logged = [line for line in self.node.quit() if line.startswith("ERROR")]
        wanted = ["ERROR     : " + text for text in self.model.errors]
        assert logged == wanted, f"errors {logged}, expected {wanted}"
        wait_until(lambda: not self.node.slave_processes(), "no slave is left")


def shortened(steps: list[Step], fails: Callable[[list[Step]], object], tries: int) -> list[Step]:
    """Returns the steps without those the failure does not need, removing larger pieces first."""
    size = max(1, len(steps) // 2)
    while size and tries > 0:
        start = 0
        while start < len(steps) and tries > 0:
            candidate = steps[:start] + steps[start + size :]
            tries -= 1
            if candidate and fails(candidate):
                steps = candidate
            else:
                start += size
        size //= 2
    return steps
