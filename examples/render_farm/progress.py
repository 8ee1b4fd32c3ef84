"""What the terminal shows: numbered steps, and below them a bar that grows with the frames."""

from __future__ import annotations

import sys
import threading
import time
from collections.abc import Collection, Sequence
from typing import TextIO

COLUMNS = 24
ERASE = "\r\033[K"


def bar(
    done: int, total: int, seconds: float, nodes: Sequence[str], present: Collection[str]
) -> str:
    """Returns the bar's text. A node that is away has dashes in place of its name."""
    filled = COLUMNS * done // total if total else COLUMNS
    marks = "#" * filled + "." * (COLUMNS - filled)
    names = " ".join(node if node in present else "-" * len(node) for node in nodes)
    return f"        [{marks}] {done:2}/{total} frames {seconds:4.0f} s  {names}"


class Progress:
    """Prints lines and the bar. Any thread may call it; the lock guards the output and the bar.

    A terminal shows the bar in place; a file gets a line for every sixth of the frames.
    """

    def __init__(self, total: int, output: TextIO = sys.stdout) -> None:
        self._total = total
        self._output = output
        self._in_place = output.isatty()
        self._lock = threading.Lock()
        self._began = time.monotonic()
        self._bar = ""

    def say(self, text: str) -> None:
        with self._lock:
            self._erase()
            print(text, file=self._output, flush=True)
            self._draw()

    def show(self, done: int, nodes: Sequence[str], present: Collection[str]) -> None:
        """Shows how many frames are done and which of the nodes are at work."""
        with self._lock:
            seconds = time.monotonic() - self._began if self._bar else 0.0
            if not self._bar:
                self._began = time.monotonic()
            self._erase()
            self._bar = bar(done, self._total, seconds, nodes, present)
            if self._in_place:
                self._draw()
            elif done % max(self._total // 6, 1) == 0:
                print(self._bar, file=self._output, flush=True)

    def finish(self) -> None:
        """Leaves the bar where it is."""
        with self._lock:
            if self._in_place and self._bar:
                print(file=self._output, flush=True)
            self._bar = ""

    def _erase(self) -> None:
        if self._in_place and self._bar:
            self._output.write(ERASE)

    def _draw(self) -> None:
        if self._in_place and self._bar:
            self._output.write(self._bar)
            self._output.flush()
