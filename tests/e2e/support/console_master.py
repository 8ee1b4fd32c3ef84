"""Runs the console master and collects its output."""

import os
import re
import signal
import subprocess
from typing import Any

from . import programs
from .limits import HANG_LIMIT
from .output import Output

PROGRAM = "quelta_master" + programs.SUFFIX

# The time-out of the program's own waits, in seconds; beyond any wait of a test.
PATIENCE = "60"


def command(*arguments: str) -> list[str]:
    return programs.command(programs.bin_dir() / PROGRAM, *arguments)


def run(*arguments: str, **settings: Any) -> subprocess.CompletedProcess[str]:
    """Runs the console master until it exits; returns the completed process."""
    usual: dict[str, Any] = {
        "stdin": subprocess.DEVNULL,
        "stdout": subprocess.PIPE,
        "stderr": subprocess.PIPE,
    }
    return subprocess.run(
        command(*arguments), timeout=HANG_LIMIT, encoding="utf-8", **{**usual, **settings}
    )


class Lines(Output):
    def wait_line(self, pattern: str, after: int = -1) -> int:
        """Waits for a full-line match after line number `after`; returns its number."""
        return self._wait_for(re.compile(pattern).fullmatch, f"pattern {pattern!r}", after)[0]


class ConsoleMaster:
    """A running console master; its streams are collected in `output` and `errors`."""

    def __init__(self, *arguments: str, stdout: int = subprocess.PIPE) -> None:
        self.process = subprocess.Popen(
            command(*arguments),
            stdin=subprocess.DEVNULL,
            stdout=stdout,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )
        self.output = Lines(self.process.stdout or ())
        self.errors = Lines(self.process.stderr or ())

    def interrupt(self, signal_number: int = signal.SIGINT) -> None:
        os.kill(self.process.pid, signal_number)

    def wait_exit(self) -> int:
        return self.process.wait(HANG_LIMIT)

    def close(self) -> None:
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(HANG_LIMIT)
