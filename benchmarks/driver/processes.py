"""The processes of a benchmark: the daemon, the simulated masters and the baseline programs."""

from __future__ import annotations

import json
import os
import pathlib
import queue
import re
import resource
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
from contextlib import ExitStack, contextmanager
from typing import Iterator, Self, Sequence

TIME_LIMIT = 30  # seconds; guards against a hang

QUICK_SLAVE = """
[info]
connect
info
exit 0

[run]
connect
info
beat 1000
"""


class BenchmarkError(Exception):
    pass


def free_port() -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Program:
    """A running program; records when each output line was read. It exits when its input closes."""

    def __init__(self, arguments: Sequence[object], folder: pathlib.Path | None = None) -> None:
        self.started_ns = time.monotonic_ns()
        self.process = subprocess.Popen(
            [str(a) for a in arguments],
            cwd=folder,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            bufsize=1,
        )
        self.pid = self.process.pid
        self.name = pathlib.Path(str(arguments[0])).name
        self.lines: queue.Queue[tuple[int, str | None]] = queue.Queue()
        self.last_line = ""
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self) -> None:
        assert self.process.stdout
        for line in self.process.stdout:
            self.lines.put((time.monotonic_ns(), line.rstrip("\n")))
        self.lines.put((time.monotonic_ns(), None))

    def next_line(self) -> tuple[int, str]:
        try:
            at, line = self.lines.get(timeout=TIME_LIMIT)
        except queue.Empty:
            raise BenchmarkError(
                f"{self.name} has printed nothing for {TIME_LIMIT} s after: {self.last_line}"
            ) from None
        if line is None:
            raise BenchmarkError(f"{self.name} has ended")
        self.last_line = line
        return at, line

    def line_with(self, text: str) -> tuple[int, str]:
        """Returns the time and text of the next line with `text`; drops the lines before it."""
        while True:
            at, line = self.next_line()
            if text in line:
                return at, line

    def cpu_ns(self) -> int:
        """Returns the processor time of all threads so far, including those that have ended."""
        return time.clock_gettime_ns((~self.pid << 3) | 2)

    def footprint(self) -> tuple[int, int, int]:
        """Returns the wake-ups so far, the resident bytes and the number of threads."""
        switches = threads = resident = 0
        for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir():
            status = (task / "status").read_text()
            switches += sum(int(n) for n in re.findall(r"ctxt_switches:\s+(\d+)", status))
            resident = int(re.findall(r"VmRSS:\s+(\d+)", status)[0]) * 1024
            threads += 1
        return switches, resident, threads

    def pause(self) -> None:
        os.kill(self.pid, signal.SIGSTOP)

    def resume(self) -> None:
        os.kill(self.pid, signal.SIGCONT)

    def ask_to_end(self) -> None:
        assert self.process.stdin
        self.process.stdin.close()

    def end(self) -> int:
        """Asks the program to exit and returns how many nanoseconds it took."""
        handle = os.pidfd_open(self.pid)
        try:
            asked = time.monotonic_ns()
            self.ask_to_end()
            if not select.select([handle], [], [], TIME_LIMIT)[0]:
                self.process.kill()
            took = time.monotonic_ns() - asked
        finally:
            os.close(handle)
        self.process.wait()
        return took

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        if self.process.poll() is None:
            self.end()


class Daemon(Program):
    """The daemon in its own folder, with the slave and the slave's file beside it."""

    slave = "quelta_standin_slave"
    slave_file = "quelta_standin_slave.txt"

    def __init__(self, programs: pathlib.Path, slave_text: str = QUICK_SLAVE) -> None:
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="quelta-bench-"))
        self.port = free_port()
        for name in ("quelta_daemon", self.slave):
            shutil.copy2(programs / name, self.folder)
        (self.folder / self.slave_file).write_text(slave_text)
        super().__init__(
            [
                self.folder / "quelta_daemon",
                "--port",
                self.port,
                "--slave",
                self.folder / self.slave,
            ],
            self.folder,
        )

    def ask_to_end(self) -> None:
        self.process.send_signal(signal.SIGTERM)

    def pass_over_start(self) -> None:
        """Drops the start-up lines, including those of the information run, up to the summary."""
        self.line_with("Out-of-core rendering: ")

    def slave_pid(self) -> int:
        return int(self.line_with("standin: pid: ")[1].split()[-1])

    def __exit__(self, *arguments: object) -> None:
        super().__exit__(*arguments)
        shutil.rmtree(self.folder)


class Masters(Program):
    """Masters on the loopback for a daemon that receives beacons on `daemon_port`."""

    def __init__(self, programs: pathlib.Path, count: int, daemon_port: int = 0) -> None:
        super().__init__([programs / "quelta_bench_masters", count, daemon_port])
        self.count = count
        self.port = self.answer()["port"]

    def command(self, *words: object) -> None:
        print(*words, file=self.process.stdin, flush=True)

    def answer(self) -> dict[str, int]:
        answer = json.loads(self.next_line()[1])
        if "error" in answer:
            raise BenchmarkError(f"the masters failed: {answer['error']}")
        return answer

    def do(self, *words: object) -> dict[str, int]:
        self.command(*words)
        return self.answer()


class Subject:
    """A program under measurement and the masters connected to it."""

    def __init__(
        self, stack: ExitStack, programs: pathlib.Path, name: str, masters: int, *more: object
    ) -> None:
        if name == "daemon":
            daemon = stack.enter_context(Daemon(programs))
            self.program: Program = daemon
            self.masters = stack.enter_context(Masters(programs, masters, daemon.port))
            daemon.pass_over_start()
            if masters:
                self.masters.do("announce")
        else:
            self.masters = stack.enter_context(Masters(programs, masters))
            self.program = stack.enter_context(
                Program([programs / f"quelta_bench_{name}", self.masters.port, masters, *more])
            )
            self.masters.do("accept")
            self.program.line_with("ready")

    @property
    def daemon(self) -> Daemon:
        assert isinstance(self.program, Daemon)
        return self.program


@contextmanager
def side_by_side(
    programs: pathlib.Path, names: Sequence[str], masters: int
) -> Iterator[dict[str, Subject]]:
    """Yields the subjects by name. All are paused; `running` resumes one of them."""
    with ExitStack() as stack:
        subjects = {name: Subject(stack, programs, name, masters) for name in names}
        for subject in subjects.values():
            subject.program.pause()
        try:
            yield subjects
        finally:
            for subject in subjects.values():
                subject.program.resume()


@contextmanager
def running(subject: Subject) -> Iterator[None]:
    subject.program.resume()
    try:
        yield
    finally:
        subject.program.pause()


def raise_descriptor_limit() -> int:
    """Raises the limit on open files to the hard limit and returns it."""
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    return hard
