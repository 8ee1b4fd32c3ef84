"""Trouble with log destinations: full disks, read-only folders, removed files, stalled pipes."""

import os
import select
from pathlib import Path

import pytest

from support import measure, mounts, programs, wire
from support.hostile import flood
from support.node import LOG_FILE, wait_until
from support.output import Output, error_line, plain_line
from support.ownership import running, started, stopped
from support.scenario import PUPPET, scenario
from support.slave import SlaveConnection

pytestmark = pytest.mark.linux_only("needs Linux's devices, mounts and pipes")

FILE_FLAGS = "daemon logPrefix logJuce logToFile logForceFlush=1"
NO_MOUNTS = "needs Linux's mounts" if programs.ON_WINDOWS else mounts.why_not()
LONGER_THAN_ANY_KILL = 7  # seconds; JUCE would kill a thread after 5 at the latest
MORE_THAN_A_PIPE_HOLDS = 2000
LOG_BUFFER = 64 * 1024  # bytes
STDOUT = 1
stalled_reader = pytest.mark.skipif(
    not measure.SHOWS_CALLS, reason="/proc does not show system calls"
)
own_mounts = pytest.mark.skipif(bool(NO_MOUNTS), reason=NO_MOUNTS or "-")


def assert_goes_on(node, make_master):
    """Asserts that everything except the log works as usual."""
    owner, other = (make_master().join(node) for _ in range(2))
    running(node, owner, other)
    stopped(node, owner, other)
    return owner, other


@pytest.mark.parametrize("flags", ["logForceFlush=1", "logFlushTime=50", ""])
def test_log_file_on_a_full_disk(make_node, make_master, flags):
    node = make_node(flags=f"daemon logPrefix logToFile logAppendToFile {flags}")
    node.log_file.symlink_to("/dev/full")
    assert_goes_on(node.serve(), make_master)
    node.quit()


def test_standard_output_on_a_full_disk(make_node, make_master):
    with open("/dev/full", "w") as full:
        node = make_node(flags=FILE_FLAGS).serve(stdout=full, stderr=full)
    assert_goes_on(node, make_master)
    node.quit()
    assert "Stopped logging on " in node.log_file.read_text()


def complain(beacon_socket, node, size):
    """Sends junk until the daemon has logged at least `size` bytes of complaints."""
    begin = len(node.output.lines())
    while sum(map(len, node.output.lines()[begin:])) < size:
        before = len(node.output.lines())
        flood(beacon_socket, node, b"junk", 50)
        wait_until(lambda: len(node.output.lines()) > before, "the daemon complains")


def assert_whole_lines(logged, lines):
    """Asserts that the log is a subsequence of these lines, each of them complete."""
    remaining = iter(lines)
    for line in logged.splitlines(keepends=True):
        assert line.endswith("\n") and any(line == other + "\n" for other in remaining), repr(line)


@own_mounts
@pytest.mark.parametrize("flags", ["logForceFlush=1", "logForceFlush=7", "logFlushTime=20", ""])
def test_log_resumes_with_whole_lines_when_disk_space_is_freed(make_node, beacon_socket, flags):
    node = make_node(flags=f"daemon logTime logPrefix logToFile logAppendToFile {flags}")
    disk = node.folder / "disk"
    disk.mkdir()
    node.log_file.symlink_to(disk / LOG_FILE)
    node.serve(preexec_fn=mounts.small(disk, 1024))
    seen_by_daemon = Path(f"/proc/{node.process.pid}/root{disk}")
    complain(beacon_socket, node, 2 * LOG_BUFFER)
    filler = seen_by_daemon / "filler"
    with pytest.raises(OSError, match="No space left"):
        filler.write_bytes(bytes(1 << 20))
    with open(seen_by_daemon / LOG_FILE) as file:
        full = os.fstat(file.fileno()).st_size
        complain(beacon_socket, node, 3 * LOG_BUFFER)
        assert os.fstat(file.fileno()).st_size - full < 4096  # the rest of the last page
        filler.unlink()
        complain(beacon_socket, node, 2 * LOG_BUFFER)
        lines = node.quit()
        logged = file.read()
    assert_whole_lines(logged, lines)
    assert len(logged) > full + LOG_BUFFER and logged.splitlines()[-3:] == lines[-3:]


