"""The resource usage of a daemon, as reported by Linux."""

import os
import time
from pathlib import Path

# A sanitizer's bookkeeping hides the memory and address space that the program itself uses.
THREAD_SANITIZED = "TSAN_OPTIONS" in os.environ
SANITIZED = THREAD_SANITIZED or "ASAN_OPTIONS" in os.environ

# The number of write() on this machine, as /proc shows it.
WRITE_CALL = {"x86_64": "1", "aarch64": "64"}.get(os.uname().machine)
SHOWS_CALLS = WRITE_CALL is not None and Path("/proc/self/syscall").exists()


def descriptors(process: int) -> list[str]:
    """Returns the target of every open descriptor."""
    folder = Path(f"/proc/{process}/fd")
    found = []
    for entry in os.listdir(folder):
        try:
            found.append(os.readlink(folder / entry))
        except FileNotFoundError:
            continue
    return found


def _status(process: int, field: str) -> str:
    for line in Path(f"/proc/{process}/status").read_text().splitlines():
        name, value = line.split(":", 1)
        if name == field:
            return value.split()[0]
    raise AssertionError(f"no {field} in the status of process {process}")


def threads(process: int) -> int:
    return int(_status(process, "Threads"))


def resident_kilobytes(process: int) -> int:
    return int(_status(process, "VmRSS"))


def peak_kilobytes(process: int) -> int:
    return int(_status(process, "VmHWM"))


def address_space_kilobytes(process: int) -> int:
    return int(_status(process, "VmSize"))


def handles_signals(process: int) -> bool:
    return int(_status(process, "SigCgt"), 16) != 0


def age(process: int) -> float:
    """Returns the age of the process in seconds."""
    started = int(Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[19])
    return time.clock_gettime(time.CLOCK_BOOTTIME) - started / os.sysconf("SC_CLK_TCK")


def children(process: int) -> dict[int, str]:
    """Returns the state of every child by its id; "Z" is a zombie."""
    found = {}
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                state, parent = (entry / "stat").read_text().rpartition(")")[2].split()[:2]
            except OSError:
                continue
            if int(parent) == process:
                found[int(entry.name)] = state
    return found


def birth(process: int) -> tuple[int, int]:
    """Returns a key that orders processes by their start, those of one moment by their id."""
    started = int(Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[19])
    return started, process


def cpu_seconds(process: int) -> float:
    user, system = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[11:13]
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")


def is_blocked_in_write(process: int, descriptor: int) -> bool:
    """Returns whether a thread sleeps in a write() to this descriptor."""
    for task in Path(f"/proc/{process}/task").iterdir():
        try:
            call, *arguments = (task / "syscall").read_text().split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        if call == WRITE_CALL and int(arguments[0], 16) == descriptor:
            return True
    return False
