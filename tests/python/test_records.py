"""Records and frames against bytes written by hand."""

import string

import pytest
from hypothesis import given
from hypothesis import strategies as st

from quelta.errors import RecordError
from quelta.records import Address, MessageType, Record, RecordReader, decode, encode, frame

BEACON = bytes.fromhex(
    "41432300 08000000 00000000 0500000A"
    "0852 0000 61727469 73742037" + "00" * 24 + "00" * 32 + "00000000 00000000"
)
STATUS = bytes.fromhex(
    "41432300 08000000 01000000 0200000A"
    "0852 0000"
    "6E69676874207368696674" + "00" * 21 + "72656E6465723037" + "00" * 24 + "02000000 00093D00"
)
STATUS_RECORD = Record(
    MessageType.DAEMON_STATUS,
    Address("10.0.0.2", 21000),
    b"night shift",
    b"render07",
    2,
    4000000,
)

BYTES_BEFORE_NUL = st.binary(max_size=32).map(lambda text: text.partition(b"\0")[0])
UINT32 = st.integers(0, 2**32 - 1)


def little(number: int, width: int) -> bytes:
    return bytes(number >> 8 * place & 255 for place in range(width))


def test_a_beacon_is_encoded() -> None:
    beacon = Record(MessageType.SCAN_REQUEST, Address("10.0.0.5", 21000), b"artist 7")
    assert encode(beacon) == BEACON


def test_a_status_is_decoded() -> None:
    record = decode(STATUS)
    assert record == STATUS_RECORD
    assert (record.text, record.slave_alias) == ("night shift", "render07")
    assert record.owner == Address("10.0.0.2", 21000)


@given(
    st.integers(0, 12),
    st.tuples(*[st.integers(0, 255)] * 4),
    st.integers(0, 65535),
    BYTES_BEFORE_NUL,
    BYTES_BEFORE_NUL,
    UINT32,
    UINT32,
)
def test_every_field_has_its_place(
    kind: int,
    octets: tuple[int, int, int, int],
    port: int,
    text: bytes,
    alias: bytes,
    gpus: int,
    version: int,
) -> None:
    by_hand = b"".join(
        [
            b"AC#\0\x08\0\0\0",
            little(kind, 4),
            bytes(reversed(octets)),
            little(port, 2),
            b"\0\0",
            text + bytes(32 - len(text)),
            alias + bytes(32 - len(alias)),
            little(gpus, 4),
            little(version, 4),
        ]
    )
    address = Address("%d.%d.%d.%d" % octets, port)
    record = Record(kind, address, text, alias, gpus, version)
    assert len(by_hand) == 92
    assert encode(record) == by_hand
    assert decode(by_hand) == record


def test_the_padding_and_what_follows_a_nul_are_ignored() -> None:
    data = bytearray(STATUS)
    data[18:20] = b"\xff\xff"
    data[20 + 12 : 52] = b"x" * 20
    data[52 + 9 : 84] = b"y" * 23
    assert decode(bytes(data)) == STATUS_RECORD


@pytest.mark.parametrize(
    "ip, port, owned", [("0.0.0.0", 21000, False), ("10.0.0.2", 0, False), ("10.0.0.2", 1, True)]
)
def test_an_owner_has_an_address_and_a_port(ip: str, port: int, owned: bool) -> None:
    record = Record(MessageType.DAEMON_STATUS, Address(ip, port))
    assert (record.owner is not None) == owned


@pytest.mark.parametrize(
    "data, message",
    [
        (STATUS[:91], "record has invalid size (91)"),
        (STATUS + b"\0", "record has invalid size (93)"),
        (b"", "record has invalid size (0)"),
        (b"\x42" + STATUS[1:], "record has invalid magic (0x00234342)"),
        (STATUS[:4] + b"\x09" + STATUS[5:], "record has invalid version (9)"),
        (STATUS[:8] + b"\x0d" + STATUS[9:], "record has invalid type (13)"),
        (STATUS[:8] + b"\xff" * 4 + STATUS[12:], "record has invalid type (4294967295)"),
    ],
)
def test_invalid_records_are_rejected_by_the_first_failing_check(data: bytes, message: str) -> None:
    with pytest.raises(RecordError) as caught:
        decode(data)
    assert str(caught.value) == message


@given(st.binary(max_size=200))
def test_no_bytes_raise_anything_else(data: bytes) -> None:
    try:
        assert len(encode(decode(data))) == 92
    except RecordError:
        pass


@pytest.mark.parametrize(
    "record",
    [
        Record(0, master_text=b"x" * 33),
        Record(0, alias=b"x" * 33),
        Record(0, master_text=b"a\0b"),
        Record(-1),
        Record(0, Address("10.0.0", 1)),
        Record(0, Address("10.0.0.1", 65536)),
        Record(0, gpus=2**32),
    ],
)
def test_values_that_do_not_fit_are_not_encoded(record: Record) -> None:
    with pytest.raises(RecordError):
        encode(record)


def test_text_that_is_not_utf8_is_readable() -> None:
    assert Record(1, master_text=b"caf\xe9").text == "caf\N{REPLACEMENT CHARACTER}"


def test_a_frame_announces_its_payload() -> None:
    assert frame(b"abc") == bytes.fromhex("2C9EB4F2 03000000 616263")


FRAMED = bytes.fromhex("2C9EB4F2 5C000000") + STATUS
INVALID = "record has invalid size (%d)"


def read(stream: bytes, cuts: list[int]) -> list[Record | str]:
    reader, found = RecordReader(), []
    edges = [0, *sorted(cuts), len(stream)]
    for begin, end in zip(edges, edges[1:]):
        found += reader.feed(stream[begin:end])
    return [str(item) if isinstance(item, RecordError) else item for item in found]


STREAM = b"".join(
    [
        FRAMED,
        bytes.fromhex("2C9EB4F2 00000000"),  # dropped silently, like the next one
        bytes.fromhex("2C9EB4F2 FFFFFFFF"),
        bytes.fromhex("2C9EB4F2 03000000 616263"),
        bytes.fromhex("2C9EB4F2 5D000000") + bytes(93),
        FRAMED,
    ]
)


@given(st.lists(st.integers(0, len(STREAM)), max_size=12))
def test_records_are_found_however_the_stream_is_cut(cuts: list[int]) -> None:
    assert read(STREAM, cuts) == [STATUS_RECORD, INVALID % 3, INVALID % 93, STATUS_RECORD]


def test_an_oversize_frame_takes_no_memory() -> None:
    reader = RecordReader()
    reader.feed(bytes.fromhex("2C9EB4F2 FFFFFF7F"))
    for _ in range(100):
        assert reader.feed(bytes(1_000_000)) == []
        assert max(len(kept) for kept in vars(reader).values() if isinstance(kept, bytes)) == 0


def test_a_wrong_magic_number_ends_the_stream() -> None:
    reader = RecordReader()
    record, error = reader.feed(FRAMED + b"GET / HTTP/1.0\r\n")
    assert record == STATUS_RECORD
    assert str(error) == "frame has invalid magic number (0x20544547)"
    assert reader.is_broken
    assert reader.feed(FRAMED) == []


@given(st.text(string.printable, max_size=32))
def test_texts_survive(text: str) -> None:
    assert decode(encode(Record(0, master_text=text.encode()))).text == text
