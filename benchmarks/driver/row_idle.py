"""The cost of an idle daemon. The daemon and the bare program idle at the same time."""

import time
from contextlib import ExitStack
from typing import Iterator, Sequence

from bench import Bench
from figures import Figure, Goal, Row
from processes import Program, Subject

WINDOWS = 6
SETTLING_SECONDS = 1  # after the last connection, before the figures are steady


class Watched:
    """Figures of an idle process, window by window."""

    def __init__(self, program: Program) -> None:
        self.program = program
        self.figures: dict[str, list[float]] = {
            "CPU time": [],
            "wake-ups": [],
            "resident memory": [],
            "threads": [],
        }
        self.restart()

    def restart(self) -> None:
        self.since = time.monotonic()
        self.cpu = self.program.cpu_ns()
        self.switches = self.program.footprint()[0]

    def close_window(self) -> None:
        seconds = time.monotonic() - self.since
        switches, resident, threads = self.program.footprint()
        self.figures["CPU time"].append((self.program.cpu_ns() - self.cpu) / 1e6 / seconds)
        self.figures["wake-ups"].append((switches - self.switches) / seconds)
        self.figures["resident memory"].append(resident / 1e6)
        self.figures["threads"].append(threads)
        self.restart()


UNITS = {"CPU time": "ms/s", "wake-ups": "/s", "resident memory": "MB", "threads": "threads"}


class Pair:
    """A daemon and a bare program with the same number of masters and, optionally, a slave."""

    def __init__(
        self, stack: ExitStack, bench: Bench, masters: int, with_slave: bool = False
    ) -> None:
        ours = Subject(stack, bench.programs, "daemon", masters)
        slave = [ours.daemon.folder / "quelta_standin_slave"] if with_slave else []
        bare = Subject(stack, bench.programs, "bare_idle", masters, *slave)
        if with_slave:
            ours.masters.do("start")
            for subject in (ours, bare):
                subject.program.line_with("sending SLAVE_INFO")
        self.watched = [Watched(subject.program) for subject in (ours, bare)]


def watch(bench: Bench, pairs: Sequence[Pair]) -> None:
    time.sleep(SETTLING_SECONDS)
    watched = [each for pair in pairs for each in pair.watched]
    for each in watched:
        each.restart()
    for _ in range(WINDOWS):
        time.sleep(bench.milliseconds(30_000 // WINDOWS) / 1000)
        for each in watched:
            each.close_window()
        bench.step()


def rows(name: str, pairs: Sequence[Pair]) -> Iterator[Row]:
    """Yields one row per figure; the windows of all pairs have the same weight."""
    for key, unit in UNITS.items():
        goal = Goal.ratio_at_most(1.10)
        if key == "resident memory" and name == "10 masters":
            goal = goal.and_also(Goal.value_below(8, "MB"))
        ours, bare = (
            Figure.of([value for pair in pairs for value in pair.watched[which].figures[key]])
            for which in (0, 1)
        )
        yield Row(f"idle, {name}: {key}, against a bare program", ours, unit, bare, goal)


def idle(bench: Bench) -> Iterator[Row]:
    """Idle footprint over 30 s with 0 to 1,000 masters and with a running slave"""
    # Several pairs where single wake-ups matter, because timers may coincide by chance.
    few = bench.rounds(3)
    with ExitStack() as stack:
        pairs = {
            "no master": [Pair(stack, bench, 0) for _ in range(few)],
            "1 master": [Pair(stack, bench, 1) for _ in range(few)],
            "10 masters": [Pair(stack, bench, 10) for _ in range(few)],
            "100 masters": [Pair(stack, bench, 100)],
            "1 master and a slave": [Pair(stack, bench, 1, with_slave=True) for _ in range(few)],
        }
        watch(bench, [pair for each in pairs.values() for pair in each])
        for name, each in pairs.items():
            yield from rows(name, each)

    if not bench.can_have(1000):
        return

    with ExitStack() as stack:
        pair = Pair(stack, bench, 1000)
        watch(bench, [pair])
        yield from rows("1000 masters", [pair])
