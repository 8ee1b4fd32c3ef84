"""The examples in docs/dask.md run as they are printed."""

import os
import re
import subprocess
import sys
import tomllib

import options
from helpers import LIMIT, WORKER, names

TEXT = (options.ROOT / "docs/dask.md").read_text()


def block(language: str) -> str:
    found = re.search(rf"```{language}\n(.*?)```", TEXT, re.DOTALL)
    assert found
    return found[1]


def test_the_program_runs(farm):
    lines = block("python").splitlines()
    here = [i for i, line in enumerate(lines) if line.startswith("nodes = ")]
    lines[here[0]] = f"nodes = {names(farm)}"
    done = subprocess.run(
        [sys.executable, "-c", "\n".join(lines)],
        env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)},
        capture_output=True,
        text=True,
        timeout=LIMIT,
    )
    assert (done.stdout, done.stderr) == (f"{[n * n for n in range(100)]}\n", "")


def test_the_settings_are_those_of_the_example():
    printed, used = tomllib.loads(block("toml")), tomllib.loads(WORKER)
    assert printed["command"] == used["command"][: len(printed["command"])]
    assert printed["ready"] == used["ready"]
