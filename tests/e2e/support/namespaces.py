"""Two simulated machines: network namespaces joined by a cable that a test can cut."""

from __future__ import annotations

import ctypes
import itertools
import os
import shutil
import socket
import subprocess
from contextlib import contextmanager
from typing import IO, Iterator, Self

from . import wire
from .limits import HANG_LIMIT
from .master import Master
from .node import Node

CLONE_NEWNET = 0x40000000
_numbers = itertools.count()
_libc = ctypes.CDLL(None, use_errno=True)


def ip(arguments: str) -> None:
    result = subprocess.run(
        ["ip", *arguments.split()], capture_output=True, text=True, timeout=HANG_LIMIT
    )
    if result.returncode != 0:
        raise OSError(f"ip {arguments}: {result.stderr.strip()}")


def why_not() -> str:
    """Returns why network namespaces cannot be made here, or an empty string."""
    if not shutil.which("ip"):
        return "there is no ip command"
    name = f"quelta-probe-{os.getpid()}"
    try:
        ip(f"netns add {name}")
        ip(f"netns del {name}")
    except OSError as refused:
        return f"no network namespaces can be made: {refused}"
    return ""


class Machine:
    """A network namespace with a loopback and one end of a cable."""

    def __init__(self, name: str, device: str, address: str, hardware: str) -> None:
        self.name = name
        self.device = device
        self.address = address
        self.hardware = hardware

    def connect(self, other: Machine) -> None:
        """Brings the links up. The permanent neighbour entry avoids ARP errors on a cut cable."""
        ip(f"-n {self.name} addr add {self.address}/24 dev {self.device}")
        ip(f"-n {self.name} link set lo up")
        ip(f"-n {self.name} link set {self.device} up")
        neighbour = f"{other.address} lladdr {other.hardware} dev {self.device}"
        ip(f"-n {self.name} neigh replace {neighbour} nud permanent")

    @contextmanager
    def entered(self) -> Iterator[Machine]:
        """Moves the calling thread here: new sockets and processes belong to this machine."""
        with open("/proc/thread-self/ns/net") as home, open(f"/run/netns/{self.name}") as there:
            self._switch(there)
            try:
                yield self
            finally:
                self._switch(home)

    @staticmethod
    def _switch(namespace: IO[str]) -> None:
        if _libc.setns(namespace.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "setns")


class RemoteMaster(Master):
    """A master on one machine that sends beacons to a daemon on another."""

    def __init__(self, machine: Machine, daemon_machine: Machine) -> None:
        self._daemon_address = daemon_machine.address
        with machine.entered():
            datagrams = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            super().__init__(machine.address, b"far away", datagrams)

    def beacon(self, node: Node, address: wire.Address | None = None) -> None:
        record = self.record(wire.SCAN_REQUEST, address)
        self._beacons.sendto(record, (self._daemon_address, node.port))

    def close(self) -> None:
        super().close()
        self._beacons.close()


class Cable:
    """Two machines and the link between them."""

    def __init__(self) -> None:
        tag = f"{os.getpid()}-{next(_numbers)}"
        short = f"{os.getpid() % 100000}{next(_numbers)}"
        self.near = Machine(f"quelta-near-{tag}", f"qn{short}", "10.231.0.1", "02:00:00:00:00:01")
        self.far = Machine(f"quelta-far-{tag}", f"qf{short}", "10.231.0.2", "02:00:00:00:00:02")

    def lay(self) -> Self:
        for machine in (self.near, self.far):
            ip(f"netns add {machine.name}")
        near, far = (
            f"{machine.device} address {machine.hardware} netns {machine.name}"
            for machine in (self.near, self.far)
        )
        ip(f"link add {near} type veth peer name {far}")
        self.near.connect(self.far)
        self.far.connect(self.near)
        return self

    def cut(self) -> None:
        """Simulates a power failure of the far machine: packets are lost without any error."""
        ip(f"-n {self.far.name} link set {self.far.device} down")

    def remove(self) -> None:
        for machine in (self.near, self.far):
            subprocess.run(
                ["ip", "netns", "del", machine.name], capture_output=True, timeout=HANG_LIMIT
            )
