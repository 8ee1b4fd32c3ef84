"""A render node under test: a daemon and a stand-in slave, each in its own folder."""

from __future__ import annotations

import os
import signal
import subprocess
import time
from pathlib import Path
from typing import TYPE_CHECKING, Any, Callable, Self, Sequence, TypeVar

from . import measure, programs, wire
from .limits import HANG_LIMIT
from .output import Output
from .scenario import GPUS, SLAVE_VERSION, scenario

if TYPE_CHECKING:
    from .master import Master

T = TypeVar("T")

USUAL_FLAGS = "daemon daemonDetail logPrefix"
FLAGS_FILE = "quelta_daemon_log_flags.txt"
LOG_FILE = "quelta_daemon_log.txt"
SLAVE_REPORT = "standin: "
SLAVE_ID = SLAVE_REPORT + "pid: "
FORCED = "!! killing thread by force !!"
POLL = 0.01
BIRTH_LIMIT = 5.0  # seconds
QUICK_END = 1.0  # seconds; exceeded only if a slave ignores the stop


def processes_in(folder: Path) -> list[int]:
    """Returns the processes whose current folder is this one: a slave starts in its own folder."""
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if Path(os.readlink(entry / "cwd")) == folder:
                    found.append(int(entry.name))
            except OSError:
                continue
    return found


def _end_if_never_born(process: int) -> None:
    """Kills a Wine process that was ended before Wine's server registered it.

    Such a process waits forever for the server's first reply and never becomes a program. Windows
    has no such state.
    """
    try:
        if measure.age(process) > BIRTH_LIMIT and not measure.handles_signals(process):
            os.kill(process, signal.SIGKILL)
    except OSError:
        pass  # it has just ended


def is_udp_port_bound(port: int) -> bool:
    """Returns whether a socket is bound to the port on all interfaces, as the daemon's is."""
    local = "00000000:%04X" % port
    rows = Path("/proc/net/udp").read_text().splitlines()[1:]
    return any(row.split()[1] == local for row in rows)


def wait_until(condition: Callable[[], T], what: str) -> T:
    """Polls a condition that no program reports."""
    deadline = time.monotonic() + HANG_LIMIT
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(POLL)
    raise AssertionError(f"timed out waiting until {what}")


