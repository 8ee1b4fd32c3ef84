"""Beacons of a master that the daemon already knows."""

import pathlib
import time
from contextlib import ExitStack
from typing import Iterator

from bench import Bench
from figures import Figure, Goal, Row
from processes import BenchmarkError, Daemon, Masters, Program, free_port

STEADY_RATE = 20_000  # beacons a second
LOWEST_RATE = 5_000


def queue_and_drops(port: int) -> tuple[int, int]:
    """Returns the bytes queued in the UDP socket on a port, and the datagrams it has dropped."""
    for line in pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]:
        fields = line.split()
        if int(fields[1].split(":")[1], 16) == port:
            return int(fields[4].split(":")[1], 16), int(fields[-1])
    raise BenchmarkError(f"no socket is bound to UDP port {port}")


def wait_until_received(port: int) -> None:
    while queue_and_drops(port)[0] > 0:
        time.sleep(0.001)


class Listener:
    """A program that receives beacons, and the master that sends them."""

    def __init__(
        self, stack: ExitStack, programs: pathlib.Path, port: int, program: Program | None = None
    ) -> None:
        self.port = port
        self.masters = stack.enter_context(Masters(programs, 1, port))
        self.program = program or stack.enter_context(
            Program([programs / "quelta_bench_beacon_loop", port])
        )

    def send(self, count: int, rate: float) -> tuple[float, int]:
        """Returns the actual send rate and the number of datagrams lost."""
        lost_before = queue_and_drops(self.port)[1]
        answer = self.masters.do("beacons", count, int(rate))
        wait_until_received(self.port)
        return count * 1e9 / answer["ns"], queue_and_drops(self.port)[1] - lost_before

    def cpu_per_beacon(self, count: int) -> float:
        before = self.program.cpu_ns()
        self.send(count, STEADY_RATE)
        return (self.program.cpu_ns() - before) / count / 1000

    def highest_rate(self, seconds: float, steps: int) -> float:
        """Returns the highest lossless rate, found by bisection, or the sender's maximum rate."""
        rate, lost = self.send(int(200_000 * seconds), 0)
        if lost == 0:
            return rate
        low, high = float(LOWEST_RATE), rate
        for _ in range(steps):
            middle = (low + high) / 2
            _, lost = self.send(int(middle * seconds), middle)
            low, high = (middle, high) if lost == 0 else (low, middle)
        return low


def beacons(bench: Bench) -> Iterator[Row]:
    """Beacons of a known master: processor time and how many a second"""
    with ExitStack() as stack:
        daemon = stack.enter_context(Daemon(bench.programs))
        daemon.pass_over_start()
        listeners = [
            Listener(stack, bench.programs, daemon.port, daemon),
            Listener(stack, bench.programs, free_port()),
        ]
        listeners[0].masters.do("announce")
        listeners[1].program.line_with("ready")

        costs: tuple[list[float], list[float]] = ([], [])
        rates: tuple[list[float], list[float]] = ([], [])
        for _ in range(bench.rounds(9)):
            for cost, listener in zip(costs, listeners):
                cost.append(listener.cpu_per_beacon(bench.count(8_000)))
            bench.step()
        for _ in range(bench.rounds(5)):
            for rate, listener in zip(rates, listeners):
                rate.append(listener.highest_rate(bench.milliseconds(300) / 1000, 6))
            bench.step()

    yield Row(
        "beacons: CPU time a beacon of a known master, against a bare loop",
        Figure.of(costs[0]),
        "us",
        Figure.of(costs[1]),
        Goal.ratio_at_most(1.3),
    )
    yield Row(
        "beacons a second without loss (best round), against a bare loop",
        Figure.of(rates[0], max),
        "/s",
        Figure.of(rates[1], max),
    )
