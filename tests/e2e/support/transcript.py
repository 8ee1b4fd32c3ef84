"""Expected lines in the complete output of a daemon."""

import re
from pathlib import Path

STAMP = r"\d\d\.\d\d\.\d\d \d\d:\d\d:\d\d"

USAGE = [
    "",
    "command line syntax:",
    '  {program}  --port <daemon port>  --slave "<path to binary>"  [--alias "<slave nickname>"]'
    '  [--gpus "<IDs of GPUs to use>"]'
    "  [--out-of-core <max OOC memory>[k|K|m|M|g|G][,<headroom>[k|K|m|M|g|G]]",
    "",
    "  (k/K = KiloByte, m/M = MegaByte, g/G = GigaByte)",
]

INFORMATION_RUN = ["Launching slave to gather information:", "", "", "", "", ""]


def usage(program: Path) -> list[str]:
    return [line.format(program=program.name) for line in USAGE]


def between_start_and_stop(lines: list[str]) -> list[str]:
    """Returns the lines between the opening and closing lines of a log, and checks those."""
    assert re.fullmatch("Started logging on " + STAMP, lines[0]), lines
    assert lines[1] == "", lines
    assert lines[-3] == "", lines
    assert re.fullmatch("Stopped logging on " + STAMP, lines[-2]), lines
    assert lines[-1] == "", lines
    return lines[2:-3]
