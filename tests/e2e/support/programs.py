"""Where the programs under test are, and how this system's programs are started and given paths.

QUELTA_BIN_DIR names the folder with the programs, QUELTA_SYSTEM the system that they were built for ("linux" or
"windows"). Windows programs run under Wine, whose settings come with the environment.
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


def bin_dir():
    folder = os.environ.get("QUELTA_BIN_DIR")
    if not folder:
        raise RuntimeError("set QUELTA_BIN_DIR to the folder that holds the programs under test")
    for program in (DAEMON, STANDIN_SLAVE):
        if not (Path(folder) / program).is_file():
            raise RuntimeError(f"there is no {program} in QUELTA_BIN_DIR, which is {folder}")
    return Path(folder).resolve()


def command(program, *arguments):
    """The command that starts one of the programs."""
    return (["wine"] if ON_WINDOWS else []) + [str(program), *arguments]


def run(program, *arguments):
    """Runs a program that ends by itself with success, within the limit, and gives what it prints."""
    return subprocess.run(
        command(program, *arguments),
        check=True,
        stdout=subprocess.PIPE,
        text=True,
        timeout=HANG_LIMIT,
    ).stdout


def native_path(path):
    """The path as the program under test writes it."""
    return "Z:" + str(path).replace("/", "\\") if ON_WINDOWS else str(path)


def install(name, folder, as_name=None):
    """Puts a program into a folder of its own: it looks for its files beside itself.

    A hard link costs nothing; a folder on another file system gets a copy.
    """
    folder.mkdir(parents=True, exist_ok=True)
    target = folder / (as_name or name)
    target.unlink(missing_ok=True)  # never through a link into what it links to
    try:
        os.link(bin_dir() / name, target)
    except OSError:
        shutil.copy2(bin_dir() / name, target)
    return target
