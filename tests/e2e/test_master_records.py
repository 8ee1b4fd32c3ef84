"""Malformed datagrams, records and frames: exact log lines, no replies, no effect on others."""

import pytest

from support import wire
from support.output import daemon_line, error_line
from support.ownership import running

GOOD_SCAN = wire.master_record(wire.SCAN_REQUEST)

MALFORMED = [
    (b"", "master daemon message has invalid size (0)"),
    (GOOD_SCAN[:91], "master daemon message has invalid size (91)"),
    (GOOD_SCAN + b"\0", "master daemon message has invalid size (93)"),
    (b"\xff" * 20, "master daemon message has invalid size (20)"),
    (b"x" * 1000, "master daemon message has invalid size (1000)"),
    (bytes.fromhex("00234341") + GOOD_SCAN[4:], "master daemon message has invalid magic"),
    (bytes(92), "master daemon message has invalid magic"),
    (
        bytes.fromhex("41432300 07000000 ffffffff") + bytes(80),
        "master daemon message has invalid version (7)",
    ),
    (
        bytes.fromhex("41432300 00000008 00000000") + bytes(80),
        "master daemon message has invalid version (134217728)",
    ),
    (
        bytes.fromhex("41432300 ffffffff 00000000") + bytes(80),
        "master daemon message has invalid version (4294967295)",
    ),
    (
        bytes.fromhex("41432300 08000000 0d000000") + bytes(80),
        "master daemon message had invalid type (13)",
    ),
    (
        bytes.fromhex("41432300 08000000 ffffffff") + bytes(80),
        "master daemon message had invalid type (-1)",
    ),
    (
        bytes.fromhex("41432300 08000000 00000080") + bytes(80),
        "master daemon message had invalid type (-2147483648)",
    ),
]

# JUCE silently ignores an empty frame.
MALFORMED_FRAMES = [(record, complaint) for record, complaint in MALFORMED if record]


@pytest.mark.parametrize("datagram, complaint", MALFORMED)
def test_malformed_beacon_is_logged_with_its_sender(farm, beacon_socket, datagram, complaint):
    node, master = farm()
    node.output.wait(daemon_line(f"connected to master {master}"))
    beacon_socket.sendto(datagram, ("127.0.0.1", node.port))
    line = node.output.wait(daemon_line(complaint))
    assert (
        node.output.wait(
            daemon_line("failed to decode beacon message from master 127.0.0.1:0"), line
        )
        == line + 1
    )
    master.expect_silence(node.status(wire.DAEMON_STATUS))


@pytest.mark.parametrize("size", [1001, 1472, 65507])
def test_oversized_datagram_is_truncated_and_service_continues(
    farm, make_master, beacon_socket, size
):
    node, _ = farm()
    beacon_socket.sendto(GOOD_SCAN + bytes(size - 92), ("127.0.0.1", node.port))
    node.output.wait_sequence(
        [
            daemon_line("master daemon message has invalid size (1000)"),
            daemon_line("failed to decode beacon message from master 127.0.0.1:0"),
        ]
    )
    make_master().join(node)


def test_decoding_errors_are_logged_only_with_the_daemon_flag(farm, make_master, beacon_socket):
    node, master = farm(flags="daemonDetail logPrefix")
    for record, _ in MALFORMED:
        beacon_socket.sendto(record, ("127.0.0.1", node.port))
        master.connection.send(record)
    make_master().join(node)
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert not [line for line in node.quit() if "master daemon message" in line or "beacon" in line]


@pytest.mark.parametrize("record, complaint", MALFORMED_FRAMES)
def test_malformed_request_is_logged_but_not_answered(farm, record, complaint):
    node, master, other = farm(2)
    master.connection.send(record)
    node.output.wait(daemon_line(complaint))
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    assert not [line for line in node.quit() if "failed to decode" in line]


def test_request_of_a_megabyte_is_rejected(farm):
    node, master = farm()
    master.connection.send(GOOD_SCAN + bytes(1048576))
    node.output.wait(daemon_line("master daemon message has invalid size (1048668)"))
    master.expect_silence(node.status(wire.DAEMON_STATUS))


@pytest.mark.parametrize(
    "junk",
    [
        "2c9eb4f2 00000000",
        "2c9eb4f2 ffffffff",
        "2c9eb4f2 00000080",
    ],
)
def test_empty_and_negative_frames_are_ignored(farm, junk):
    node, master = farm()
    master.connection.send_bytes(bytes.fromhex(junk) * 3)
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert not [line for line in node.quit() if "invalid" in line]


@pytest.mark.parametrize(
    "junk", ["2c9eb4f3 5c000000", "00" * 8, "474554202f20485454502f312e310d0a0d0a"]
)
def test_foreign_frame_drops_only_its_own_connection(farm, junk):
    """The daemon reconnects, and the slave stays with its owner."""
    node, owner, other = farm(2)
    running(node, owner, other)
    owner.connection.send_bytes(bytes.fromhex(junk))
    owner.accept()
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))


def test_record_truncated_by_disconnection(farm):
    node, master, other = farm(2)
    master.connection.send_bytes(wire.frame(master.record(wire.START_REQUEST))[:50])
    master.connection.close()
    master.accept()
    node.output.wait_sequence(
        [
            daemon_line(f"disconnected from master {master}"),
            daemon_line(f"connected to master {master}"),
        ]
    )
    other.request(wire.SCAN_REQUEST)
    assert other.receive().kind == wire.DAEMON_STATUS


def test_fragmented_request_is_reassembled(farm):
    node, master, other = farm(2)
    for byte in wire.frame(master.record(wire.SCAN_REQUEST)):
        master.connection.send_bytes(bytes([byte]))
        other.expect_silence(node.status(wire.DAEMON_STATUS))
    master.expect(node.status(wire.DAEMON_STATUS))


def test_master_that_never_reads_does_not_block_the_others(farm):
    node, deaf, other = farm(2)
    deaf.connection.send_bytes(wire.frame(deaf.record(wire.SCAN_REQUEST)) * 500)
    running(node, other)
    other.expect_silence(node.status(wire.DAEMON_STATUS, other))


def test_flood_of_beacons_and_requests(farm, make_master, beacon_socket):
    node, master, other = farm(2, flags="daemon")
    for _ in range(2000):
        beacon_socket.sendto(master.record(wire.SCAN_REQUEST), ("127.0.0.1", node.port))
    master.connection.send_bytes(wire.frame(master.record(wire.SCAN_REQUEST)) * 2000)
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    master.expect(*[node.status(wire.DAEMON_STATUS)] * 2000)
    make_master().join(node)
    assert node.quit().count(f"detected new master on address {master}") == 1


def test_unexpected_type_is_logged_without_flags(farm):
    node, master = farm(flags="logPrefix")
    master.request(8)
    master.expect(node.status(wire.UNEXPECTED_REPLY))
    node.output.wait(error_line("unexpected message type (8)"))
