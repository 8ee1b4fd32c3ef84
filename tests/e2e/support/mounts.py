"""File systems that only one daemon sees, in its own mount namespace."""

import ctypes
import os
import subprocess
import sys

CLONE_NEWNS = 0x00020000
MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), what)


def _mount(source, target, kind, flags, options=None):
    _check(_libc.mount(source, os.fsencode(target), kind, ctypes.c_ulong(flags), options), "mount")


def _leave():
    _check(_libc.unshare(CLONE_NEWNS), "unshare")
    _mount(b"none", "/", None, MS_REC | MS_PRIVATE)


def read_only(*folders):
    """For Popen's preexec_fn: makes these folders read-only for the program."""

    def prepare():
        _leave()
        for folder in folders:
            _mount(os.fsencode(folder), folder, None, MS_BIND)
            _mount(None, folder, None, MS_BIND | MS_REMOUNT | MS_RDONLY)

    return prepare


def small(folder, kilobytes):
    """For Popen's preexec_fn: mounts a small disk on this folder for the program."""

    def prepare():
        _leave()
        _mount(b"tmpfs", folder, b"tmpfs", 0, b"size=%dk" % kilobytes)

    return prepare


def without_proc():
    """For Popen's preexec_fn: hides /proc from the program."""

    def prepare():
        _leave()
        _mount(b"tmpfs", "/proc", b"tmpfs", 0)

    return prepare


def why_not():
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
