"""Free ports, each handed out once even to tests that run at the same time."""

import random
import socket
from pathlib import Path

# Below the usual ephemeral range, so that no outgoing connection takes one of these.
LOWEST, HIGHEST = 20000, 32000
BLOCK = 4


def is_free(port: int, kind: socket.SocketKind) -> bool:
    with socket.socket(socket.AF_INET, kind) as probe:
        try:
            probe.bind(("0.0.0.0", port))
        except OSError:
            return False
    return True


class Ports:
    """Finds blocks of free ports; the daemon uses the following ones for its slave."""

    def __init__(self, shared_folder: Path) -> None:
        self.folder = shared_folder
        self.folder.mkdir(exist_ok=True)

    def free_block(self) -> int:
        while True:
            first = random.randrange(LOWEST, HIGHEST, BLOCK)
            block = range(first, first + BLOCK)
            if all(
                is_free(port, kind)
                for port in block
                for kind in (socket.SOCK_DGRAM, socket.SOCK_STREAM)
            ):
                try:
                    (self.folder / str(first)).touch(exist_ok=False)
                    return first
                except FileExistsError:
                    continue


def refusing_socket(ip: str = "127.0.0.1") -> socket.socket:
    """Returns a bound socket that does not listen: its port stays reserved but refuses."""
    holder = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    holder.bind((ip, 0))
    return holder