@own_mounts
def test_read_only_folder_makes_the_log_fall_back_to_the_temporary_one(
    make_node, make_master, tmp_path
):
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    node = make_node(flags=FILE_FLAGS)
    node.serve(
        preexec_fn=mounts.read_only(node.program.parent),
        env={**os.environ, "TMPDIR": str(temporary)},
    )
    assert_goes_on(node, make_master)
    lines = node.quit()
    assert not node.log_file.exists()
    assert (temporary / LOG_FILE).read_text().splitlines() == lines


@own_mounts
def test_no_folder_is_writable_for_the_log_file(make_node, make_master, tmp_path):
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    node = make_node(flags=FILE_FLAGS)
    node.serve(
        preexec_fn=mounts.read_only(node.program.parent, temporary),
        env={**os.environ, "TMPDIR": str(temporary)},
    )
    assert_goes_on(node, make_master)
    node.quit()
    assert not node.log_file.exists() and not (temporary / LOG_FILE).exists()


@pytest.fixture
def shared_folder(make_node, tmp_path):
    """Creates a node that logs to a shared temporary folder; returns it and its log path there."""
    folder = tmp_path / "temporary"
    folder.mkdir(mode=0o1777)

    def make(flags):
        node = make_node(flags=f"logToFile {flags}")
        node.log_file.mkdir()
        return node, folder / LOG_FILE

    return make


def run_with_temporary_folder(node, folder):
    """Runs a daemon that only logs an error and exits; returns its lines."""
    lines = node.start([], env={**os.environ, "TMPDIR": str(folder)}).output.rest()
    assert node.wait_exit() == 0
    return lines


@pytest.mark.parametrize("target_exists", [True, False], ids=["link", "dangling link"])
def test_link_in_the_temporary_folder_is_replaced(shared_folder, tmp_path, target_exists):
    node, place = shared_folder("")
    target = tmp_path / "target"
    if target_exists:
        target.write_text("precious\n")
    place.symlink_to(target)
    lines = run_with_temporary_folder(node, place.parent)
    assert not place.is_symlink() and place.read_text().splitlines() == lines
    assert target.read_text() == "precious\n" if target_exists else not target.exists()


@pytest.mark.parametrize("target_exists", [True, False], ids=["link", "dangling link"])
def test_link_in_the_temporary_folder_is_not_appended_to(shared_folder, tmp_path, target_exists):
    node, place = shared_folder("logAppendToFile")
    target = tmp_path / "target"
    if target_exists:
        target.write_text("precious\n")
    place.symlink_to(target)
    run_with_temporary_folder(node, place.parent)
    assert place.is_symlink()
    assert target.read_text() == "precious\n" if target_exists else not target.exists()


def test_hard_link_in_the_temporary_folder_is_not_appended_to(shared_folder, tmp_path):
    node, place = shared_folder("logAppendToFile")
    target = tmp_path / "target"
    target.write_text("precious\n")
    place.hardlink_to(target)
    run_with_temporary_folder(node, place.parent)
    assert target.read_text() == "precious\n"


@pytest.mark.skipif(os.geteuid() != 0, reason="needs root to give a file away")
def test_file_of_another_user_in_the_temporary_folder_is_not_appended_to(shared_folder):
    node, place = shared_folder("logAppendToFile")
    place.write_text("not ours\n")
    os.chown(place, 65534, 65534)
    run_with_temporary_folder(node, place.parent)
    assert place.read_text() == "not ours\n"


def test_own_file_in_the_temporary_folder_is_appended_to(shared_folder):
    node, place = shared_folder("logAppendToFile")
    place.write_text("before\n")
    lines = run_with_temporary_folder(node, place.parent)
    assert place.read_text().splitlines() == ["before", *lines]


@pytest.mark.parametrize(
    "lose",
    [Path.unlink, lambda file: file.rename(file.with_suffix(".old"))],
    ids=["deleted", "moved"],
)
def test_log_file_removed_while_running(make_node, make_master, lose):
    """The daemon keeps writing to the open file and creates no new one."""
    node = make_node(flags=FILE_FLAGS).serve()
    lose(node.log_file)
    assert_goes_on(node, make_master)
    node.quit()
    assert not node.log_file.exists()


