"""The workflow for a public forge runs what ./test runs, and nothing else."""

import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).parents[2]
WORKFLOW = (ROOT / ".github" / "workflows" / "tests.yml").read_text()
HANG_LIMIT = 60.0  # seconds


def test_every_part_runs() -> None:
    usage = subprocess.run(
        [ROOT / "test", "--help"], capture_output=True, text=True, timeout=HANG_LIMIT, check=True
    ).stdout
    default_parts = re.search(r"without parts: (.*)", usage)
    matrix = re.search(r"part: \[(.*)\]", WORKFLOW)
    assert default_parts and matrix
    assert matrix.group(1).split(", ") == default_parts.group(1).split()


def test_nothing_runs_that_cannot_be_run_locally() -> None:
    assert re.findall(r"run: (.*)", WORKFLOW) == ["./test ${{ matrix.part }}"]
    assert re.findall(r"uses: (.*)", WORKFLOW) == ["actions/checkout@v4"]
