"""A pseudo-terminal, which Wine makes the console of the program that it is given to."""

import fcntl
import os
import pty
import re
import struct
import termios

ROWS, COLUMNS = 50, 200

# Wine shows the NUL that the program writes behind each line as this.
SHOWN_NUL = "?"


class Console:
    """`end` is for the program's standard streams; what the program shows is read from the other end."""

    def __init__(self):
        self._own, self.end = pty.openpty()
        fcntl.ioctl(self.end, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))

    def take_hold(self):
        """Makes this the terminal of the calling process, so that its keys become signals."""
        fcntl.ioctl(self.end, termios.TIOCSCTTY, 0)

    def started(self):
        """Only the program holds its end from now on, so that its end is seen."""
        os.close(self.end)

    def pipe(self):
        """What the program shows, as bytes."""
        return _Shown(self._own)

    def press_ctrl_c(self):
        os.write(self._own, b"\x03")


class _Shown:
    """Iterates over lines like a file; the end of a terminal is an error to plain files."""

    def __init__(self, descriptor):
        self._descriptor = descriptor

    def __iter__(self):
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


def as_text(line):
    """A line without what positions and colours it; blanks are skipped by moving the cursor."""
    line = re.sub(rb"\x1b\[(\d+)C", lambda move: b" " * int(move.group(1)), line)
    return re.sub(rb"\x1b\[[?0-9;]*[a-zA-Z]|\r", b"", line)