@pytest.mark.parametrize("stream", [1, 2])
def test_output_pipe_without_a_reader(make_node, make_master, stream):
    node = make_node(flags=f"{FILE_FLAGS} logToStdout={stream}")
    reader, writer = os.pipe()
    node.serve(stdout=writer, stderr=writer)
    os.close(writer)
    os.close(reader)
    assert_goes_on(node, make_master)
    node.quit()
    assert "Stopped logging on " in node.log_file.read_text()


class StalledReader:
    """Holds the pipe of the daemon's output, but reads it only after `wake`."""

    def __init__(self, node):
        self.node = node
        self.pipe, writer = os.pipe()
        node.serve(stdout=writer)
        os.close(writer)

    def blocks_daemon(self):
        """Returns whether the pipe is full and a thread of the daemon waits to write to it."""
        try:
            return measure.is_blocked_in_write(self.node.process.pid, STDOUT)
        except PermissionError as denied:
            pytest.skip(f"the system calls of a child are hidden: {denied}")

    def wake(self):
        self.node.output = Output(os.fdopen(self.pipe, "rb"))
        return self.node.output


def assert_waits(node, *silent, seconds):
    """Asserts that the daemon keeps running and sends nothing to these connections."""
    arrived, _, _ = select.select(silent, [], [], seconds)
    assert not arrived and node.process.poll() is None


def fall_behind(beacon_socket, reader):
    """Sends junk until the daemon's complaints fill the pipe and block its beacon thread."""

    def blocked():
        flood(beacon_socket, reader.node, b"junk", 100)
        return reader.blocks_daemon()

    wait_until(blocked, "the daemon waits for the reader of its log")


@stalled_reader
def test_daemon_waits_for_a_stalled_reader_and_resumes(make_node, make_master, beacon_socket):
    node = make_node(flags="daemon logPrefix logJuce")
    reader = StalledReader(node)
    owner, other = (make_master().join(node) for _ in range(2))
    fall_behind(beacon_socket, reader)
    owner.request(wire.START_REQUEST)
    assert_waits(node, owner.connection, other.connection, seconds=1)
    reader.wake()
    owner.expect(
        *(
            node.status(kind, owner)
            for kind in (wire.DAEMON_STATUS, wire.START_REPLY, wire.SLAVE_RUNNING)
        )
    )
    other.expect(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, other)
    node.quit()


@stalled_reader
@pytest.mark.slow
def test_shutdown_waits_for_a_stalled_reader_without_killing_threads(
    make_node, make_master, beacon_socket
):
    """The beacon thread is blocked in the log during the shutdown and has to end by itself."""
    node = make_node(flags="daemon logPrefix logJuce")
    reader = StalledReader(node)
    make_master().join(node)
    fall_behind(beacon_socket, reader)
    node.interrupt()
    assert_waits(node, seconds=LONGER_THAN_ANY_KILL)
    lines = reader.wake().rest()
    assert node.wait_exit() == 0
    assert lines[-2].startswith(plain_line("Stopped logging on "))


@stalled_reader
@pytest.mark.slow
def test_stop_waits_for_a_stalled_reader_without_killing_threads(make_node, make_master):
    """Both the slave's connection and the monitor's server thread are blocked in the log."""
    node = make_node(flags="logPrefix logJuce", plays=scenario(PUPPET))
    reader = StalledReader(node)
    owner = make_master().join(node)
    started(node, owner)
    slave = slave_connection(node)
    slave.send_bytes(wire.frame(b"x") * MORE_THAN_A_PIPE_HOLDS)
    # A stop reaches the slave only after its connection is accepted.
    wait_until(reader.blocks_daemon, "the daemon waits for the reader of its log")
    owner.request(wire.STOP_REQUEST)
    slave.expect_stop()
    stranger = SlaveConnection(node.port + 1)
    assert_waits(node, owner.connection, stranger, seconds=1)
    node.kill_slave()
    assert_waits(node, owner.connection, seconds=LONGER_THAN_ANY_KILL)
    reader.wake()
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    assert stranger.is_closed_by_daemon()
    lines = node.quit()
    assert lines.count(error_line("multiple connections requested for slave monitor")) == 1


def slave_connection(node):
    """Connects to the monitor; nothing can be read yet that would announce its port."""

    def connected():
        try:
            return SlaveConnection(node.port + 1)
        except ConnectionRefusedError:
            return None

    node.slave_process()
    return wait_until(connected, "the monitor listens")