class Node:
    """Starts and ends one daemon; its streams are collected in `output` and `errors`."""

    def __init__(
        self,
        folder: Path,
        port: int,
        flags: str | None = USUAL_FLAGS,
        plays: str | None = None,
        options: Sequence[str] = (),
        alias: str = "",
    ) -> None:
        self.folder = folder
        self.port = port
        self.alias = alias
        self.options = [*(["--alias", alias] if alias else []), *options]
        self.program = programs.install(programs.DAEMON, folder / "daemon")
        self.slave = programs.install(programs.STANDIN_SLAVE, folder / "slave")
        self.set_flags(flags)
        self.play(scenario() if plays is None else plays)
        self._process: subprocess.Popen[bytes] | None = None
        self.output = Output(())
        self.errors = Output(())

    @property
    def process(self) -> subprocess.Popen[bytes]:
        assert self._process, "the daemon has not been started"
        return self._process

    @property
    def flags_file(self) -> Path:
        return self.program.with_name(FLAGS_FILE)

    @property
    def log_file(self) -> Path:
        return self.program.with_name(LOG_FILE)

    @property
    def scenario_file(self) -> Path:
        return self.slave.with_suffix(".txt")

    def set_flags(self, text: str | None) -> None:
        if text is not None:
            self.flags_file.write_text(text)

    def play(self, text: str) -> None:
        """Sets the stand-in slave's scenario from its next start on."""
        self.scenario_file.write_text(text)

    def usual_arguments(self) -> list[str]:
        return [
            "--port",
            str(self.port),
            "--slave",
            programs.native_path(self.slave),
            *self.options,
        ]

    def start(self, arguments: Sequence[str] | None = None, **popen: Any) -> Self:
        """Starts the daemon in its own session, by default with the usual arguments."""
        line = programs.command(
            self.program, *(self.usual_arguments() if arguments is None else arguments)
        )
        streams: dict[str, Any] = {
            "stdin": subprocess.DEVNULL,
            "stdout": subprocess.PIPE,
            "stderr": subprocess.PIPE,
        }
        process = subprocess.Popen(
            line, start_new_session=True, cwd=popen.pop("cwd", self.folder), **{**streams, **popen}
        )
        self._process = process
        self.output = Output(process.stdout or ())
        self.errors = Output(process.stderr or ())
        return self

    def serve(self, **popen: Any) -> Self:
        """Starts the daemon and waits until it serves masters."""
        self.start(**popen)
        self.wait_until_listening()
        return self

    def wait_until_listening(self) -> None:
        """Waits for the beacon socket: by then, start-up has finished and signals are handled."""

        def listening() -> bool:
            ended = self.process.poll()
            assert ended is None, f"the daemon ended with {ended} instead of serving"
            return is_udp_port_bound(self.port)

        wait_until(listening, f"the daemon listens on port {self.port}")

    def own_lines(self) -> list[str]:
        """Returns the daemon's own lines; its slave writes to the same stream."""
        return [line for line in self.output.lines() if not line.startswith(SLAVE_REPORT)]

    def assert_nothing_forced(self) -> None:
        """JUCE logs a message when it kills a thread; the flag logJuce sends it to the log."""
        log = (
            self.log_file.read_text(errors="replace").splitlines()
            if self.log_file.is_file()
            else []
        )
        for lines in (self.output.lines(), self.errors.lines(), log):
            assert not [line for line in lines if FORCED in line], lines

    def slave_report(self, text: str, after: int = -1) -> int:
        """Waits for a line of the stand-in slave."""
        return self.output.wait(SLAVE_REPORT + text, after)

    def interrupt(self, signal_number: int = signal.SIGINT) -> None:
        os.kill(self.process.pid, signal_number)

    def wait_exit(self) -> int:
        return self.process.wait(HANG_LIMIT)

    def quit(self) -> list[str]:
        """Asks the daemon to quit and asserts its exit status."""
        self.interrupt()
        assert self.wait_exit() == 0
        self.output.rest()
        return self.own_lines()

    def slave_id(self) -> str:
        """Returns the process id printed by the latest slave, which Windows programs understand."""
        reports = [line for line in self.output.lines() if line.startswith(SLAVE_ID)]
        return reports[-1].removeprefix(SLAVE_ID)

    def slave_processes(self) -> list[int]:
        return processes_in(self.slave.parent)

    def slave_process(self) -> int:
        return wait_until(self.slave_processes, "the slave runs")[0]

    def wait_no_slave(self) -> None:
        def gone() -> bool:
            slaves = self.slave_processes()
            if programs.ON_WINDOWS:
                for slave in slaves:
                    _end_if_never_born(slave)
            return not slaves

        wait_until(gone, "the slave is gone")

    def assert_no_slave(self) -> None:
        """Asserts that no slave is left; Wine's ended processes linger for a moment."""
        if programs.ON_WINDOWS:
            self.wait_no_slave()
        assert self.slave_processes() == []

    def kill_slave(self, process: int | None = None) -> None:
        os.kill(process or self.slave_process(), signal.SIGKILL)

    def monitor_port(self, after: int = -1) -> int:
        line = r"daemon    : using free port (\d+) to communicate with slave"
        return int(self.output.wait_match(line, after).group(1))

    def status(
        self, kind: int, owner: Master | None = None, text: bytes | None = None
    ) -> wire.Status:
        """Returns the message that this daemon sends while `owner` holds its slave."""
        if owner is None:
            address, owner_text = wire.NO_ADDRESS, b""
        else:
            address, owner_text = owner.address, owner.text if text is None else text
        return wire.Status(kind, address, owner_text, self.alias.encode()[:32], GPUS, SLAVE_VERSION)

    def close(self) -> None:
        """Ends every process, regardless of the test's outcome."""
        if self._process and self._process.poll() is None:
            if programs.ON_WINDOWS:
                self._end_by_itself()
            self.process.kill()
            self.process.wait(HANG_LIMIT)
        for slave in self.slave_processes():
            try:
                os.kill(slave, signal.SIGKILL)
            except ProcessLookupError:
                pass
        # Copies of the programs would fill the disk during a long run.
        for program in (self.program, self.slave):
            program.unlink(missing_ok=True)

    def _end_by_itself(self) -> None:
        """Asks the daemon to exit: a killed one's sockets would keep Wine's server busy."""
        self.interrupt()
        try:
            self.process.wait(QUICK_END)
        except subprocess.TimeoutExpired:
            pass
