"""The exec slave in a node under test, its worker, and quelta_master in front of it."""

from __future__ import annotations

import json
import re
import socket
import subprocess
from pathlib import Path
from typing import Any, Sequence

from . import measure, programs
from .console_master import PATIENCE, ConsoleMaster
from .limits import HANG_LIMIT
from .node import Node
from .output import Output

EXEC_SLAVE = "quelta_exec_slave" + programs.SUFFIX
WORKER = "quelta_test_worker" + programs.SUFFIX

# What the exec slave puts in front of its own lines.
OWN = "exec slave: "

CRASHED = " " * 12 + "slave crashed or was stopped via CTRL-C"


# Wine implements no Ctrl-Break for another process group, so there every program is killed.
WINE_LACKS_BREAK = "Wine does not deliver Ctrl-Break to another process group"
ENDED = "exit status 1" if programs.ON_WINDOWS else "exit status 0"

STATUS = "daemon    : received heartbeat message 'SLAVE_STATUS' from slave"


def exit_text(lines: Sequence[str]) -> str:
    """Returns how the latest slave process has ended, as the daemon tells it."""
    pattern = re.compile(r"daemon    : slave process \d+ ended with (.*)")
    return [found.group(1) for line in lines if (found := pattern.fullmatch(line))][-1]


def worker(*steps: object) -> list[str]:
    """Returns the command of a worker; tests/worker/worker.cpp lists the steps."""
    path = programs.native_path(programs.bin_dir() / WORKER)
    return [path.replace("{", "{{").replace("}", "}}"), *map(str, steps)]


def toml(settings: dict[str, Any]) -> str:
    """Returns settings as TOML, whose strings, numbers and arrays are written as in JSON."""
    plain = {key: value for key, value in settings.items() if not isinstance(value, dict)}
    lines = [f"{key} = {json.dumps(value, ensure_ascii=False)}" for key, value in plain.items()]
    for name, table in settings.items():
        if isinstance(table, dict):
            lines += [f"[{name}]", toml(table)]
    return "\n".join(lines) + "\n"


def configure(node: Node, **settings: Any) -> None:
    """Writes the configuration; the version and the number of GPUs are those of the stand-in."""
    usual: dict[str, Any] = {"version": 4000000, "gpus": 1}
    if programs.ON_WINDOWS:
        usual["stop"] = {"grace": 2}  # see WINE_LACKS_BREAK
    given = {key: value for key, value in {**usual, **settings}.items() if value is not None}
    node.slave.with_suffix(".toml").write_text(toml(given), encoding="utf-8")


def equip(node: Node, **settings: Any) -> Node:
    """Replaces the node's stand-in with an exec slave."""
    node.slave.unlink()
    node.slave = programs.install(EXEC_SLAVE, node.slave.parent)
    configure(node, **settings)
    return node


def slave_process(node: Node) -> int:
    """Returns the exec slave itself: its guardian and the program are its descendants."""
    return min(node.slave_processes(), key=measure.birth)


def native(path: Path) -> str:
    return programs.native_path(path)


class DaemonVoice:
    """Plays the daemon for one exec slave, to choose and see every byte of the connection."""

    def __init__(self, node: Node, stdout: int = subprocess.PIPE) -> None:
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.settimeout(HANG_LIMIT)
        port = self._listener.getsockname()[1]
        self.process = subprocess.Popen(
            programs.command(
                *(str(node.slave), "--net-master-address", "10.0.0.5"),
                *("--net-master-port", "21000", "--daemon-port", str(port), "--alias", ""),
            ),
            cwd=node.slave.parent,
            start_new_session=True,
            stdin=subprocess.DEVNULL,
            stdout=stdout,
        )
        self.output = Output(self.process.stdout or ())
        self._socket = self._listener.accept()[0]
        self._socket.settimeout(HANG_LIMIT)

    def read(self, size: int) -> bytes:
        data = b""
        while len(data) < size:
            piece = self._socket.recv(size - len(data))
            if not piece:
                break
            data += piece
        return data

    def send(self, data: bytes) -> None:
        self._socket.sendall(data)

    def wait_exit(self) -> int:
        return self.process.wait(HANG_LIMIT)

    def disconnect(self) -> None:
        self._socket.close()

    def close(self) -> None:
        self._listener.close()
        self._socket.close()
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait(HANG_LIMIT)


class Hold(ConsoleMaster):
    """A console master that holds the slave of a node."""

    def __init__(self, node: Node) -> None:
        self.node = f"127.0.0.1:{node.port}"
        super().__init__("hold", self.node, "--timeout", PATIENCE)

    def wait(self, *events: str) -> None:
        """Waits for these events of the node, in this order."""
        self.output.wait_sequence(f"{self.node} {event}" for event in events)

    def give_back(self) -> None:
        """Gives the slave back as at Ctrl-C and asserts that the node is free."""
        self.interrupt()
        self.wait("stopped: the node is free")
        self.wait_exit()

    def events(self) -> Sequence[str]:
        """Waits for the end of the console master and returns the events of the node."""
        begin = f"{self.node} "
        return [line.removeprefix(begin) for line in self.output.rest() if line.startswith(begin)][
            1:
        ]
