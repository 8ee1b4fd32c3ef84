"""CMakePresets.json and CMakeLists.txt: what the presets ask for, and a plain build does not."""

import json
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
HANG_LIMIT = 120.0  # seconds


def compile_commands(tree, *arguments):
    """The commands that compile this project's own sources."""
    configure = ["cmake", "-B", str(tree), *arguments]
    subprocess.run(configure, cwd=ROOT, check=True, capture_output=True, timeout=HANG_LIMIT)
    commands = json.loads((tree / "compile_commands.json").read_text())
    return [each["command"] for each in commands if each["file"].startswith(f"{ROOT}/src/")]


def rules(tree):
    return (tree / "CMakeFiles" / "rules.ninja").read_text()


def test_warnings_are_errors_in_presets(tmp_path):
    commands = compile_commands(tmp_path, "--preset", "linux")
    assert commands
    assert [command for command in commands if "-Werror" not in command] == []


def test_warnings_are_only_shown_in_a_plain_build(tmp_path):
    commands = compile_commands(tmp_path)
    assert commands
    assert [command for command in commands if "-Werror" in command] == []
    assert [command for command in commands if "-Wall -Wextra" not in command] == []


@pytest.mark.parametrize("launcher", ["", "/usr/bin/env"])
def test_a_given_compiler_launcher_is_kept(launcher, tmp_path):
    compile_commands(tmp_path, "--preset", "linux", f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}")
    assert "ccache" not in rules(tmp_path)
    assert f"{launcher} /usr/bin/g++" in rules(tmp_path)


def test_ccache_is_used_if_it_is_found(tmp_path, monkeypatch):
    monkeypatch.delenv("CMAKE_CXX_COMPILER_LAUNCHER", raising=False)
    compile_commands(tmp_path, "--preset", "linux", "-DCCACHE_PROGRAM=/usr/bin/true")
    assert "CCACHE_SLOPPINESS=pch_defines,time_macros /usr/bin/true" in rules(tmp_path)


def test_the_benchmarks_have_a_tree_of_their_own():
    presets = json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]
    option = "QUELTA_BUILD_BENCHMARKS"
    with_benchmarks = {each["name"] for each in presets if option in each.get("cacheVariables", {})}
    assert with_benchmarks == {"bench", "tidy"}
    assert "build_preset bench benchmarks" in (ROOT / "bench").read_text()
