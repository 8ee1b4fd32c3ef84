"""scripts/unit_tests.sh runs the programs of the unit tests, all tests or those with a name."""

import os
import shutil
import subprocess
from pathlib import Path

import pytest

SCRIPT = Path(__file__).parents[2] / "scripts" / "unit_tests.sh"
HANG_LIMIT = 60.0  # seconds

# A test program: lists its tests, or notes how it was called and fails if the file `broken` exists.
PROGRAM = """#!/bin/bash
name=$(basename "$0")
if [ "$1" = --gtest_list_tests ]; then
    [[ "Suite.$name" == ${2#--gtest_filter=} ]] && printf 'Suite.\\n  %s\\n' "$name"
    exit 0
fi
echo "$name ${GTEST_SHARD_INDEX:-all} $1" >>calls
echo "standin: a slave's line"
echo "a line of the tests"
[ -e broken ] && { echo "[  FAILED  ] Suite.$name"; exit 1; }
echo "[  PASSED  ] 1 test."
"""


class Runner:
    """A project that has test programs and the script."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        (folder / "scripts").mkdir()
        (folder / "build" / "linux").mkdir(parents=True)
        shutil.copy(SCRIPT, folder / "scripts")
        self.add("quelta_unit_tests")

    def add(self, name: str) -> None:
        (self.folder / name).write_text(PROGRAM)
        (self.folder / name).chmod(0o755)

    def run(
        self, *options: str, program: str = "quelta_unit_tests"
    ) -> subprocess.CompletedProcess[str]:
        return subprocess.run(
            [self.folder / "scripts" / SCRIPT.name, *options, "linux", "env", f"./{program}"],
            env={"PATH": os.environ["PATH"], "QUELTA_FAILURES": str(self.folder / "failures")},
            capture_output=True,
            text=True,
            timeout=HANG_LIMIT,
            check=False,
        )

    def lines(self, name: str) -> list[str]:
        path = self.folder / name
        return sorted(path.read_text().splitlines()) if path.exists() else []


@pytest.fixture
def runner(tmp_path: Path) -> Runner:
    return Runner(tmp_path)


SHARDS = [f"quelta_unit_tests {shard} --gtest_brief=1" for shard in range(4)]


def test_all_tests_run_in_four_shards(runner: Runner) -> None:
    ended = runner.run()
    assert (ended.returncode, ended.stdout) == (0, "[  PASSED  ] 1 test.\n" * 4)
    assert runner.lines("calls") == SHARDS


def test_the_allocation_tests_run_as_well(runner: Runner) -> None:
    runner.add("quelta_allocation_tests")
    assert runner.run().returncode == 0
    assert runner.lines("calls") == ["quelta_allocation_tests all --gtest_brief=1", *SHARDS]


def test_the_allocation_tests_of_windows_run_as_well(runner: Runner) -> None:
    runner.add("quelta_unit_tests.exe")
    runner.add("quelta_allocation_tests.exe")
    assert runner.run(program="quelta_unit_tests.exe").returncode == 0
    assert "quelta_allocation_tests.exe all --gtest_brief=1" in runner.lines("calls")


@pytest.mark.parametrize("options", [(), ("-k", "unit")])
def test_a_failure_is_shown_and_noted(options: tuple[str, ...], runner: Runner) -> None:
    (runner.folder / "broken").touch()
    ended = runner.run(*options)
    assert ended.returncode == 1
    assert "a line of the tests\n[  FAILED  ] Suite.quelta_unit_tests\n" in ended.stdout
    assert set(runner.lines("failures")) == {"[  FAILED  ] Suite.quelta_unit_tests"}


def test_lines_of_slaves_are_left_out_of_failures(runner: Runner) -> None:
    (runner.folder / "broken").touch()
    assert "standin" not in runner.run().stdout


@pytest.mark.parametrize("kind", ["unit", "allocation"])
def test_only_the_program_that_has_the_named_test_runs(kind: str, runner: Runner) -> None:
    runner.add("quelta_allocation_tests")
    assert runner.run("-k", kind).returncode == 0
    assert runner.lines("calls") == [f"quelta_{kind}_tests all --gtest_filter=*{kind}*"]


def test_a_name_that_no_test_has_is_an_error(runner: Runner) -> None:
    ended = runner.run("-k", "nothing")
    assert (ended.returncode, ended.stderr) == (1, "no unit test has 'nothing' in its name\n")
    assert runner.lines("calls") == []
