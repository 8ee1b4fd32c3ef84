"""Requests on a free and on an owned node: every reply and broadcast, in order and byte for byte.
"""

import pytest

from support import wire
from support.output import daemon_line, error_line, plain_line
from support.ownership import running, started, stopped

NOTHING = "00000000" * 8
LAUNCH = [plain_line(""), ""]


def test_scan_reply_byte_for_byte(farm):
    node, master = farm(alias="node7")
    master.connection.send_bytes(
        bytes.fromhex("2c9eb4f2 5c000000" "41432300 08000000 00000000 0200007f")
        + master.address[1].to_bytes(2, "little")
        + bytes.fromhex("0000" + "6e6f626f6479" + "00" * 26 + NOTHING + "00000000 00000000")
    )
    assert master.connection.receive() == bytes.fromhex(
        "41432300 08000000 01000000 00000000 0000 0000"
        + NOTHING
        + "6e6f646537"
        + "00" * 27
        + "01000000 00093d00"
    )
    node.output.wait(daemon_line(f"received scan request from master {master}"))


def test_start_reply_byte_for_byte(farm):
    node, master = farm(alias="node7")
    address = bytes.fromhex("0200007f") + master.address[1].to_bytes(2, "little") + bytes(2)
    request = (
        bytes.fromhex("41432300 08000000 02000000")
        + address
        + bytes.fromhex("41424344" * 8 + "ff" * 32 + "ffffffff ffffffff")
    )
    master.connection.send(request)
    contents = address + bytes.fromhex(
        "41424344" * 8 + "6e6f646537" + "00" * 27 + "01000000 00093d00"
    )
    assert master.connection.receive() == bytes.fromhex("41432300 08000000 01000000") + contents
    assert master.connection.receive() == bytes.fromhex("41432300 08000000 03000000") + contents
    assert master.connection.receive() == bytes.fromhex("41432300 08000000 09000000") + contents


def test_request_padding_is_not_echoed(farm):
    node, master = farm()
    record = bytearray(master.record(wire.START_REQUEST))
    record[18:20] = b"\xaa\xbb"
    master.connection.send(bytes(record))
    for kind in (wire.DAEMON_STATUS, wire.START_REPLY):
        payload = master.connection.receive()
        assert payload[18:20] == b"\0\0"
        assert wire.read_status(payload) == node.status(kind, master)


def test_log_of_a_slaves_lifetime(farm):
    node, master = farm()
    running(node, master)
    stopped(node, master)
    node.output.wait_sequence(
        [
            daemon_line(text)
            for text in (
                f"start listening for masters on port {node.port}",
                f"detected new master on address {master}",
                f"connected to master {master}",
                f"received start request from master {master}",
                f"starting slave for master {master}",
                "slave connection created",
                "slave connection established",
                "started to monitor slave",
                "received heartbeat message 'SLAVE_INFO' from slave",
                "slave has version 4000000 and provides 1 GPU(s)",
                f"notifying master {master} that the slave is initialized and running",
                f"received stop request from master {master}",
                f"stopping Quelta slave for master {master}",
            )
        ]
    )
    node.wait_no_slave()


