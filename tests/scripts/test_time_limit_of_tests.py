"""A hanging end-to-end test fails under its own name after its fixtures are torn down."""

import os
import subprocess
import sys
from pathlib import Path

HANG_LIMIT = 60.0  # seconds
SUITE = Path(__file__).parents[1] / "e2e"
HANGING_TESTS = """
import pytest, threading

@pytest.fixture
def something():
    yield
    print("torn down")

@pytest.fixture
def endless():
    threading.Event().wait()

def test_hangs(something):
    threading.Event().wait()

def test_never_begins(something, endless):
    pass

def test_works():
    pass
"""


def test_hanging_tests_fail_and_the_others_run(tmp_path):
    for name in ("quelta_daemon", "quelta_standin_slave"):
        (tmp_path / name).touch()
    (tmp_path / "test_hanging.py").write_text(HANGING_TESTS)
    settings = {
        "PYTHONPATH": str(SUITE),
        "QUELTA_BIN_DIR": str(tmp_path),
        "QUELTA_SYSTEM": "linux",
        "QUELTA_TEST_LIMIT": "1",
    }
    ran = subprocess.run(
        [
            sys.executable,
            "-m",
            "pytest",
            "-q",
            "-s",
            "-p",
            "conftest",
            "-p",
            "no:cacheprovider",
            ".",
        ],
        cwd=tmp_path,
        env={**os.environ, **settings},
        capture_output=True,
        text=True,
        timeout=HANG_LIMIT,
    )
    assert "Failed: the test has not ended within 1 s\n" in ran.stdout
    assert "Failed: the set-up has not ended within 1 s\n" in ran.stdout
    assert ran.stdout.count("torn down") == 2
    assert "1 failed, 1 passed, 1 error in" in ran.stdout
