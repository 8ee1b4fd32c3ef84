"""Free ports, handed out so that tests running at the same time never get the same one."""

import random
import socket

# Below the range from which the usual systems serve outgoing connections: nobody takes these in passing.
LOWEST, HIGHEST = 20000, 32000
BLOCK = 4


def is_free(port, kind):
    with socket.socket(socket.AF_INET, kind) as probe:
        try:
            probe.bind(("0.0.0.0", port))
        except OSError:
            return False
    return True


class Ports:
    """Finds a port that is free together with the next ones, which the daemon takes for its slave."""

    def __init__(self, shared_folder):
        self.folder = shared_folder
        self.folder.mkdir(exist_ok=True)

    def free_block(self):
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


def refusing_socket(ip="127.0.0.1"):
    """A bound socket that nobody listens on: whoever connects to its port is refused, and nobody else gets it."""
    holder = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    holder.bind((ip, 0))
    return holder
