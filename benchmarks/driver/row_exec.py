"""The cost of the exec slave between the daemon and the program that it runs."""

from __future__ import annotations

import random
import re
import time
from contextlib import ExitStack
from pathlib import Path
from typing import Iterator

from bench import Bench
from figures import Figure, Goal, Row
from processes import Daemon, Masters
from row_slave import POLL, polls, start_slave

WINDOWS = 6
SETTLING_SECONDS = 2  # after the start, before the figures are steady


class ExecDaemon(Daemon):
    """A daemon whose slave is the exec slave with the idle program."""

    slave = "quelta_exec_slave"
    slave_file = "quelta_exec_slave.toml"

    def __init__(self, programs: Path, gpus: str) -> None:
        program = programs.resolve() / "quelta_bench_idle_program"
        super().__init__(
            programs, f'command = ["{program}"]\ngpus = {gpus}\nready.line = "^first instruction"\n'
        )

    def start(self, masters: Masters) -> tuple[int, float]:
        """Returns the program's id and the milliseconds from request to first instruction."""
        sent = masters.do("start")["sent_ns"]
        numbers = self.last_words("exec slave: started ", "first instruction: ", "is ready")
        return int(numbers[0]), (int(numbers[1]) - sent) / 1e6

    def last_words(self, *texts: str) -> list[str]:
        """Waits for lines with these texts, in any order, and returns the last word of each."""
        found: dict[str, str] = {}
        while len(found) < len(texts):
            line = self.next_line()[1]
            found |= {text: line.split()[-1] for text in texts if text in line}
        return [found[text] for text in texts]


class Pair:
    """A daemon with a master that is connected."""

    def __init__(self, stack: ExitStack, bench: Bench, daemon: Daemon) -> None:
        self.daemon = stack.enter_context(daemon)
        self.masters = stack.enter_context(Masters(bench.programs, 1, daemon.port))
        daemon.pass_over_start()
        self.masters.do("announce")


def descendants(process: int) -> list[int]:
    """Returns the children of a process, their children, and so on."""
    found = []
    for task in Path(f"/proc/{process}/task").iterdir():
        for child in map(int, (task / "children").read_text().split()):
            found += [child, *descendants(child)]
    return found


class Footprint:
    """Figures of the processes of an idle slave, window by window."""

    def __init__(self, processes: list[int]) -> None:
        self.processes = processes
        self.cpu: list[float] = []
        self.wakeups: list[float] = []
        self.memory: list[float] = []
        self.restart()

    def restart(self) -> None:
        self.since, self.used, self.switched = time.monotonic(), self._cpu_ns(), self._switches()

    def close_window(self) -> None:
        seconds = time.monotonic() - self.since
        self.cpu.append((self._cpu_ns() - self.used) / 1e6 / seconds)
        self.wakeups.append((self._switches() - self.switched) / seconds)
        self.memory.append(self._proportional_bytes() / 1e6)
        self.restart()

    def _cpu_ns(self) -> int:
        return sum(time.clock_gettime_ns((~process << 3) | 2) for process in self.processes)

    def _switches(self) -> int:
        return sum(
            int(number)
            for process in self.processes
            for task in Path(f"/proc/{process}/task").iterdir()
            for number in re.findall(r"ctxt_switches:\s+(\d+)", (task / "status").read_text())
        )

    def _proportional_bytes(self) -> int:
        """Returns the memory, in which a page shared by several processes counts in parts."""
        rolled = (Path(f"/proc/{process}/smaps_rollup").read_text() for process in self.processes)
        return 1024 * sum(int(re.findall(r"\nPss:\s+(\d+)", text)[0]) for text in rolled)


def starts_and_ends(bench: Bench, gpus: str) -> tuple[list[float], list[float], list[float]]:
    """Returns starts of the program, starts of the stand-in, and times from the program's end until
    the owner was told, all in milliseconds."""
    ours: list[float] = []
    standins: list[float] = []
    notified: list[float] = []
    with ExitStack() as stack:
        daemon = ExecDaemon(bench.programs, gpus)
        pair = Pair(stack, bench, daemon)
        other = Pair(stack, bench, Daemon(bench.programs))
        for _ in range(bench.rounds(12)):
            program, took = daemon.start(pair.masters)
            ours.append(took)
            time.sleep(random.uniform(0, POLL / 1000))
            answer = pair.masters.do("kill", program)
            notified.append((answer["told_ns"] - answer["ended_ns"]) / 1e6)
            pair.masters.do("stop")

            _, took = start_slave(other.daemon, other.masters)
            standins.append(took)
            other.masters.do("stop")
            bench.step()
    return ours, standins, notified


def idle_footprints(bench: Bench) -> list[Footprint]:
    """Returns those of the exec slave without its program, and of the stand-in."""
    with ExitStack() as stack:
        daemon = ExecDaemon(bench.programs, "0")
        pair = Pair(stack, bench, daemon)
        other = Pair(stack, bench, Daemon(bench.programs))
        program, _ = daemon.start(pair.masters)
        standin, _ = start_slave(other.daemon, other.masters)
        footprints = [
            Footprint([each for each in descendants(daemon.pid) if each != program]),
            Footprint([standin]),
        ]
        time.sleep(SETTLING_SECONDS)
        for each in footprints:
            each.restart()
        for _ in range(WINDOWS):
            time.sleep(bench.milliseconds(18_000 // WINDOWS) / 1000)
            for each in footprints:
                each.close_window()
            bench.step()
    return footprints


def exec_slave(bench: Bench) -> Iterator[Row]:
    """What the exec slave costs: start of its program, idling, and the program's end"""
    ours, standins, notified = starts_and_ends(bench, "0")
    text = "exec slave: start request to the program's first instruction"
    standin = "against the stand-in's first line"
    yield Row(f"{text}, {standin}", Figure.of(ours), "ms", Figure.of(standins))
    detecting, standins, _ = starts_and_ends(bench, '"auto"')
    yield Row(
        f"{text} after detecting GPUs, {standin}",
        Figure.of(detecting),
        "ms",
        Figure.of(standins),
    )
    mine, others = idle_footprints(bench)
    for name, unit, key, goal in (
        ("CPU time", "ms/s", "cpu", Goal.value_below(1, "ms/s")),
        ("wake-ups", "/s", "wakeups", None),
        ("memory (PSS)", "MB", "memory", Goal.value_below(8, "MB")),
    ):
        yield Row(
            f"exec slave, idle with its guardian: {name}, against the stand-in",
            Figure.of(getattr(mine, key)),
            unit,
            Figure.of(getattr(others, key)),
            goal,
        )
    yield Row(
        "exec slave: end of the program to the owner being told (longest), against the poll",
        Figure.of(notified, max),
        "ms",
        polls(POLL),
        Goal.value_below(POLL + 20, "ms"),
    )
