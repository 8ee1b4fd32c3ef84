"""Requests of connected masters: round-trip time, processor time, throughput and broadcasts."""

from collections import defaultdict
from contextlib import ExitStack
from typing import Iterator

from bench import Bench
from figures import Figure, Goal, Row
from processes import Subject, running, side_by_side

ECHOES = {"juce_echo": "JUCE echo", "plain_echo": "plain TCP echo"}


def scan_rounds(
    bench: Bench, masters: int, rounds: int, milliseconds: int
) -> dict[str, dict[str, Figure]]:
    """Returns one figure per subject and quantity, taken over all rounds."""
    seen: dict[str, dict[str, list[float]]] = defaultdict(lambda: defaultdict(list))
    with side_by_side(bench.programs, ["daemon", *ECHOES], masters) as subjects:
        for number in range(rounds + 1):
            for name, subject in subjects.items():
                with running(subject):
                    before = subject.program.cpu_ns()
                    answer = subject.masters.do("scan", masters, milliseconds)
                    cpu = subject.program.cpu_ns() - before
                if number == 0:
                    continue  # warm-up
                figures = seen[name]
                figures["median"].append(answer["median_ns"] / 1000)
                figures["p99"].append(answer["p99_ns"] / 1000)
                figures["cpu"].append(cpu / answer["requests"] / 1000)
                figures["rate"].append(answer["requests"] * 1e9 / answer["ns"])
            bench.step()
    return {
        name: {key: Figure.of(values) for key, values in figures.items()}
        for name, figures in seen.items()
    }


def scan(bench: Bench) -> Iterator[Row]:
    """Round trip of a scan request with one master: time and processor time"""
    goals = {"median": Goal.ratio_at_most(1.15), "cpu": Goal.ratio_at_most(1.25)}
    texts = {
        "median": "median round trip",
        "p99": "99th percentile of round trips",
        "cpu": "CPU time a request",
    }
    figures = scan_rounds(bench, 1, bench.rounds(9), bench.milliseconds(600))
    for key, text in texts.items():
        for echo, echo_text in ECHOES.items():
            goal = goals.get(key) if echo == "juce_echo" else None
            yield Row(
                f"scan: {text}, against a {echo_text}",
                figures["daemon"][key],
                "us",
                figures[echo][key],
                goal,
            )


def throughput(bench: Bench) -> Iterator[Row]:
    """Scans a second with 1, 10 and 100 masters asking at once"""
    for masters in (1, 10, 100):
        figures = scan_rounds(bench, masters, bench.rounds(5), bench.milliseconds(500))
        for echo, echo_text in ECHOES.items():
            asking = "1 master" if masters == 1 else f"{masters} masters"
            yield Row(
                f"scans with {asking} at once, against a {echo_text}",
                figures["daemon"]["rate"],
                "/s",
                figures[echo]["rate"],
            )


def broadcast_rounds(bench: Bench, name: str, masters: int) -> Iterator[float]:
    """Yields the milliseconds from a start request to the last master's status message.

    Each call starts a new subject: in a paused and resumed one, the threads of all connections
    would wake up at the same moment from then on.
    """
    with ExitStack() as stack:
        subject = Subject(stack, bench.programs, name, masters)
        for _ in range(bench.rounds(3)):
            answer = subject.masters.do("start")
            yield (answer["last_status_ns"] - answer["sent_ns"]) / 1e6
            if name == "daemon":
                subject.masters.do("stop", subject.daemon.slave_pid())


def broadcast(bench: Bench) -> Iterator[Row]:
    """From a start request to the last master knowing of it"""
    for masters in filter(bench.can_have, (10, 100, 1000)):
        seen: dict[str, list[float]] = {"daemon": [], "juce_echo": []}
        for _ in range(bench.rounds(4)):
            for name, rounds in seen.items():
                rounds += broadcast_rounds(bench, name, masters)
            bench.step()
        goal = Goal.value_below(50, "ms") if masters == 1000 else None
        yield Row(
            f"broadcast: start request to the last of {masters} masters, "
            "against JUCE's sends alone",
            Figure.of(seen["daemon"]),
            "ms",
            Figure.of(seen["juce_echo"]),
            goal,
        )
