"""The GPUs of a node with the exec slave: what it detects, and what its program may use.

Libraries and scripts made for the tests stand in for NVIDIA's; tests/fake_nvml has the libraries.
"""

import os
import re
import subprocess

import pytest

from support import programs
from support.exec_slave import CRASHED, EXEC_SLAVE, OWN, configure, worker
from support.limits import HANG_LIMIT
from support.output import plain_line

DETECTING = {"command": worker("hang"), "gpus": None}
CUDA = ("CUDA_DEVICE_ORDER", "CUDA_VISIBLE_DEVICES")
NO_SYSFS = "NVIDIA's GPUs are detected on Linux here"

SCRIPT = """#!/bin/sh
echo 'GPU 0: Scripted (UUID: GPU-8a)'
echo 'GPU 1: Scripted (UUID: GPU-8b)'
echo 'GPU 2: Scripted (UUID: GPU-8c)'
"""


def with_library(behaviour, **more):
    """Returns the environment of a node with one of the libraries, and without the variables."""
    library = programs.bin_dir() / "fake_nvml" / behaviour
    assert library.is_dir()
    others = {name: value for name, value in os.environ.items() if "VISIBLE" not in name}
    return {**others, "LD_LIBRARY_PATH": str(library), **more}


def with_smi(folder, behaviour, script):
    """Returns the same with a script in place of nvidia-smi."""
    program = folder / "nvidia-smi"
    program.write_text(script)
    program.chmod(0o755)
    return with_library(behaviour, PATH=f"{folder}:/usr/bin:/bin")


def own_lines(node):
    return [line for line in node.output.lines() if line.startswith(OWN)]


def refused(node, **popen):
    """Starts a daemon whose information run fails; returns the exec slave's lines."""
    assert node.start(**popen).wait_exit() == 0
    lines = node.output.rest()
    assert CRASHED in lines
    assert any(
        re.fullmatch(r"daemon    : slave process \d+ ended with .* 2", line) for line in lines
    )
    return own_lines(node)


@pytest.mark.linux_only(NO_SYSFS)
def test_gpus_of_nvidia_are_counted(make_exec_node):
    node = make_exec_node(**DETECTING).start(env=with_library("two"))
    node.output.wait(plain_line("  provided GPUs: 2"))
    assert own_lines(node) == []


@pytest.mark.linux_only(NO_SYSFS)
def test_unknown_gpu_fails_the_information_run(make_exec_node):
    node = make_exec_node(node={"options": ["--gpus", "1,4"]}, **DETECTING)
    assert refused(node, env=with_library("two")) == [
        OWN + "there is no GPU 4 (-g 3): this node has 2 GPUs according to NVML"
    ]


def test_gpu_beyond_the_configured_ones_fails_the_information_run(make_exec_node):
    node = make_exec_node(node={"options": ["--gpus", "3"]}, command=worker("hang"), gpus=2)
    told = refused(node)
    assert (
        told[-1] == OWN + "there is no GPU 3 (-g 2): the configuration gives this node 2 GPUs"
    ), told


@pytest.mark.linux_only(NO_SYSFS)
@pytest.mark.parametrize(
    "inherited, gpus, entries, numbers",
    [
        (None, [], "0,1", "0,1"),
        (None, ["--gpus", "2"], "1", "1"),
        ("GPU-0,0", ["--gpus", "2"], "0", "1"),
        ("GPU-0,0,7", [], "GPU-0,0", "0,1"),
    ],
)
def test_program_is_limited_to_the_selected_gpus(
    make_exec_node, hold, inherited, gpus, entries, numbers
):
    steps = [step for name in CUDA for step in ("variable", name)]
    node = make_exec_node(node={"options": gpus}, **DETECTING)
    configure(node, command=worker("print", "gpus: {gpus}", *steps, "hang"), gpus=None)
    more = {} if inherited is None else {"CUDA_VISIBLE_DEVICES": inherited}
    node.serve(env=with_library("two", **more))
    hold(node)
    node.output.wait_sequence(
        [
            f"gpus: {numbers}",
            "CUDA_DEVICE_ORDER=PCI_BUS_ID",
            f"CUDA_VISIBLE_DEVICES={entries}",
        ]
    )


@pytest.mark.linux_only(NO_SYSFS)
def test_library_that_crashes_is_replaced_by_nvidia_smi(make_exec_node, tmp_path):
    node = make_exec_node(**DETECTING).start(env=with_smi(tmp_path, "crash", SCRIPT))
    node.output.wait(plain_line("  provided GPUs: 3"))
    assert own_lines(node) == [OWN + "NVML ended with exit status 134 and without a result"]


@pytest.mark.slow
@pytest.mark.linux_only(NO_SYSFS)
def test_library_that_hangs_does_not_hang_the_node(make_exec_node, tmp_path):
    node = make_exec_node(**DETECTING).serve(env=with_smi(tmp_path, "hang", SCRIPT))
    assert re.fullmatch(OWN + r"NVML hung and was killed after 3\.\d s", own_lines(node)[0])
    assert plain_line("  provided GPUs: 0") in node.output.lines()
    node.assert_no_slave()


@pytest.mark.linux_only(NO_SYSFS)
def test_check_shows_the_gpus(tmp_path):
    file = tmp_path / "worker.toml"
    file.write_text('command = ["true"]\n')
    output = subprocess.run(
        [programs.bin_dir() / EXEC_SLAVE, "--check", file],
        check=True,
        env=with_library("lost"),
        stdout=subprocess.PIPE,
        timeout=HANG_LIMIT,
        encoding="utf-8",
    ).stdout
    for text in ("Fake GPU 2", "Fake GPU 0", "NVML", "error 15 (GPU is lost)"):
        assert text in output
    assert "Fake GPU 1" not in output
