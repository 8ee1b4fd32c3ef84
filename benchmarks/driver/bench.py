"""What every benchmark is given."""

import pathlib
import sys

from processes import raise_descriptor_limit

SPARE_DESCRIPTORS = 60


class Bench:
    """The settings of a run: the programs, the amount of work, and the progress display."""

    def __init__(self, programs: pathlib.Path, short: bool) -> None:
        self.programs = programs
        self.short = short
        self.descriptor_limit = raise_descriptor_limit()

    def rounds(self, usual: int) -> int:
        return 1 if self.short else usual

    def milliseconds(self, usual: int) -> int:
        return max(50, usual // 20) if self.short else usual

    def count(self, usual: int) -> int:
        return usual // 20 if self.short else usual

    def can_have(self, masters: int) -> bool:
        """Returns whether one program may hold this many connections; prints a note if not."""
        enough = self.descriptor_limit >= masters + SPARE_DESCRIPTORS
        if not enough:
            print(
                f"(no {masters} masters: the limit is {self.descriptor_limit} open files)",
                end="",
                file=sys.stderr,
                flush=True,
            )
        return enough

    def step(self) -> None:
        print(".", end="", file=sys.stderr, flush=True)
