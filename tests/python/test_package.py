"""What other programs get when they import the package."""

import json
import os
import subprocess
import sys
from pathlib import Path

from support.limits import HANG_LIMIT

import quelta

ROOT = Path(__file__).resolve().parents[2]

PROBE = """
import json, logging, os, signal, sys, threading

def state():
    return {
        "files": sorted(os.listdir("/proc/self/fd")),
        "threads": threading.active_count(),
        "interrupt": str(signal.getsignal(signal.SIGINT)),
        "loggers": len(logging.getLogger("quelta").handlers),
    }

before = state()
known = set(sys.modules)
import quelta.sync
print(json.dumps([before, state(), sorted(set(sys.modules) - known)]))
"""


def test_an_import_does_nothing_and_needs_nothing() -> None:
    ended = subprocess.run(
        [sys.executable, "-W", "error", "-c", PROBE],
        env={**os.environ, "PYTHONPATH": str(ROOT / "python")},
        capture_output=True,
        text=True,
        timeout=HANG_LIMIT,
        check=True,
    )
    before, after, modules = json.loads(ended.stdout)
    assert before == after
    packages = {name.partition(".")[0] for name in modules}
    assert packages - sys.stdlib_module_names == {"quelta"}


def test_the_package_is_typed() -> None:
    assert quelta.__file__
    assert Path(quelta.__file__).with_name("py.typed").is_file()


def test_every_public_name_exists_and_is_described() -> None:
    document = (ROOT / "docs" / "python.md").read_text()
    for name in quelta.__all__:
        assert hasattr(quelta, name)
        assert f"`{name}" in document, name


def test_every_value_of_the_public_types_is_described() -> None:
    document = (ROOT / "docs" / "python.md").read_text()
    for kind in (quelta.EventKind, quelta.LostReason, quelta.NodeState):
        for value in kind:
            assert f"`{value.name}`" in document, value
