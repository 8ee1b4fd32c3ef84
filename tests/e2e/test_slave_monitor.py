"""The monitor connection: accepted records, logged errors, and its robustness."""

import pytest

from support import wire
from support.output import daemon_line, error_line
from support.ownership import puppet, started, stopped
from support.scenario import PUPPET, scenario
from support.slave import SlaveConnection

INVALID = error_line("received invalid message from slave")
GOOD_STATUS = "0d72ce7f 01000000 02000000 00000000 00000000"
HEARTBEAT = daemon_line("received heartbeat message 'SLAVE_STATUS' from slave")


@pytest.fixture
def watched(farm):
    """A node whose slave is played by the test: `node, owner, slave`."""
    node, owner = farm(plays=scenario(PUPPET))
    return node, owner, puppet(node, owner)


def assert_still_works(node, slave, after):
    """Asserts that the connection still works: a further heartbeat is logged."""
    slave.send(bytes.fromhex(GOOD_STATUS))
    return node.output.wait(HEARTBEAT, after)


@pytest.mark.parametrize(
    "record, complaint",
    [
        (GOOD_STATUS + "00000000", "slave daemon message had invalid size (24)"),
        (GOOD_STATUS[:-2], "slave daemon message had invalid size (19)"),
        ("0d", "slave daemon message had invalid size (1)"),
        ("ff" * 92, "slave daemon message had invalid size (92)"),
        ("7fce720d 01000000 02000000 00000000 00000000", "slave daemon message had invalid header"),
        ("00000000 02000000 ffffffff 00000000 00000000", "slave daemon message had invalid header"),
        (
            "0d72ce7f 02000000 02000000 00000000 00000000",
            "slave daemon message had invalid version (2)",
        ),
        (
            "0d72ce7f 00000000 06000000 00000000 00000000",
            "slave daemon message had invalid version (0)",
        ),
        (
            "0d72ce7f ffffffff 02000000 00000000 00000000",
            "slave daemon message had invalid version (4294967295)",
        ),
        (
            "0d72ce7f 01000000 06000000 00000000 00000000",
            "slave daemon message had invalid type (6)",
        ),
        (
            "0d72ce7f 01000000 ffffffff 00000000 00000000",
            "slave daemon message had invalid type (-1)",
        ),
        (
            "0d72ce7f 01000000 00000080 00000000 00000000",
            "slave daemon message had invalid type (-2147483648)",
        ),
    ],
)
def test_invalid_record_is_logged_and_dropped(watched, record, complaint):
    node, owner, slave = watched
    slave.send(bytes.fromhex(record))
    line = node.output.wait(error_line(complaint))
    line = node.output.wait(INVALID, line)
    assert_still_works(node, slave, line)
    assert node.own_lines().count(INVALID) == 1
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


def test_slave_may_connect_from_any_local_address(farm):
    node, owner = farm(plays=scenario(PUPPET))
    slave = puppet(node, owner, slave_ip="127.0.0.2")
    slave.send(bytes.fromhex(GOOD_STATUS))
    node.output.wait(HEARTBEAT)


def test_record_of_a_megabyte_is_rejected(watched):
    node, _, slave = watched
    slave.send(b"\x0d" * 1048576)
    line = node.output.wait_sequence(
        [error_line("slave daemon message had invalid size (1048576)"), INVALID]
    )
    assert_still_works(node, slave, line)


@pytest.mark.parametrize("kind, name", [(3, "STOP_SLAVE"), (4, "unknown"), (5, "unknown")])
def test_record_type_that_slaves_do_not_send(watched, kind, name):
    node, _, slave = watched
    slave.report(kind)
    line = node.output.wait_sequence(
        [
            daemon_line(f"received heartbeat message '{name}' from slave"),
            error_line("received invalid status message from slave"),
        ]
    )
    assert_still_works(node, slave, line)
    assert INVALID not in node.own_lines()


def test_heartbeats_are_logged_by_name(watched):
    node, owner, slave = watched
    for record in (
        "0d72ce7f 01000000 00000000 00000000 00000000",
        GOOD_STATUS,
        "0d72ce7f 01000000 01000000 05000000 40e20100",
    ):
        slave.send(bytes.fromhex(record))
    node.output.wait_sequence(
        [
            daemon_line("slave connection created"),
            daemon_line("slave connection established"),
            daemon_line("started to monitor slave"),
            daemon_line("received heartbeat message 'AUTHENTICATING' from slave"),
            daemon_line("received heartbeat message 'SLAVE_STATUS' from slave"),
            daemon_line("received heartbeat message 'SLAVE_INFO' from slave"),
            daemon_line("slave has version 123456 and provides 5 GPU(s)"),
        ]
    )
    # A running slave's report does not change what the information run reported.
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))


