"""Reads the output of a running program live, line by line."""

import re
import threading
import time
from typing import Callable, Iterable, TypeVar

from .limits import HANG_LIMIT

T = TypeVar("T")

PREFIX_WIDTH = 12


def daemon_line(text: str) -> str:
    """Returns a line logged under the daemon's flags as it looks with logPrefix."""
    return "daemon    : " + text


def error_line(text: str) -> str:
    return "ERROR     : " + text


def plain_line(text: str) -> str:
    return " " * PREFIX_WIDTH + text


class Output:
    """Collects the lines of a pipe on its own thread and wakes every waiter when a line arrives."""

    def __init__(self, pipe: Iterable[bytes]) -> None:
        self._pipe = pipe
        self._changed = threading.Condition()
        self._lines: list[str] = []
        self._ended = False
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self) -> None:
        for raw in self._pipe:
            line = raw.rstrip(b"\n").rstrip(b"\r").decode("utf-8", "surrogateescape")
            with self._changed:
                self._lines.append(line)
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def lines(self) -> list[str]:
        with self._changed:
            return list(self._lines)

    def rest(self) -> list[str]:
        """Waits for the end of the stream and returns all lines."""
        with self._changed:
            if not self._changed.wait_for(lambda: self._ended, HANG_LIMIT):
                raise AssertionError("the stream did not end\n" + self._numbered())
            return list(self._lines)

    def wait(self, text: str, after: int = -1) -> int:
        """Waits for exactly this line after line number `after`; returns its number."""
        return self._wait_for(lambda line: line == text, repr(text), after)[0]

    def wait_match(self, pattern: str, after: int = -1) -> re.Match[str]:
        """Waits for a full-line match; returns the match."""
        compiled = re.compile(pattern)
        return self._wait_for(compiled.fullmatch, f"pattern {pattern!r}", after)[1]

    def wait_sequence(self, texts: Iterable[str], after: int = -1) -> int:
        """Waits for these lines in order, allowing others between them; returns the last number."""
        for text in texts:
            after = self.wait(text, after)
        return after

    def count(self, text: str) -> int:
        return self.lines().count(text)

    def _wait_for(
        self, accept: Callable[[str], T | None], wanted: str, after: int
    ) -> tuple[int, T]:
        deadline = time.monotonic() + HANG_LIMIT
        position = after + 1
        with self._changed:
            while True:
                while position < len(self._lines):
                    found = accept(self._lines[position])
                    if found:
                        return position, found
                    position += 1
                if self._ended:
                    raise AssertionError(
                        f"the stream ended without {wanted} after line {after}\n" + self._numbered()
                    )
                if not self._changed.wait(deadline - time.monotonic()):
                    raise AssertionError(
                        f"timed out waiting for {wanted} after line {after}\n" + self._numbered()
                    )

    def _numbered(self) -> str:
        return "\n".join(f"{number:4} | {line}" for number, line in enumerate(self._lines))
