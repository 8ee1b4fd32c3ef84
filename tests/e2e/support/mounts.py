"""File systems that only one daemon sees, in its own mount namespace."""

import ctypes
import os
import subprocess
import sys
from pathlib import Path
from typing import Callable

CLONE_NEWNS = 0x00020000
MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
PathName = str | Path
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int, what: str) -> None:
    if result != 0:
        raise OSError(ctypes.get_errno(), what)


def _mount(
    source: bytes | None,
    target: PathName,
    kind: bytes | None,
    flags: int,
    options: bytes | None = None,
) -> None:
    _check(_libc.mount(source, os.fsencode(target), kind, ctypes.c_ulong(flags), options), "mount")


def _leave() -> None:
    _check(_libc.unshare(CLONE_NEWNS), "unshare")
    _mount(b"none", "/", None, MS_REC | MS_PRIVATE)


def read_only(*folders: PathName) -> Callable[[], None]:
    """For Popen's preexec_fn: makes these folders read-only for the program."""

    def prepare() -> None:
        _leave()
        for folder in folders:
            _mount(os.fsencode(folder), folder, None, MS_BIND)
            _mount(None, folder, None, MS_BIND | MS_REMOUNT | MS_RDONLY)

    return prepare


def small(folder: PathName, kilobytes: int) -> Callable[[], None]:
    """For Popen's preexec_fn: mounts a small disk on this folder for the program."""

    def prepare() -> None:
        _leave()
        _mount(b"tmpfs", folder, b"tmpfs", 0, b"size=%dk" % kilobytes)

    return prepare


def without_proc() -> Callable[[], None]:
    """For Popen's preexec_fn: hides /proc from the program."""

    def prepare() -> None:
        _leave()
        _mount(b"tmpfs", "/proc", b"tmpfs", 0)

    return prepare


def why_not() -> str:
    """Returns why such mounts cannot be made here, or an empty string."""
    probe = subprocess.run(
        [sys.executable, "-c", "from support import mounts; mounts.read_only('/tmp')()"],
        cwd=os.path.dirname(os.path.dirname(__file__)),
        capture_output=True,
        text=True,
    )
    return (
        ""
        if probe.returncode == 0
        else f"no mounts can be made: {probe.stderr.strip().splitlines()[-1]}"
    )
