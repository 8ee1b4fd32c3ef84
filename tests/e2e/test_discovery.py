"""Masters are discovered by their beacons and registered once, by the address they announce."""

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


def test_repeated_beacons_register_a_master_once(farm, make_master):
    node, master = farm()
    for _ in range(50):
        master.beacon(node)
    # Datagrams arrive in order, so all fifty have been processed once another master is connected.
    make_master().join(node)
    lines = node.quit()
    assert lines.count(detected(master.address)) == 1
    assert lines.count(daemon_line(f"connected to master {master}")) == 1


def test_masters_are_identified_by_address_and_port(make_node, make_master):
    node = make_node().serve()
    masters = [make_master(ip=ip).join(node) for ip in ("127.0.0.7", "127.0.0.7", "127.0.0.8")]
    for master in masters:
        master.expect_silence(node.status(wire.DAEMON_STATUS))
    lines = node.quit()
    assert [lines.count(detected(master.address)) for master in masters] == [1, 1, 1]


def test_sender_address_of_a_beacon_is_ignored(make_node, make_master):
    node, master = make_node().serve(), make_master(ip="127.0.0.77")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as elsewhere:
        elsewhere.bind(("127.0.0.99", 0))
        elsewhere.sendto(master.record(wire.SCAN_REQUEST), ("127.0.0.1", node.port))
        master.accept()


def test_beacon_gets_no_datagram_reply(make_node, make_master):
    node, master = make_node().serve(), make_master()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind(("127.0.0.1", 0))
        sender.sendto(master.record(wire.SCAN_REQUEST), ("127.0.0.1", node.port))
        master.accept()
        master.expect_silence(node.status(wire.DAEMON_STATUS))
        sender.setblocking(False)
        with pytest.raises(BlockingIOError):
            sender.recv(1)


def test_refusing_master_is_unregistered_and_registered_again(farm, beacon_socket):
    node, master = farm()
    with refusing_socket("127.0.0.50") as absent:
        address = absent.getsockname()
        beacon = wire.master_record(wire.SCAN_REQUEST, address)

        def registered_twice():
            beacon_socket.sendto(beacon, ("127.0.0.1", node.port))
            return node.output.count(detected(address)) >= 2

        wait_until(registered_twice, "the refusing master is registered a second time")
    master.expect_silence(node.status(wire.DAEMON_STATUS))
    assert not [line for line in node.quit() if line.startswith("ERROR")]


@pytest.mark.linux_only("Windows refuses connections at once if the backlog is full")
def test_unresponsive_master_only_delays_the_others(farm, tcp_listener, beacon_socket):
    """Its backlog is full, so every attempt to connect to it times out."""
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
def test_unusable_address_does_not_affect_other_masters(farm, make_master, beacon_socket, address):
    node, master = farm()
    beacon_socket.sendto(wire.master_record(wire.SCAN_REQUEST, address), ("127.0.0.1", node.port))
    node.output.wait(detected(address))
    make_master().join(node)
    master.expect_silence(node.status(wire.DAEMON_STATUS))


def test_occupied_port_stops_discovery_but_not_the_daemon(make_node):
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


def test_beacon_port_is_exclusive(make_node):
    """If two sockets shared the port, only one of them would receive each beacon."""
    node = make_node().serve()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as intruder:
        intruder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        with pytest.raises(OSError) as refused:
            intruder.bind(("0.0.0.0", node.port))
    assert refused.value.errno == errno.EADDRINUSE


@pytest.mark.parametrize("ip", ["127.0.0.1", "127.0.0.2", "127.255.255.254"])
def test_beacon_is_received_on_every_local_address(make_node, make_master, beacon_socket, ip):
    node, master = make_node().serve(), make_master()
    beacon_socket.sendto(master.record(wire.SCAN_REQUEST), (ip, node.port))
    master.accept()


def test_two_daemons_on_one_machine(make_node, make_master):
    nodes = [make_node(alias=alias).serve() for alias in ("left", "right")]
    master = make_master()
    for node in nodes:
        master.join(node)
        master.expect_silence(node.status(wire.DAEMON_STATUS))
