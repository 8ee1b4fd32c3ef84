"""The bytes between the exec slave and the daemon."""

import os
import signal

import pytest

from support import programs
from support.exec_slave import ENDED, OWN, worker
from support.slave import STOP_MESSAGE

FRAME = "2c9eb4f2 14000000 0d72ce7f 01000000"
AUTHENTICATING = bytes.fromhex(FRAME + "00000000 00000000 00000000")
INFORMATION = bytes.fromhex(FRAME + "01000000 03000000 cb1a3d00")  # 3 GPUs, version 4004555
INFORMATION_USUAL = bytes.fromhex(FRAME + "01000000 01000000 00093d00")  # 1 GPU, version 4000000
STATUS = bytes.fromhex(FRAME + "02000000 00000000 00000000")


def test_messages_of_a_run(make_exec_node, daemon_voice):
    node = make_exec_node(
        command=worker("wait", 2500, "print", "online", "hang"),
        version=4004555,
        gpus=3,
        ready={"line": "online"},
    )
    daemon = daemon_voice(node)
    frames = [daemon.read(len(STATUS))]
    while frames[-1] != INFORMATION:
        assert frames[-1].hex() == AUTHENTICATING.hex()
        frames.append(daemon.read(len(STATUS)))
    assert len(frames) > 3, "the daemon hears of a slave that is starting every second"
    assert daemon.read(2 * len(STATUS)).hex() == (STATUS * 2).hex()


def test_invalid_messages_of_the_daemon_are_ignored(make_exec_node, daemon_voice):
    node = make_exec_node(command=worker("on-stop", 0, "hang"), ready={"after": 1})
    daemon = daemon_voice(node)
    for payload in ("00" * 20, "0d72ce7f 01000000 00000000 00000000 00000000", "ff"):
        data = bytes.fromhex(payload)
        daemon.send(bytes.fromhex("2c9eb4f2") + len(data).to_bytes(4, "little") + data)
    daemon.output.wait(OWN + "the program is ready")
    daemon.read(3 * len(STATUS))
    assert OWN + "stopping the program: the daemon has asked for it" not in daemon.output.lines()
    daemon.send(STOP_MESSAGE)
    assert f"exit status {daemon.wait_exit()}" == ENDED


def test_frame_with_a_wrong_magic_number_ends_the_run(make_exec_node, daemon_voice):
    node = make_exec_node(command=worker("on-stop", 0, "print", "online", "hang"))
    daemon = daemon_voice(node)
    daemon.output.wait("online")
    daemon.send(b"GET / HTTP/1.1\r\n\r\n")
    daemon.output.wait(OWN + "stopping the program: the connection to the daemon is lost")
    assert f"exit status {daemon.wait_exit()}" == ENDED


@pytest.fixture
def stalled():
    """A pipe that nobody reads."""
    ends = os.pipe()
    yield ends[1]
    for end in ends:
        os.close(end)


def test_reader_of_the_output_that_has_stopped_delays_nothing(
    make_exec_node, daemon_voice, stalled
):
    node = make_exec_node(
        command=worker("print", "online", "flood", 2_000_000, "hang"),
        ready={"line": "online"},
        alive={"silence": 1},
        stop={"grace": 1},
    )
    daemon = daemon_voice(node, stdout=stalled)
    while daemon.read(len(STATUS)) != INFORMATION_USUAL:
        pass
    # The program waits for its output to be read, which is not its own silence.
    assert daemon.read(4 * len(STATUS)).hex() == (STATUS * 4).hex()
    if programs.ON_WINDOWS:
        return  # Wine cannot cancel a write to a pipe of the host
    daemon.send(STOP_MESSAGE)
    assert daemon.wait_exit() == 128 + signal.SIGTERM
    node.wait_no_slave()