def test_only_the_owner_is_notified_that_the_slave_runs(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


def test_start_of_an_owned_slave_names_the_owner(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    slave = node.slave_process()
    other.request(wire.START_REQUEST)
    other.expect(node.status(wire.START_REPLY, owner))
    owner.request(wire.START_REQUEST)
    owner.expect(node.status(wire.START_REPLY, owner))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes() == [slave]


def test_stop_by_another_master_changes_nothing(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    other.request(wire.STOP_REQUEST)
    other.expect(node.status(wire.STOP_REPLY, owner))
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert node.slave_processes()


def test_stop_on_a_free_node_is_only_answered(farm):
    node, master, other = farm(2)
    master.request(wire.STOP_REQUEST)
    master.expect(node.status(wire.STOP_REPLY))
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    lines = node.quit()
    assert daemon_line(f"received stop request from master {master}") in lines
    assert error_line("we don't have an Quelta slave running") not in lines


def test_stop_without_an_address_on_a_free_node_finds_no_slave(farm):
    node, master, other = farm(2)
    master.request(wire.STOP_REQUEST, address=wire.NO_ADDRESS)
    master.expect(node.status(wire.STOP_REPLY))
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    node.output.wait_sequence(
        [
            daemon_line("received stop request from master 0.0.0.0:0"),
            error_line("we don't have an Quelta slave running"),
        ]
    )


def test_masters_own_the_slave_in_turn(farm):
    node, first, second = farm(2)
    running(node, first, second)
    stopped(node, first, second)
    running(node, second, first)
    stopped(node, second, first)
    running(node, first, second)
    first.expect_silence(node.status(wire.DAEMON_STATUS, first))


def test_slave_serves_the_master_named_in_the_request(farm):
    """The request names the owner; messages go to the connection that sent it."""
    node, named, asking = farm(2)
    asking.request(wire.START_REQUEST, address=named.address, text=b"for you")
    status = node.status(wire.DAEMON_STATUS, named, text=b"for you")
    asking.expect(
        status, status._replace(kind=wire.START_REPLY), status._replace(kind=wire.SLAVE_RUNNING)
    )
    named.expect(status)
    asking.request(wire.STOP_REQUEST)
    asking.expect(status._replace(kind=wire.STOP_REPLY))
    stopped(node, named, asking)


def test_owner_unknown_to_the_daemon(farm):
    node, master = farm()
    stranger = ("10.0.0.5", 21000)
    master.request(wire.START_REQUEST, address=stranger)
    status = node.status(wire.DAEMON_STATUS, master)._replace(owner=stranger)
    master.expect(
        status, status._replace(kind=wire.START_REPLY), status._replace(kind=wire.SLAVE_RUNNING)
    )
    node.output.wait(daemon_line("starting slave for master 10.0.0.5:21000"))
    master.request(wire.STOP_REQUEST, address=stranger)
    master.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))


@pytest.mark.parametrize(
    "sent, kept",
    [
        (b"", b""),
        (b"x" * 32, b"x" * 32),
        (b"ab\0cd", b"ab"),
        (b"\0behind", b""),
        ("Müller\n%s".encode(), "Müller\n%s".encode()),
        (b"\xff\xfe\x01", b"\xff\xfe\x01"),
    ],
)
def test_owner_text_ends_at_its_first_nul(farm, sent, kept):
    node, master = farm()
    master.request(wire.START_REQUEST, text=sent)
    payload = master.connection.receive()
    assert payload[20:52] == kept.ljust(32, b"\0")
    assert master.connection.receive()[20:52] == kept.ljust(32, b"\0")


@pytest.mark.parametrize(
    "alias, sent",
    [
        ("x" * 32, b"x" * 32),
        ("y" * 40, b"y" * 32),
        ("ü" * 16, b"\xc3\xbc" * 16),
        ("a" + "ü" * 16, b"a" + b"\xc3\xbc" * 15 + b"\xc3"),
    ],
)
def test_alias_is_cut_at_32_bytes(farm, alias, sent):
    node, master = farm(alias=alias)
    master.request(wire.SCAN_REQUEST)
    assert master.connection.receive()[52:84] == sent


@pytest.mark.parametrize("kind", [1, 3, 5, 6, 7, 8, 9, 10, 12])
def test_unexpected_type_is_answered_with_type_13(farm, kind):
    node, master, other = farm(2)
    master.request(kind)
    master.expect(node.status(wire.UNEXPECTED_REPLY))
    node.output.wait(error_line(f"unexpected message type ({kind})"))
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    started(node, other, master)


def test_unexpected_type_names_the_owner(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    other.request(7)
    other.expect(node.status(wire.UNEXPECTED_REPLY, owner))


def test_scans_are_logged_only_in_detail(farm):
    node, master = farm(flags="daemon logPrefix")
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    master.request(wire.STOP_REQUEST)
    master.expect(node.status(wire.STOP_REPLY))
    lines = node.quit()
    assert daemon_line(f"received stop request from master {master}") in lines
    assert daemon_line(f"received scan request from master {master}") not in lines


def test_detail_is_logged_without_the_general_flag(farm):
    node, master = farm(flags="daemonDetail logPrefix")
    running(node, master)
    node.output.wait_sequence(
        [
            daemon_line("received heartbeat message 'SLAVE_INFO' from slave"),
            daemon_line("slave has version 4000000 and provides 1 GPU(s)"),
        ]
    )
    assert daemon_line(f"starting slave for master {master}") not in node.quit()


def test_without_flags_only_errors_and_the_slaves_failures_are_logged(farm):
    node, owner, other = farm(2, flags="logPrefix")
    serving = len(node.own_lines())
    other.request(7)
    other.expect(node.status(wire.UNEXPECTED_REPLY))
    running(node, owner, other)
    other.request(wire.STEAL_REQUEST)
    other.expect(
        *(
            node.status(kind, other)
            for kind in (wire.DAEMON_STATUS, wire.STEAL_REPLY, wire.SLAVE_RUNNING)
        )
    )
    owner.expect(node.status(wire.DAEMON_STATUS, other))
    node.kill_slave()
    other.expect(node.status(wire.SLAVE_FAILED, other))
    stopped(node, other, owner)
    running(node, owner, other)
    lines = node.quit()[serving:-3]
    assert lines == [
        error_line("unexpected message type (7)"),
        *LAUNCH,
        *LAUNCH,
        plain_line("slave crashed or was stopped via CTRL-C"),
        *LAUNCH,
        plain_line("closing down all existing master connections (2)..."),
    ]


def test_requests_in_one_packet_are_answered_in_order(farm):
    node, owner, other = farm(2)
    kinds = (wire.SCAN_REQUEST, wire.STOP_REQUEST, wire.SCAN_REQUEST, 7, wire.SCAN_REQUEST)
    owner.connection.send_bytes(b"".join(wire.frame(owner.record(kind)) for kind in kinds))
    owner.expect(*(node.status(kind) for kind in (1, 5, 1, 13, 1)))


def test_slave_executable_deleted_after_start_up(farm):
    node, owner, other = farm(2)
    node.slave.unlink()
    started(node, owner, other)
    node.output.wait(error_line("failed to launch Quelta slave: 2"))
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect_silence(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, other)
