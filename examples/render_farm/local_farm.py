"""A render farm on one machine: daemons on loopback addresses, whose slaves are Dask workers.

A real farm does not need this file: there, an administrator has installed the daemons.
"""

from __future__ import annotations

import os
import random
import shutil
import signal
import socket
import subprocess
import time
from contextlib import suppress
from pathlib import Path
from typing import IO

DAEMON = "quelta_daemon"
SLAVE = "quelta_exec_slave"
LISTENING = "start listening for masters on port"
FAILED_TO_BIND = "failed to bind to address"
LIMIT = 30.0  # seconds; only guards against a hang
POLL = 0.05
PORTS = range(20000, 32000, 16)  # a daemon uses the ports after its own for its slave


class FarmError(Exception):
    """The farm does not do what it should."""


class LocalNode:
    """One daemon in a folder of its own. Starts it, kills it, and ends it."""

    def __init__(self, number: int, folder: Path, programs: Path, worker: str) -> None:
        self.alias = f"node{number}"
        self.address = f"127.0.0.{number}"
        self.port = 0
        self.folder = folder.resolve() / self.alias
        self.log = self.folder / "daemon.log"
        self._process: subprocess.Popen[bytes] | None = None
        # The daemon looks for its log flags beside its executable, the slave for its settings.
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir(parents=True)
        for program in (DAEMON, SLAVE):
            shutil.copy2(programs / program, self.folder)
        (self.folder / "quelta_daemon_log_flags.txt").write_text("daemon 1\nlogTime 1\n")
        (self.folder / f"{SLAVE}.toml").write_text(worker)

    @property
    def name(self) -> str:
        return f"{self.address}:{self.port}"

    @property
    def is_running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    def start(self) -> None:
        """Starts the daemon in a session of its own, so that only this program gets Ctrl-C."""
        self.port = self.port or free_port()
        command = [f"./{DAEMON}", "--port", str(self.port)]
        command += ["--slave", f"./{SLAVE}", "--alias", self.alias]
        with self.log.open("ab") as log:
            self._process = subprocess.Popen(
                command,
                cwd=self.folder,
                # A worker that is killed leaves files behind; they belong here as well.
                env={**os.environ, "TMPDIR": str(self.temporary)},
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                start_new_session=True,
            )

    def wait_until_listening(self) -> None:
        deadline = time.monotonic() + LIMIT
        while not self._is_listening():
            if not self.is_running or time.monotonic() > deadline:
                raise FarmError(f"{self.alias} does not serve; its log is {self.log}")
            time.sleep(POLL)

    def _is_listening(self) -> bool:
        """Whether the daemon has its port: the information run is over, and signals are handled."""
        wanted = f"00000000:{self.port:04X}"
        rows = Path("/proc/net/udp").read_text().splitlines()[1:]
        return any(row.split()[1] == wanted for row in rows)

    def kill(self) -> None:
        """Kills the daemon and its slave as a power cut does: nobody can say goodbye."""
        assert self._process
        slaves = children_of(self._process.pid)
        for process in (self._process.pid, *slaves):
            with suppress(ProcessLookupError):  # a slave may end with its daemon
                os.kill(process, signal.SIGKILL)
        self._process.wait(LIMIT)

    def ask_to_end(self) -> None:
        if self._process and self._process.poll() is None:
            self._process.send_signal(signal.SIGTERM)

    def wait_until_ended(self) -> None:
        if self._process:
            try:
                self._process.wait(LIMIT)
            except subprocess.TimeoutExpired:
                self.kill()


class LocalFarm:
    """Starts daemons together and ends them together: `with LocalFarm(...) as farm`."""

    def __init__(self, size: int, folder: Path, programs: Path, worker: str) -> None:
        shutil.rmtree(folder, ignore_errors=True)
        self.nodes = [LocalNode(n + 1, folder, programs, worker) for n in range(size)]

    def __enter__(self) -> LocalFarm:
        try:
            for node in self.nodes:
                node.start()
            for node in self.nodes:
                node.wait_until_listening()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        for node in self.nodes:
            node.ask_to_end()
        for node in self.nodes:
            node.wait_until_ended()


class Thief:
    """Another master, `quelta_master steal`, which takes a node and later gives it back."""

    def __init__(self, programs: Path, node: str, log: Path) -> None:
        self.log = log
        self._out: IO[bytes] = log.open("wb")
        self._process = subprocess.Popen(
            [programs / "quelta_master", "steal", node, "--text", "another artist"],
            stdin=subprocess.DEVNULL,
            stdout=self._out,
            stderr=self._out,
            start_new_session=True,
        )

    def has_stolen(self) -> bool:
        return " starting for " in self.log.read_text()

    def give_back(self) -> None:
        """Ends as with Ctrl-C; the console master then stops the slave that it started."""
        if self._process.poll() is None:
            self._process.send_signal(signal.SIGINT)
        try:
            self._process.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait(LIMIT)
        self._out.close()


def children_of(parent: int) -> list[int]:
    tasks = Path(f"/proc/{parent}/task")
    return [int(pid) for task in tasks.iterdir() for pid in (task / "children").read_text().split()]


def free_port() -> int:
    while True:
        port = random.choice(PORTS)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            try:
                probe.bind(("0.0.0.0", port))
            except OSError:
                continue
        return port
