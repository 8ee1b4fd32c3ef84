"""scripts/build.sh configures a build tree again when its preset has changed."""

import json
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
HANG_LIMIT = 60.0  # seconds

PROJECT = """cmake_minimum_required(VERSION 3.22)
project(sample LANGUAGES NONE)
file(APPEND ${CMAKE_SOURCE_DIR}/configured "x")
file(WRITE ${CMAKE_BINARY_DIR}/kept "${KEPT}")
file(WRITE ${CMAKE_BINARY_DIR}/dropped "${DROPPED}")
add_custom_target(all_of_it ALL COMMAND ${CMAKE_COMMAND} -E echo "building all of it")
add_custom_target(part COMMAND ${CMAKE_COMMAND} -E echo "building a part")
"""


class Project:
    """A small project with one preset, `sample`."""

    def __init__(self, folder):
        self.folder = folder
        (folder / "CMakeLists.txt").write_text(PROJECT)
        (folder / "cmake").mkdir()
        (folder / "cmake" / "mingw-w64.cmake").write_text("")
        self.write_preset(KEPT="1", DROPPED="1")

    def write_preset(self, **variables):
        preset = {
            "name": "sample",
            "generator": "Ninja",
            "binaryDir": "${sourceDir}/build/sample",
            "cacheVariables": variables,
        }
        text = json.dumps({"version": 3, "configurePresets": [preset]})
        (self.folder / "CMakePresets.json").write_text(text)

    def build(self, *targets):
        script = f'. {ROOT}/scripts/build.sh; build_preset sample "$@"'
        command = ["bash", "-uc", script, "bash", *targets]
        return subprocess.run(
            command, cwd=self.folder, capture_output=True, text=True, timeout=HANG_LIMIT
        )

    def configured_times(self):
        return len((self.folder / "configured").read_text())

    def value(self, name):
        return (self.folder / "build" / "sample" / name).read_text()


@pytest.fixture
def project(tmp_path):
    return Project(tmp_path)


def test_an_unchanged_preset_is_configured_once(project):
    for _ in range(2):
        assert project.build().returncode == 0
    assert project.configured_times() == 1


def test_a_changed_preset_is_configured_again_without_its_old_values(project):
    assert project.build().returncode == 0
    project.write_preset(KEPT="2")
    assert project.build().returncode == 0
    assert (project.value("kept"), project.value("dropped")) == ("2", "")


def test_a_changed_toolchain_file_is_configured_again(project):
    assert project.build().returncode == 0
    (project.folder / "cmake" / "mingw-w64.cmake").write_text("# changed")
    assert project.build().returncode == 0
    assert project.configured_times() == 2


def test_a_failed_configuration_is_shown_and_tried_again(project):
    lists = project.folder / "CMakeLists.txt"
    lists.write_text(PROJECT + 'message(FATAL_ERROR "no such thing")\n')
    for _ in range(2):
        ended = project.build()
        assert ended.returncode != 0
        assert "no such thing" in ended.stderr
    lists.write_text(PROJECT)
    assert project.build().returncode == 0


def test_only_the_named_target_is_built(project):
    assert "building all of it" in project.build().stdout
    ended = project.build("part")
    assert "building a part" in ended.stdout
    assert "building all of it" not in ended.stdout
