"""The example bytes in docs/protocol.md are those that the tests and the programs use."""

import re
from pathlib import Path

from support import wire

DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "protocol.md"
DUMP_LINE = re.compile(r"^[0-9A-F]{2}  ((?:[0-9A-F]{2} {1,2})*[0-9A-F]{2})(?: {3}.*)?$")


def dump_below(heading):
    """Returns the bytes of the first dump below this heading."""
    _, _, section = DOCUMENT.read_text().partition(f"\n### {heading}\n")
    block = section.split("```")[1]
    return b"".join(
        bytes.fromhex(DUMP_LINE.sub(r"\1", line)) for line in block.strip().splitlines()
    )


def test_beacon():
    assert dump_below("A beacon") == wire.master_record(
        wire.SCAN_REQUEST, ("10.0.0.5", 21000), b"artist 7"
    )


def test_information():
    assert dump_below("The slave's information") == wire.frame(
        wire.slave_record(wire.SLAVE_INFO, 2, 4000000)
    )
