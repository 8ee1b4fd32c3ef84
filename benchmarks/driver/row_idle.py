"""What the daemon costs while nothing happens. Daemon and bare program idle at the same time."""

import time
from contextlib import ExitStack

from figures import Figure, Goal, Row
from processes import Subject

WINDOWS = 6


class Watched:
    """Figures of an idle process, window by window."""

    def __init__(self, program):
        self.program = program
        self.figures = {"CPU time": [], "wake-ups": [], "resident memory": [], "threads": []}
        self.restart()

    def restart(self):
        self.since = time.monotonic()
        self.cpu = self.program.cpu_ns()
        self.switches = self.program.footprint()[0]

    def close_window(self):
        seconds = time.monotonic() - self.since
        switches, resident, threads = self.program.footprint()
        self.figures["CPU time"].append((self.program.cpu_ns() - self.cpu) / 1e6 / seconds)
        self.figures["wake-ups"].append((switches - self.switches) / seconds)
        self.figures["resident memory"].append(resident / 1e6)
        self.figures["threads"].append(threads)
        self.restart()


UNITS = {"CPU time": "ms/s", "wake-ups": "/s", "resident memory": "MB", "threads": "threads"}


def watch(bench, pairs):
    watched = {name: [Watched(subject.program) for subject in pair] for name, pair in pairs.items()}
    for _ in range(WINDOWS):
        time.sleep(bench.milliseconds(30_000 // WINDOWS) / 1000)
        for pair in watched.values():
            for each in pair:
                each.close_window()
        bench.step()
    return watched


def rows(name, pair):
    for key, unit in UNITS.items():
        goal = Goal.ratio_at_most(1.10)
        if key == "resident memory" and name == "10 masters":
            goal = goal.and_also(Goal.value_below(8, "MB"))
        ours, bare = (Figure.of(each.figures[key]) for each in pair)
        yield Row(f"idle, {name}: {key}, against a bare program", ours, unit, bare, goal)


def idle(bench):
    """Idle footprint over 30 s with 0 to 1,000 masters and with a running slave"""
    small = {"no master": 0, "1 master": 1, "10 masters": 10, "100 masters": 100}
    with ExitStack() as stack:
        pairs = {name: [Subject(stack, bench.programs, kind, masters) for kind in ("daemon", "bare_idle")]
                 for name, masters in small.items()}
        with_slave = Subject(stack, bench.programs, "daemon", 1)
        with_slave.masters.do("start")
        with_slave.program.line_with("sending SLAVE_INFO")
        bare = Subject(stack, bench.programs, "bare_idle", 1, with_slave.program.folder / "quelta_standin_slave")
        bare.program.line_with("sending SLAVE_INFO")
        pairs["1 master and a slave"] = [with_slave, bare]
        time.sleep(1)  # the last connections settle
        for name, pair in watch(bench, pairs).items():
            yield from rows(name, pair)

    if not bench.can_have(1000):
        return

    with ExitStack() as stack:
        pair = [Subject(stack, bench.programs, kind, 1000) for kind in ("daemon", "bare_idle")]
        time.sleep(1)
        yield from rows("1000 masters", watch(bench, {"": pair})[""])
