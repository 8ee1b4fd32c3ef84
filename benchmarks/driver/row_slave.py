"""Starting and stopping the slave and the daemon."""

import os
import random
import time
from contextlib import ExitStack
from typing import Iterator

from bench import Bench
from figures import Figure, Goal, Row
from processes import Daemon, Masters, Subject

POLL = 100  # ms between checks of a slave, of the information run, and of the beacon thread's exit
STOP_CHECK = 2  # ms between checks whether the watching thread has ended
TICK = 500  # ms between attempts to connect to registered masters


def start_slave(daemon: Daemon, masters: Masters) -> tuple[int, float]:
    """Returns the slave's process id and the milliseconds from the request to its first line."""
    sent = masters.do("start")["sent_ns"]
    at, _ = daemon.line_with("standin: argument 0: ")
    pid = daemon.slave_pid()
    daemon.line_with("sending SLAVE_INFO")
    return pid, (at - sent) / 1e6


def plain_launch(slave: str) -> float:
    """Returns the milliseconds from a bare spawn of the slave to its first line."""
    output, child_output = os.pipe()
    started = time.monotonic_ns()
    child = os.posix_spawn(
        slave, [slave], os.environ, file_actions=[(os.POSIX_SPAWN_DUP2, child_output, 1)]
    )
    os.read(output, 1)
    took = (time.monotonic_ns() - started) / 1e6
    os.waitpid(child, 0)
    os.close(output)
    os.close(child_output)
    return took


def polls(milliseconds: float) -> Figure:
    return Figure(milliseconds, 0.0)


def launch(bench: Bench) -> Iterator[Row]:
    """From a request to a running slave, and from its end to the notification"""
    launched: list[float] = []
    plain: list[float] = []
    notified: list[float] = []
    replied: list[float] = []
    with ExitStack() as stack:
        subject = Subject(stack, bench.programs, "daemon", 1)
        daemon, masters = subject.daemon, subject.masters
        for _ in range(bench.rounds(12)):
            pid, took = start_slave(daemon, masters)
            launched.append(took)
            plain.append(plain_launch(str(daemon.folder / "quelta_standin_slave")))
            time.sleep(random.uniform(0, POLL / 1000))
            answer = masters.do("kill", pid)
            notified.append((answer["told_ns"] - answer["ended_ns"]) / 1e6)
            masters.do("stop")

            pid, took = start_slave(daemon, masters)
            launched.append(took)
            time.sleep(random.uniform(0, POLL / 1000))
            answer = masters.do("stop", pid)
            replied.append((answer["replied_ns"] - answer["ended_ns"]) / 1e6)
            bench.step()

    yield Row(
        "launch: start request to the slave's first line, against a bare spawn",
        Figure.of(launched),
        "ms",
        Figure.of(plain),
        Goal.value_below(10, "ms"),
    )
    yield Row(
        "end of a slave to the owner being told (longest), against the poll",
        Figure.of(notified, max),
        "ms",
        polls(POLL),
        Goal.value_below(POLL + 10, "ms"),
    )
    yield Row(
        "end of an obedient slave to the stop reply (longest), against the polls",
        Figure.of(replied, max),
        "ms",
        polls(POLL + STOP_CHECK),
        Goal.value_below(POLL + STOP_CHECK + 10, "ms"),
    )


def start_up(bench: Bench) -> float:
    """Returns the milliseconds from launch to a master's connection, without the slave's share."""
    with ExitStack() as stack:
        daemon = stack.enter_context(Daemon(bench.programs))
        masters = stack.enter_context(Masters(bench.programs, 1, daemon.port))
        masters.command("announce")
        slave_started, _ = daemon.line_with("standin: argument 0: ")
        slave_ended, _ = daemon.line_with("standin: exit status 0")
        connected = masters.answer()["connected_ns"]
    return (connected - daemon.started_ns - (slave_ended - slave_started)) / 1e6


def shut_down(bench: Bench, kind: str, masters: int) -> float:
    with ExitStack() as stack:
        took = Subject(stack, bench.programs, kind, masters).program.end()
    return took / 1e6


def startup(bench: Bench) -> Iterator[Row]:
    """Start-up to a master's connection, and shutdown"""
    starts: list[float] = []
    ends: list[float] = []
    bare_ends: list[float] = []
    for _ in range(bench.rounds(8)):
        starts.append(start_up(bench))
        ends.append(shut_down(bench, "daemon", 10))
        bare_ends.append(shut_down(bench, "bare_idle", 10))
        bench.step()

    demanded = 2 * POLL + TICK
    yield Row(
        "start-up to a master's connection (longest), against the polls",
        Figure.of(starts, max),
        "ms",
        polls(demanded),
        Goal.value_below(demanded + 50, "ms"),
    )
    yield Row(
        "shutdown without a slave, 10 masters (longest), against a bare program",
        Figure.of(ends, max),
        "ms",
        Figure.of(bare_ends, max),
        Goal.value_below(250, "ms"),
    )
