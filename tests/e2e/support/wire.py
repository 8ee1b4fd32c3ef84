"""The bytes on the wire, written independently of the product's code so that its mistakes show."""

import struct
from typing import NamedTuple

FRAME_MAGIC = 0xF2B49E2C

MASTER_MAGIC = 0x00234341
MASTER_VERSION = 8
MASTER_RECORD_SIZE = 92

SCAN_REQUEST = 0
DAEMON_STATUS = 1
START_REQUEST = 2
START_REPLY = 3
STOP_REQUEST = 4
STOP_REPLY = 5
SLAVE_FAILED = 6
SLAVE_RUNNING = 9
STEAL_REQUEST = 11
STEAL_REPLY = 12
UNEXPECTED_REPLY = 13

SLAVE_HEADER = 0x7FCE720D
SLAVE_VERSION = 1

AUTHENTICATING = 0
SLAVE_INFO = 1
SLAVE_STATUS = 2
STOP_SLAVE = 3

Address = tuple[str, int]

NO_ADDRESS: Address = ("0.0.0.0", 0)


def frame(payload: bytes, magic: int = FRAME_MAGIC, length: int | None = None) -> bytes:
    """Returns a message as sent over TCP: magic number, length, payload."""
    return (
        struct.pack("<II", magic, len(payload) if length is None else length & 0xFFFFFFFF) + payload
    )


def ip_number(dotted: str) -> int:
    first, second, third, fourth = (int(part) for part in dotted.split("."))
    return first << 24 | second << 16 | third << 8 | fourth


def dotted(number: int) -> str:
    return ".".join(str(number >> shift & 255) for shift in (24, 16, 8, 0))


def master_record(
    kind: int,
    address: Address = NO_ADDRESS,
    text: bytes = b"",
    alias: bytes = b"",
    gpus: int = 0,
    slave_version: int = 0,
    magic: int = MASTER_MAGIC,
    version: int = MASTER_VERSION,
) -> bytes:
    """Returns the 92-byte record exchanged by masters and the daemon."""
    ip, port = address
    return struct.pack(
        "<IIIIHH32s32sII",
        magic,
        version,
        kind & 0xFFFFFFFF,
        ip_number(ip),
        port,
        0,
        text,
        alias,
        gpus,
        slave_version,
    )


def slave_record(
    kind: int,
    gpus: int = 0,
    slave_version: int = 0,
    header: int = SLAVE_HEADER,
    version: int = SLAVE_VERSION,
) -> bytes:
    """Returns the 20-byte record exchanged by the slave and the daemon."""
    return struct.pack("<IIIII", header, version, kind & 0xFFFFFFFF, gpus, slave_version)


class Status(NamedTuple):
    """The contents of a message from the daemon, compared as a whole by the tests."""

    kind: int
    owner: Address
    text: bytes
    alias: bytes
    gpus: int
    slave_version: int


def read_status(record: bytes) -> Status:
    """Decodes a record of the daemon and asserts the fields that never change."""
    assert len(record) == MASTER_RECORD_SIZE, record.hex()
    magic, version, kind, ip, port, padding, text, alias, gpus, slave_version = struct.unpack(
        "<IIIIHH32s32sII", record
    )
    assert (magic, version, padding) == (MASTER_MAGIC, MASTER_VERSION, 0), record.hex()
    return Status(
        kind, (dotted(ip), port), text.rstrip(b"\0"), alias.rstrip(b"\0"), gpus, slave_version
    )
