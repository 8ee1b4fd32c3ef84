"""A pseudo-terminal; Wine makes it the console of a program whose streams it is."""

from __future__ import annotations

import fcntl
import os
import pty
import re
import struct
import termios
from typing import Any, Iterator

ROWS, COLUMNS = 50, 200

# How Wine displays the NUL that the program writes after each line.
SHOWN_NUL = "?"


class Console:
    """The program's standard streams use `end`; `pipe` reads what the program displays."""

    def __init__(self) -> None:
        self._own, self.end = pty.openpty()
        fcntl.ioctl(self.end, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))

    def take_hold(self) -> None:
        """Makes this the calling process's controlling terminal, so that keys cause signals."""
        fcntl.ioctl(self.end, termios.TIOCSCTTY, 0)

    def streams(self) -> dict[str, Any]:
        """Returns the arguments that connect a program's standard streams to the terminal."""
        return dict.fromkeys(("stdin", "stdout", "stderr"), self.end)

    def started(self) -> None:
        """Closes our copy of the program's end, so that the stream ends with the program."""
        os.close(self.end)

    def pipe(self) -> _Shown:
        """Returns an iterator over the displayed lines, as bytes."""
        return _Shown(self._own)

    def press_ctrl_c(self) -> None:
        os.write(self._own, b"\x03")


class _Shown:
    """Iterates over lines. A plain file object would raise an error at the end of a terminal."""

    def __init__(self, descriptor: int) -> None:
        self._descriptor = descriptor

    def __iter__(self) -> Iterator[bytes]:
        data = b""
        while True:
            try:
                piece = os.read(self._descriptor, 65536)
            except OSError:
                piece = b""
            *lines, data = (data + piece).split(b"\n")
            yield from (as_text(line) for line in lines)
            if not piece:
                return


def as_text(line: bytes) -> bytes:
    """Removes escape sequences from a line; blanks may be cursor movements."""
    line = re.sub(rb"\x1b\[(\d+)C", lambda move: b" " * int(move.group(1)), line)
    return re.sub(rb"\x1b\[[?0-9;]*[a-zA-Z]|\r", b"", line)
