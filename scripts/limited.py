#!/usr/bin/env python3
"""Runs a command under a time limit and ends every process that it started.

usage: limited.py [--while PID] SECONDS COMMAND [ARGUMENT...]

The exit status is that of the command, or 128 + N if signal N ended it; 124 if the limit expired;
125 if process PID, which the command needs, ended first. In the last two cases, the processes still
running are listed on standard error, as are those that the command left behind when it exited.

The runner is a subreaper: a process whose parent has ended becomes its child. Everything that the
command started therefore remains its descendant, regardless of session and environment. That
includes processes whose first thread has ended while others run: the kernel shows them as zombies
without an executable, but SIGKILL still works.
"""

import ctypes
import os
import signal
import sys
import time
from typing import Callable, NoReturn

LIMIT_REACHED, NEEDED_PROCESS_ENDED, WRONG_USE = 124, 125, 2
TERMINATE_GRACE, KILL_GRACE, LEAVE_GRACE = 5.0, 10.0, 2.0  # seconds
POLL = 0.05
PR_SET_PDEATHSIG, PR_SET_CHILD_SUBREAPER = 1, 36

STOPPING = {signal.SIGTERM, signal.SIGINT, signal.SIGHUP}


def become_subreaper() -> None:
    """Also requests SIGTERM at the parent's end, so that a killed script leaves nothing running."""
    libc, parent = ctypes.CDLL(None), os.getppid()
    libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGTERM, 0, 0, 0)
    if os.getppid() != parent:
        os.kill(os.getpid(), signal.SIGTERM)


def read(path: str) -> str:
    try:
        with open(path, "rb") as file:
            return file.read().decode(errors="replace")
    except OSError:
        return ""


def descendants() -> list[int]:
    """Returns the ids of all processes below this one, parents first."""
    children: dict[int, list[int]] = {}
    for entry in os.listdir("/proc"):
        fields = read(f"/proc/{entry}/stat").rpartition(")")[2].split() if entry.isdigit() else []
        if fields:
            children.setdefault(int(fields[1]), []).append(int(entry))
    found = [os.getpid()]
    for process in found:
        found += children.get(process, [])
    return found[1:]


def describe(process: int) -> str:
    """Returns the command line, or an empty string if the process has ended.

    A living thread provides it, because a zombie leader has none.
    """
    try:
        threads = os.listdir(f"/proc/{process}/task")
    except OSError:
        return ""
    for thread in threads:
        folder = f"/proc/{process}/task/{thread}"
        name, _, fields = read(folder + "/stat").rpartition(")")
        if fields.split()[:1] not in ([], ["Z"], ["X"]):
            line = read(folder + "/cmdline").replace("\0", " ").strip()
            ended = (
                ""
                if read(f"/proc/{process}/cmdline") or not line
                else " (its first thread has ended)"
            )
            return (line or name.partition("(")[2]) + ended
    return ""


def list_running(why: str) -> None:
    running = [(process, text) for process in descendants() if (text := describe(process))]
    if running:
        print(
            f"{why}; still running:",
            *(f"  {process} {text}" for process, text in running),
            sep="\n",
            file=sys.stderr,
            flush=True,
        )


class Command:
    def __init__(self, arguments: list[str]) -> None:
        # os.posix_spawn would make the command ignore a signal that glibc uses internally.
        self.status: int | None = None
        self.process = os.fork()
        if self.process == 0:
            self.become(arguments)

    @staticmethod
    def become(arguments: list[str]) -> NoReturn:
        """Restores the signals that this process inherited; Python itself ignores two."""
        for number in (signal.SIGPIPE, signal.SIGXFSZ):
            signal.signal(number, signal.SIG_DFL)
        signal.pthread_sigmask(signal.SIG_SETMASK, ())
        try:
            os.execvp(arguments[0], arguments)
        except OSError as error:
            print(f"{arguments[0]}: {error.strerror}", file=sys.stderr, flush=True)
        os._exit(127)

    def reap(self) -> bool:
        """Reaps every child that has ended; returns whether the command has."""
        try:
            while True:
                process, status = os.waitpid(-1, os.WNOHANG)
                if process == 0:
                    break
                if process == self.process:
                    code = os.waitstatus_to_exitcode(status)
                    self.status = code if code >= 0 else 128 - code
        except ChildProcessError:
            pass
        return self.status is not None

    def everything_ended_within(
        self, seconds: float, each_time: Callable[[], None] = lambda: None
    ) -> bool:
        deadline = time.monotonic() + seconds
        while True:
            self.reap()
            if not descendants():
                return True
            if time.monotonic() > deadline:
                return False
            each_time()
            time.sleep(POLL)

    def end_everything(self) -> None:
        """Gives the command time to exit cleanly, then kills the rest. Every wait has a limit."""
        deadline = time.monotonic() + TERMINATE_GRACE
        if not self.reap():
            os.kill(self.process, signal.SIGTERM)
        while not self.reap() and time.monotonic() < deadline:
            time.sleep(POLL)
        if not self.everything_ended_within(KILL_GRACE, kill_descendants):
            list_running("SIGKILL had no effect")


def kill_descendants() -> None:
    for process in descendants():
        try:
            os.kill(process, signal.SIGKILL)
        except ProcessLookupError:
            pass


def exists(process: int) -> bool:
    try:
        os.kill(process, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        pass
    return True


def die_of(number: int) -> None:
    """Ends this process by the same signal, so that a shell sees Ctrl-C and stops too."""
    signal.signal(number, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, {number})
    os.kill(os.getpid(), number)


def run(seconds: float, needed: int | None, arguments: list[str]) -> int:
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_BLOCK, STOPPING | {signal.SIGCHLD})
    become_subreaper()
    deadline = time.monotonic() + seconds
    command = Command(arguments)

    while not command.reap():
        left = deadline - time.monotonic()
        if left <= 0:
            list_running(f"{arguments[0]} has not ended within {seconds:g} s")
            command.end_everything()
            return LIMIT_REACHED
        if needed and not exists(needed):
            list_running(f"process {needed}, which {arguments[0]} needs, has ended")
            command.end_everything()
            return NEEDED_PROCESS_ENDED
        arrived = signal.sigtimedwait(STOPPING | {signal.SIGCHLD}, min(left, 1.0))
        if arrived and arrived.si_signo in STOPPING:
            command.end_everything()
            die_of(arrived.si_signo)

    if not command.everything_ended_within(LEAVE_GRACE):
        list_running(f"{arguments[0]} has ended")
        command.end_everything()
    assert command.status is not None
    return command.status


def main(arguments: list[str]) -> int:
    needed = None
    try:
        if arguments[:1] == ["--while"]:
            needed = int(arguments[1])
            arguments = arguments[2:]
        seconds, command = float(arguments[0]), arguments[1:]
    except (IndexError, ValueError):
        command = []
    if not command:
        print(__doc__.split("\n\n")[1], file=sys.stderr)
        return WRONG_USE
    return run(seconds, needed, command)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
