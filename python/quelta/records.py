"""The 92-byte records between masters and daemons, and the frames that carry them over TCP.

Pure functions and values: no sockets, no clock.
"""

from __future__ import annotations

import ipaddress
import struct
from dataclasses import dataclass
from enum import IntEnum

from .errors import RecordError

MAGIC = 0x00234341
VERSION = 8
TYPE_LIMIT = 13
SIZE = 92
TEXT_SIZE = 32
FRAME_MAGIC = 0xF2B49E2C

_LAYOUT = struct.Struct("<IIIIHH32s32sII")
_FRAME_HEADER = struct.Struct("<Ii")


class MessageType(IntEnum):
    """The types that have a meaning. A valid record may have any other type below 13."""

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


@dataclass(frozen=True, slots=True, order=True)
class Address:
    """The IPv4 address and TCP port by which daemons know a master."""

    ip: str
    port: int

    def __str__(self) -> str:
        return f"{self.ip}:{self.port}"


NOBODY = Address("0.0.0.0", 0)


@dataclass(frozen=True, slots=True)
class Record:
    """One record. The texts are bytes without their padding; see `text` and `slave_alias`."""

    type: int
    master_address: Address = NOBODY
    master_text: bytes = b""
    alias: bytes = b""
    gpus: int = 0
    slave_version: int = 0

    @property
    def owner(self) -> Address | None:
        """In a daemon's record: the owner of its slave."""
        address = self.master_address
        return None if address.ip == NOBODY.ip or address.port == 0 else address

    @property
    def text(self) -> str:
        return self.master_text.decode(errors="replace")

    @property
    def slave_alias(self) -> str:
        return self.alias.decode(errors="replace")


def encode(record: Record) -> bytes:
    """Returns the 92 bytes of a record. Raises RecordError if a value does not fit its field."""
    for name, text in (("text", record.master_text), ("alias", record.alias)):
        if len(text) > TEXT_SIZE or b"\0" in text:
            raise RecordError(f"the {name} {text!r} is not up to {TEXT_SIZE} bytes without NULs")
    try:
        return _LAYOUT.pack(
            MAGIC,
            VERSION,
            record.type,
            int(ipaddress.IPv4Address(record.master_address.ip)),
            record.master_address.port,
            0,
            record.master_text,
            record.alias,
            record.gpus,
            record.slave_version,
        )
    except (struct.error, ValueError) as reason:
        raise RecordError(f"cannot encode {record}: {reason}") from reason


def decode(data: bytes) -> Record:
    """Returns the record in these bytes. Raises RecordError if it is invalid."""
    if len(data) != SIZE:
        raise RecordError(f"record has invalid size ({len(data)})")
    (
        magic,
        version,
        kind,
        ip,
        port,
        _,
        text,
        alias,
        gpus,
        slave_version,
    ) = _LAYOUT.unpack(data)
    if magic != MAGIC:
        raise RecordError(f"record has invalid magic (0x{magic:08X})")
    if version != VERSION:
        raise RecordError(f"record has invalid version ({version})")
    if kind >= TYPE_LIMIT:
        raise RecordError(f"record has invalid type ({kind})")
    return Record(
        kind,
        Address(str(ipaddress.IPv4Address(ip)), port),
        text.partition(b"\0")[0],
        alias.partition(b"\0")[0],
        gpus,
        slave_version,
    )


def frame(payload: bytes) -> bytes:
    """Returns the payload as it travels over TCP."""
    return _FRAME_HEADER.pack(FRAME_MAGIC, len(payload)) + payload


class RecordReader:
    """Takes the records out of a TCP stream, however it is cut into pieces.

    Keeps no more than one record in memory, whatever length a frame announces. A frame with a
    wrong magic number makes the rest of the stream useless: `is_broken`.
    """

    def __init__(self) -> None:
        self.is_broken = False
        self._pending = b""
        self._oversize = 0  # the length of the frame that is being skipped
        self._to_skip = 0

    def feed(self, data: bytes) -> list[Record | RecordError]:
        """Returns the records that are now complete, and an error for each invalid one."""
        found: list[Record | RecordError] = []
        if self.is_broken:
            return found
        self._pending += data
        while self._advance(found):
            pass
        return found

    def _advance(self, found: list[Record | RecordError]) -> bool:
        """Consumes one frame, or what is there of one to skip. Returns False to wait for more."""
        if self._to_skip:
            skipped = min(self._to_skip, len(self._pending))
            self._pending = self._pending[skipped:]
            self._to_skip -= skipped
            if self._to_skip == 0:
                found.append(RecordError(f"record has invalid size ({self._oversize})"))
            return self._to_skip == 0
        if len(self._pending) < _FRAME_HEADER.size:
            return False
        magic, length = _FRAME_HEADER.unpack_from(self._pending)
        if magic != FRAME_MAGIC:
            found.append(RecordError(f"frame has invalid magic number (0x{magic:08X})"))
            self.is_broken = True
            return False
        end = _FRAME_HEADER.size + max(length, 0)
        if length > SIZE:
            self._oversize = self._to_skip = length
            self._pending = self._pending[_FRAME_HEADER.size :]
        elif len(self._pending) < end:
            return False
        else:
            payload = self._pending[_FRAME_HEADER.size : end]
            self._pending = self._pending[end:]
            if length > 0:
                found.append(_decoded(payload))
        return True


def _decoded(payload: bytes) -> Record | RecordError:
    try:
        return decode(payload)
    except RecordError as error:
        return error
