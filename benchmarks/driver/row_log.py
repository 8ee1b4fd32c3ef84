"""Lines a second to a log file."""

import json
import subprocess
import tempfile
from pathlib import Path
from typing import Iterator

from bench import Bench
from figures import Figure, Goal, Row


def lines_per_second(program: Path, threads: int, lines: int) -> float:
    with tempfile.TemporaryDirectory(prefix="quelta-bench-") as folder:
        output = subprocess.run(
            [program, folder, str(threads), str(lines)], check=True, capture_output=True, text=True
        ).stdout
    return json.loads(output)["lines_per_second"]


def log(bench: Bench) -> Iterator[Row]:
    """Log lines a second to a file, with time and prefix"""
    for threads in (1, 4):
        ours: list[float] = []
        theirs: list[float] = []
        for _ in range(bench.rounds(9)):
            for rounds, name in ((ours, "log_lines"), (theirs, "spdlog_lines")):
                rounds.append(
                    lines_per_second(
                        bench.programs / f"quelta_bench_{name}", threads, bench.count(400_000)
                    )
                )
            bench.step()
        text = "1 thread" if threads == 1 else f"{threads} threads"
        yield Row(
            f"log: lines to a file, {text}, against spdlog",
            Figure.of(ours),
            "/s",
            Figure.of(theirs),
            Goal.ratio_above(1),
        )
