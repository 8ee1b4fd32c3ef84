"""What a slave on Windows inherits, and the errors of a failed launch."""

import os
import re
import subprocess

import pytest

from support import programs, wire
from support.ownership import running, started, stopped
from support.transcript import INFORMATION_RUN, between_start_and_stop

pytestmark = pytest.mark.windows_only("reads the command line and the handles of a Windows process")

PROBE = "quelta_windows_probe.exe"


def with_probe(node, name):
    """Installs the probe in place of the slave, under this name."""
    node.slave = programs.install(PROBE, node.slave.parent, name)
    return node


def probe_report(lines, what):
    found = [line for line in lines if line.startswith(f"probe: {what}: ")]
    assert len(found) == 1, lines
    return found[0].partition(f"probe: {what}: ")[2]


@pytest.mark.parametrize(
    "name, options, alias, rest",
    [
        ("slave.exe", [], "", ""),
        ("my slave Übergröße.exe", [], "two  words", ""),
        ("slave.exe", ["--gpus", "1,3"], "node7", " -g 0 -g 2"),
        ("slave.exe", ["--out-of-core", "8G,512m"], "日本 🎨", " --out-of-core 8589934592,536870912"),
        (
            "slave.exe",
            ["--gpus", "2", "--out-of-core", "8G"],
            "C:\\",
            " -g 1 --out-of-core 8589934592",
        ),
        ("slave.exe", [], 'x" "y', ""),
    ],
)
def test_exact_command_line(make_node, name, options, alias, rest):
    node = with_probe(make_node(alias=alias, options=options), name)
    node.start()
    lines = node.output.rest()
    port = node.monitor_port()
    assert probe_report(lines, "command line") == (
        f'["{name}" --net-master-address 0.0.0.0 --net-master-port 0 --daemon-port {port}'
        f' --alias "{alias}"{rest} --daemon-info-request]'
    )


def test_command_line_for_a_master(farm):
    node, master = farm(alias="node7")
    with_probe(node, node.slave.name)
    after = len(node.output.lines()) - 1
    started(node, master)
    master.expect(node.status(wire.SLAVE_FAILED, master))
    lines = node.output.lines()[after + 1 :]
    port = node.monitor_port(after)
    assert probe_report(lines, "command line") == (
        f'["{node.slave.name}" --net-master-address {master.address[0]}'
        f' --net-master-port {master.address[1]} --daemon-port {port} --alias "node7"]'
    )


def test_slave_inherits_no_handles(make_node, make_master):
    """With inheritance, more connections of the daemon would give the slave more handles."""
    counts = []
    for masters in (1, 10):
        node = make_node(flags="daemon logPrefix logToFile").serve()
        first, *others = (make_master().join(node) for _ in range(masters))
        with_probe(node, node.slave.name)
        started(node, first, *others)
        first.expect(node.status(wire.SLAVE_FAILED, first))
        counts.append(probe_report(node.output.lines(), "handles"))
    assert counts[0] == counts[1]


@pytest.mark.parametrize(
    "content, error",
    [
        (b"MZ", 193),
        (b"\x7fELF\x02\x01\x01" + bytes(200), 193),
        (b"", 193),
    ],
)
def test_error_number_of_a_file_that_is_not_a_program(make_node, content, error):
    node = make_node(flags=None)
    node.slave.unlink()
    node.slave.write_bytes(content)
    node.start()
    lines = between_start_and_stop(node.output.rest())
    assert lines == [*INFORMATION_RUN, f"failed to launch Quelta slave: {error}"]
    assert node.wait_exit() == 0


def test_slave_can_be_restarted_after_being_killed(farm):
    """Repeats it: TerminateProcess, exit codes and handles must work for every launch."""
    node, owner = farm()
    for _ in range(3):
        running(node, owner)
        node.kill_slave()
        owner.expect(node.status(wire.SLAVE_FAILED, owner))
        stopped(node, owner)


def test_slave_exit_code_259_looks_like_a_running_process(farm):
    """259 is STILL_ACTIVE, the exit status that Windows reports for a running process."""
    node, owner = farm(
        plays="[info]\nconnect\ninfo\nwait 150\nexit 0\n[run]\nconnect\ninfo\nwait 300\nexit 259\n"
    )
    running(node, owner)
    # The daemon misses the exit but detects the silence.
    node.output.wait_match(
        r" +detected that slave is hanging after initialization -> stopping slave"
    )
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    node.output.wait_match(r" +slave didn't stop gracefully, killing process by force")
    stopped(node, owner)


def test_slave_path_longer_than_max_path_is_found(make_node):
    """It is only found: CreateProcess refuses to start a program in such a folder."""
    node = make_node(flags=None)
    slave = programs.install(programs.STANDIN_SLAVE, node.slave.parent / ("a" * 120) / ("b" * 120))
    assert len(programs.native_path(slave)) > 260
    node.start(["--port", "80", "--slave", programs.native_path(slave)])
    lines = between_start_and_stop(node.output.rest())
    assert lines == ["daemon port 80 is invalid, should be in range 1024..65535"]


def test_winsock_is_started_after_the_summary_and_cleaned_up_at_exit(make_node):
    """Reads Wine's trace of the socket library among the daemon's output.

    JUCE starts Winsock first, requests another version and keeps it until the process ends.
    """
    node = make_node(flags="daemon logPrefix")
    node.serve(stderr=subprocess.STDOUT, env={**os.environ, "WINEDEBUG": "-all,+winsock"})
    node.interrupt()
    assert node.wait_exit() == 0
    wanted = (
        r"Out-of-core rendering|WSAStartup version 0x202|WSAStartup increasing startup count to 2|"
        r"start listening for masters|Stopped logging|WSACleanup decreasing startup count from 2"
    )
    found = [re.search(wanted, line) for line in node.output.rest()]
    assert "|".join(match.group() for match in found if match) == wanted
