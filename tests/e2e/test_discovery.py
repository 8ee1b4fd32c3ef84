"""Masters are heard by their beacons, each once, by the address that they announce."""

import errno
import os
import socket

import pytest

from support import programs, wire
from support.node import wait_until
from support.output import daemon_line, error_line
from support.ownership import running, stopped
from support.ports import refusing_socket


def detected(address):
    return daemon_line("detected new master on address %s:%u" % tuple(address))


def test_beacon_byte_for_byte(make_node, make_master, beacon_socket):
    node, master = make_node().serve(), make_master(ip="127.0.0.5")
    beacon_socket.sendto(
        bytes.fromhex("41432300 08000000 00000000 0500007f")
        + master.address[1].to_bytes(2, "little")
        + bytes(74),
        ("127.0.0.1", node.port),
    )
    master.accept()
    node.output.wait_sequence(
        [detected(master.address), daemon_line(f"connected to master {master}")]
    )


@pytest.mark.parametrize("kind", range(13))
def test_any_valid_record_is_a_beacon(make_node, make_master, beacon_socket, kind):
    node, master = make_node().serve(), make_master()
    beacon_socket.sendto(master.record(kind), ("127.0.0.1", node.port))
    master.accept()
    master.expect_silence(node.status(wire.DAEMON_STATUS))


def test_many_beacons_are_one_master(farm, make_master):
    node, master = farm()
    for _ in range(50):
        master.beacon(node)
    # Datagrams are taken in their order, so those fifty lie behind when another master's comes through.
    make_master().join(node)
    lines = node.quit()
    assert lines.count(detected(master.address)) == 1
    assert lines.count(daemon_line(f"connected to master {master}")) == 1


def test_masters_are_told_apart_by_address_and_port(make_node, make_master):
    node = make_node().serve()
    masters = [make_master(ip=ip).join(node) for ip in ("127.0.0.7", "127.0.0.7", "127.0.0.8")]
    for master in masters:
        master.expect_silence(node.status(wire.DAEMON_STATUS))
    lines = node.quit()
    assert [lines.count(detected(master.address)) for master in masters] == [1, 1, 1]


def test_address_of_the_sender_does_not_matter(make_node, make_master):
    node, master = make_node().serve(), make_master(ip="127.0.0.77")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as elsewhere:
        elsewhere.bind(("127.0.0.99", 0))
        elsewhere.sendto(master.record(wire.SCAN_REQUEST), ("127.0.0.1", node.port))
        master.accept()


def test_beacon_is_not_answered_by_datagram(make_node, make_master):
    node, master = make_node().serve(), make_master()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind(("127.0.0.1", 0))
        sender.sendto(master.record(wire.SCAN_REQUEST), ("127.0.0.1", node.port))
        master.accept()
        master.expect_silence(node.status(wire.DAEMON_STATUS))
        sender.setblocking(False)
        with pytest.raises(BlockingIOError):
            sender.recv(1)


def test_master_that_refuses_is_forgotten_and_heard_anew(farm, beacon_socket):
    node, master = farm()
    with refusing_socket("127.0.0.50") as absent:
        address = absent.getsockname()
        beacon = wire.master_record(wire.SCAN_REQUEST, address)

        def heard_twice():
            beacon_socket.sendto(beacon, ("127.0.0.1", node.port))
            return node.output.count(detected(address)) >= 2

        wait_until(heard_twice, "the refusing master is registered a second time")
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert not [line for line in node.quit() if line.startswith("ERROR")]


@pytest.mark.linux_only("a full queue of connections is refused at once on Windows")
def test_master_that_never_answers_only_delays_the_others(farm, tcp_listener, beacon_socket):
    """Its queue is full, so every attempt to connect to it lasts until its time limit."""
    node, master = farm()
    absent = tcp_listener(0, "127.0.0.51")
    absent.listen(0)
    with socket.create_connection(absent.getsockname()):
        beacon_socket.sendto(
            wire.master_record(wire.SCAN_REQUEST, absent.getsockname()), ("127.0.0.1", node.port)
        )
        node.output.wait(detected(absent.getsockname()))
        running(node, master)
        master.expect_silence(node.status(wire.DAEMON_STATUS, master))
        stopped(node, master)
        assert daemon_line("connected to master %s:%u" % absent.getsockname()) not in node.quit()


@pytest.mark.parametrize("address", [("0.0.0.0", 0), ("127.0.0.1", 0), ("255.255.255.255", 65535)])
def test_impossible_address_harms_nobody(farm, make_master, beacon_socket, address):
    node, master = farm()
    beacon_socket.sendto(wire.master_record(wire.SCAN_REQUEST, address), ("127.0.0.1", node.port))
    node.output.wait(detected(address))
    make_master().join(node)
    master.expect_silence(node.status(wire.DAEMON_STATUS))


def test_port_in_use_ends_discovery_but_not_the_daemon(make_node):
    node = make_node()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
        holder.bind(("0.0.0.0", node.port))
        node.start()
        node.output.wait(daemon_line(f"start listening for masters on port {node.port}"))
        if programs.ON_WINDOWS:
            node.output.wait_match(r"ERROR     : failed to bind to address: .*")
        else:
            reason = f"{os.strerror(errno.EADDRINUSE)} ({errno.EADDRINUSE})"
            node.output.wait(error_line(f"failed to bind to address: {reason}"))
        lines = node.quit()
    assert "            closing down all existing master connections (0)..." in lines


def test_port_is_shared_with_nobody(make_node):
    """Two may listen on one port if both ask for that, and then only one of them hears a beacon."""
    node = make_node().serve()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as intruder:
        intruder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        with pytest.raises(OSError) as refused:
            intruder.bind(("0.0.0.0", node.port))
    assert refused.value.errno == errno.EADDRINUSE


@pytest.mark.parametrize("ip", ["127.0.0.1", "127.0.0.2", "127.255.255.254"])
def test_beacon_is_heard_on_every_address_of_the_machine(make_node, make_master, beacon_socket, ip):
    node, master = make_node().serve(), make_master()
    beacon_socket.sendto(master.record(wire.SCAN_REQUEST), (ip, node.port))
    master.accept()


def test_two_daemons_on_one_machine(make_node, make_master):
    nodes = [make_node(alias=alias).serve() for alias in ("left", "right")]
    master = make_master()
    for node in nodes:
        master.join(node)
        master.expect_silence(node.status(wire.DAEMON_STATUS))
