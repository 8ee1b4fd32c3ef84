"""However and wherever the daemon is started, it finds the files beside its executable."""

import os
import subprocess

import pytest

from support import measure, mounts, programs
from support.node import LOG_FILE
from support.transcript import between_start_and_stop, usage

pytestmark = pytest.mark.linux_only("needs Linux's links, folders and file names")

NO_SLAVE = "No path to the Quelta render slave given."
NO_MOUNTS = "needs Linux's mounts" if programs.ON_WINDOWS else mounts.why_not()
OWN_FLAG = "logAppendToFile=23 logToFile logFlags"
OVERLONG = b"x\xc0\xaf" * 40  # JUCE reserves two bytes per unit and then writes three
NOT_UTF8 = [OVERLONG, b"\xc0" * 60, b"M\xfcller", b"\xe2\x82"]
NAMES = ["overlong", "cut off", "Latin-1", "ends early"]


def folder_named(node, name):
    folder = os.fsencode(node.folder) + b"/" + name
    os.mkdir(folder)
    return folder


def assert_own_files(node, program=None, **popen):
    """Asserts that the daemon uses the files beside it, not those in its current folder."""
    node.set_flags(OWN_FLAG)
    current = node.folder / "current"
    current.mkdir(exist_ok=True)
    (current / node.flags_file.name).write_text("logTime")
    process = subprocess.run(
        program or [node.program], capture_output=True, timeout=60, cwd=current, **popen
    )
    assert (process.returncode, process.stderr) == (0, b"")
    lines = between_start_and_stop(process.stdout.decode().splitlines())
    assert [line for line in lines if line.startswith("logAppendToFile")][0].split()[2] == "23"
    assert lines[-len(usage(node.program)) :] == usage(node.program)
    assert node.log_file.read_bytes() == process.stdout
    assert not (current / LOG_FILE).exists()


def test_started_through_the_search_path(make_node):
    node = make_node()
    environment = {**os.environ, "PATH": f"{node.program.parent}:{os.environ['PATH']}"}
    assert_own_files(node, ["sh", "-c", f"exec {node.program.name}"], env=environment)


def test_started_by_a_path_with_two_slashes(make_node):
    node = make_node()
    assert_own_files(node, ["/" + str(node.program)])


def test_started_by_a_relative_path(make_node):
    assert_own_files(make_node(), ["../daemon/" + programs.DAEMON])


def test_started_through_a_link_to_a_link(make_node):
    node = make_node()
    links = [node.folder / name / "other name" for name in ("first", "second")]
    for link, target in zip(links, (links[1], node.program)):
        link.parent.mkdir()
        link.symlink_to(os.path.relpath(target, link.parent))
    assert_own_files(node, [links[0]])


def test_started_with_an_unrelated_argv0(make_node):
    node = make_node()
    assert_own_files(node, ["anything"], executable=node.program)


def test_started_from_a_deleted_executable(make_node):
    node = make_node()
    program = os.open(node.program, os.O_PATH)
    node.program.unlink()
    assert_own_files(node, [f"/proc/self/fd/{program}"], pass_fds=[program])
    os.close(program)


def test_name_ending_in_deleted_is_taken_literally(make_node):
    node = make_node()
    node.program = node.program.rename(node.program.with_name("daemon (deleted)"))
    assert_own_files(node)


@pytest.mark.skipif(bool(NO_MOUNTS), reason=NO_MOUNTS or "-")
@pytest.mark.skipif(measure.SANITIZED, reason="a sanitizer needs /proc itself")
def test_started_without_proc(make_node):
    node = make_node()
    assert_own_files(node, preexec_fn=mounts.without_proc())


@pytest.mark.parametrize("name", NOT_UTF8, ids=NAMES)
def test_program_folder_whose_name_is_not_utf8(make_node, name):
    node = make_node()
    folder = folder_named(node, name)
    program = os.path.join(folder, os.fsencode(node.program.name))
    os.rename(node.program, program)
    with open(os.path.join(folder, os.fsencode(node.flags_file.name)), "w") as flags:
        flags.write("logToFile logPrefix")
    process = subprocess.run([program], capture_output=True, timeout=60, cwd=folder)
    assert (process.returncode, process.stderr) == (0, b"")
    assert process.stdout.startswith(b"            Started logging on ")
    with open(os.path.join(folder, os.fsencode(LOG_FILE)), "rb") as log:
        assert log.read() == process.stdout


@pytest.mark.parametrize("name", NOT_UTF8, ids=NAMES)
def test_executable_whose_name_is_not_utf8(make_node, name):
    node = make_node(flags="logToFile")
    program = os.path.join(os.fsencode(node.program.parent), name)
    os.rename(node.program, program)
    process = subprocess.run([program], capture_output=True, timeout=60)
    shown = name.decode("latin-1")
    assert between_start_and_stop(process.stdout.decode().splitlines())[3].startswith(
        f"  {shown}  --port "
    )
    assert node.log_file.read_bytes() == process.stdout


@pytest.mark.parametrize("name", NOT_UTF8, ids=NAMES)
def test_current_folder_whose_name_is_not_utf8(make_node, name):
    """A relative slave path leads into that folder, and the slave runs there."""
    node = make_node(flags=None)
    folder = folder_named(node, name)
    inner = os.path.join(folder, b"inner")
    os.rename(node.slave.parent, inner)
    node.start(["--port", str(node.port), "--slave", "inner/" + node.slave.name], cwd=folder)
    node.wait_until_listening()
    lines = node.quit()
    assert f"  slave path:    /proc/{node.process.pid}/cwd/inner/{node.slave.name}" in lines
    assert "  provided GPUs: 1" in lines
    assert node.errors.rest() == []


@pytest.mark.parametrize("path", ["missing", "../slave"])
def test_missing_slave_in_a_folder_whose_name_is_not_utf8(make_node, path):
    node = make_node(flags=None)
    node.start(["--port", "5130", "--slave", path], cwd=folder_named(node, OVERLONG))
    resolved = os.path.normpath(
        f"/proc/{node.process.pid}/cwd/{path}"
        if path == "missing"
        else f"/proc/{node.process.pid}/slave"
    )
    assert between_start_and_stop(node.output.rest()) == [f'"{resolved}" is not an existing file.']
    assert node.wait_exit() == 0


def test_deleted_current_folder(make_node):
    node = make_node(flags=None)
    gone = node.folder / "gone"
    gone.mkdir()
    node.start(["--port", "5130", "--slave", "slave"], cwd=gone, preexec_fn=gone.rmdir)
    assert between_start_and_stop(node.output.rest()) == [
        f'"/proc/{node.process.pid}/cwd/slave" is not an existing file.'
    ]


def test_home_folder_whose_name_is_not_utf8(make_node):
    node = make_node(flags=None)
    node.start(
        ["--port", "5130", "--slave", "~/slave"], env={**os.environb, b"HOME": b"/" + OVERLONG}
    )
    assert between_start_and_stop(node.output.rest()) == [
        f'"{node.folder}/~/slave" is not an existing file.'
    ]
    assert node.wait_exit() == 0


@pytest.mark.parametrize("name", NOT_UTF8, ids=NAMES)
def test_temporary_folder_whose_name_is_not_utf8(make_node, name):
    node = make_node(flags="logToFile")
    node.log_file.mkdir()
    folder = folder_named(node, name)
    node.start([], env={**os.environb, b"TMPDIR": folder})
    lines = node.output.rest()
    assert node.wait_exit() == 0
    with open(os.path.join(folder, os.fsencode(LOG_FILE)), "r") as log:
        assert log.read().splitlines() == lines
