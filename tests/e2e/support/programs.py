"""The programs under test: where they are, how to start them, and how they write paths.

QUELTA_BIN_DIR names the folder with the programs, QUELTA_SYSTEM the system they were built for
("linux" or "windows"). Windows programs run under Wine, which is configured by the environment.
"""

import os
import shutil
import subprocess
from pathlib import Path

from .limits import HANG_LIMIT

SYSTEM = os.environ.get("QUELTA_SYSTEM", "linux")
ON_WINDOWS = SYSTEM == "windows"
SUFFIX = ".exe" if ON_WINDOWS else ""

DAEMON = "quelta_daemon" + SUFFIX
STANDIN_SLAVE = "quelta_standin_slave" + SUFFIX


def bin_dir() -> Path:
    folder = os.environ.get("QUELTA_BIN_DIR")
    if not folder:
        raise RuntimeError("set QUELTA_BIN_DIR to the folder that holds the programs under test")
    for program in (DAEMON, STANDIN_SLAVE):
        if not (Path(folder) / program).is_file():
            raise RuntimeError(f"there is no {program} in QUELTA_BIN_DIR, which is {folder}")
    return Path(folder).resolve()


def command(program: Path | str, *arguments: str) -> list[str]:
    """Returns the command that starts a program."""
    return (["wine"] if ON_WINDOWS else []) + [str(program), *arguments]


def run(program: Path | str, *arguments: str) -> str:
    """Runs a program that has to succeed within the limit; returns its output."""
    return subprocess.run(
        command(program, *arguments),
        check=True,
        stdout=subprocess.PIPE,
        text=True,
        timeout=HANG_LIMIT,
    ).stdout


def native_path(path: Path | str) -> str:
    """Returns the path in the notation of the program under test."""
    return "Z:" + str(path).replace("/", "\\") if ON_WINDOWS else str(path)


def install(name: str, folder: Path, as_name: str | None = None) -> Path:
    """Puts a program into its own folder, because it looks for its files beside itself.

    Uses a hard link where possible, otherwise a copy.
    """
    folder.mkdir(parents=True, exist_ok=True)
    target = folder / (as_name or name)
    target.unlink(missing_ok=True)  # an open() would write through a link into its target
    try:
        os.link(bin_dir() / name, target)
    except OSError:
        shutil.copy2(bin_dir() / name, target)
    return target
