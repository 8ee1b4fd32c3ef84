"""Blender under the daemon: Cycles renders frames on the CPU while a master holds the node."""

import os
import re
import subprocess
from pathlib import Path

import pytest

from support.limits import HANG_LIMIT
from support.node import processes_in, wait_until
from support.output import plain_line

pytestmark = [
    pytest.mark.linux_only("Blender is a program for Linux here"),
    pytest.mark.skipif(
        "QUELTA_TEST_BLENDER" not in os.environ, reason="large; ./test blender runs it"
    ),
]

WORKER = Path(__file__).parent / "support" / "blender_worker.py"
PATTERN = r"Blender (\d+)\.(\d+)\.(\d+)"
PNG_BEGIN = b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR" + (80).to_bytes(4, "big") + (60).to_bytes(4, "big")


@pytest.fixture
def blender_node(make_exec_node, tmp_path):
    folder = tmp_path / "frames"
    folder.mkdir()
    options = ["--background", "--factory-startup", "--python-exit-code", "1"]
    yield make_exec_node(
        command=["blender", *options, "--python", str(WORKER), "--", str(folder)],
        folder=str(folder),
        version=None,
        version_command=["blender", "--version"],
        version_pattern=PATTERN,
        errors=["CUDA error", "falling back to CPU", "^Error:", "^Traceback"],
        ready={"line": "^worker online$"},
    )
    assert processes_in(folder) == []


def installed_version():
    output = subprocess.run(
        ["blender", "--version"], check=True, capture_output=True, text=True, timeout=HANG_LIMIT
    ).stdout
    found = re.search(PATTERN, output)
    assert found, output
    major, minor, patch = map(int, found.groups())
    return 1_000_000 * major + 1_000 * minor + patch


def test_cycles_renders_while_the_node_is_held(blender_node, hold, tmp_path):
    node = blender_node.serve()
    node.output.wait(plain_line(f"  version:       {installed_version()}"))
    master = hold(node)
    master.wait("running")
    node.output.wait("frame 2 done")
    master.give_back()
    frames = tmp_path / "frames"
    wait_until(lambda: not processes_in(frames), "Blender is gone")
    images = [(frames / f"frame{number:04}.png").read_bytes() for number in range(3)]
    assert all(
        image.startswith(PNG_BEGIN) and image.endswith(b"IEND\xaeB`\x82") for image in images
    )
    assert len(set(images)) == 3