@pytest.mark.parametrize(
    "junk",
    [
        "2c9eb4f2 00000000",
        "2c9eb4f2 ffffffff",
        "2c9eb4f2 00000080",
        "2c9eb4f2 00000000" * 50,
    ],
)
def test_empty_and_negative_frames_are_ignored(watched, junk):
    node, _, slave = watched
    slave.send_bytes(bytes.fromhex(junk))
    line = assert_still_works(node, slave, -1)
    assert not [text for text in node.output.lines()[:line] if text.startswith("ERROR")]


def test_fragmented_record_is_reassembled(watched):
    node, _, slave = watched
    for byte in wire.frame(bytes.fromhex(GOOD_STATUS)):
        slave.send_bytes(bytes([byte]))
    node.output.wait(HEARTBEAT)


def test_many_records_at_once(watched):
    node, _, slave = watched
    slave.send_bytes(wire.frame(bytes.fromhex(GOOD_STATUS)) * 200)
    after = -1
    for _ in range(200):
        after = node.output.wait(HEARTBEAT, after)


@pytest.mark.parametrize(
    "junk",
    [
        "2c9eb4f3 14000000" + GOOD_STATUS,
        "00" * 64,
        "2c9eb4f2 14000000 0d72ce7f 01000000",
        "2c9eb4f2 14",
        "474554202f20485454502f312e310d0a0d0a",
    ],
)
def test_foreign_or_truncated_frame_does_not_affect_others(farm, junk):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    slave.send_bytes(bytes.fromhex(junk))
    slave.close()
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, other)


def test_second_connection_is_refused_and_the_first_survives(watched):
    node, _, slave = watched
    stranger = SlaveConnection(node.monitor_port())
    line = node.output.wait(error_line("multiple connections requested for slave monitor"))
    assert stranger.is_closed_by_daemon()
    assert_still_works(node, slave, line)


def test_second_connection_of_a_stand_in(farm):
    node, owner = farm(plays=scenario("connect\ninfo\nwait 2500\nsecond-connection\nbeat 1000"))
    started(node, owner)
    node.output.wait(error_line("multiple connections requested for slave monitor"))
    node.slave_report("second connection was closed by the daemon")
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    stopped(node, owner)


def test_slave_cannot_reconnect(watched):
    node, owner, slave = watched
    slave.report(wire.SLAVE_INFO)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    slave.close()
    line = node.output.wait_sequence(
        [daemon_line("slave connection closed"), daemon_line("stopped monitoring slave")]
    )
    again = SlaveConnection(node.monitor_port())
    line = node.output.wait(error_line("multiple connections requested for slave monitor"), line)
    assert again.is_closed_by_daemon()
    # The time-outs keep running: without a connection, the initialised slave counts as hanging.
    node.output.wait(
        "            detected that slave is hanging after initialization -> stopping slave", line
    )
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))


def test_malformed_bytes_from_the_stand_in_slave(farm):
    node, owner = farm(
        plays=scenario(
            "connect\nframe 0d72ce7f02000000020000000000000000000000\nraw 2c9eb4f200000000\n"
            "frame 0d times 21\ninfo\nwait 2500\nbeat 1000"
        )
    )
    started(node, owner)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    node.output.wait_sequence(
        [
            error_line("slave daemon message had invalid version (2)"),
            INVALID,
            error_line("slave daemon message had invalid size (21)"),
            INVALID,
        ]
    )
    stopped(node, owner)


@pytest.mark.parametrize("ip", ["0.0.0.0", "127.0.0.1", "127.0.0.2"])
def test_occupied_port_is_skipped(make_node, tcp_listener, ip):
    """Even if it is occupied on one address only, because the slave might connect to that one."""
    node = make_node()
    tcp_listener(node.port + 1, ip)
    node.serve()
    assert node.monitor_port() == node.port + 2


def test_monitor_tries_the_next_port_first(make_node):
    node = make_node().serve()
    assert node.monitor_port() == node.port + 1
