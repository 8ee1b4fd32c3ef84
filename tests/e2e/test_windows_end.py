"""How Windows and its tools end a program: by window messages and console events."""

import os
import subprocess

import pytest

from support import programs
from support.limits import HANG_LIMIT
from support.output import daemon_line, error_line, plain_line
from support.ownership import running
from support.scenario import scenario

pytestmark = pytest.mark.windows_only("only Windows ends programs in these ways")

REQUEST = "quelta_windows_request.exe"
FORCED_STATUS = 9
FORCE = plain_line("slave didn't stop gracefully, killing process by force")


def ask(node, way):
    """Asks the daemon, its latest slave's parent, to exit; returns once any force has been used."""
    command = programs.command(programs.bin_dir() / REQUEST, node.slave_id(), way)
    subprocess.run(command, stdin=subprocess.DEVNULL, check=True, timeout=HANG_LIMIT)


def closing(count):
    return plain_line(f"closing down all existing master connections ({count})...")


def assert_closed(lines):
    assert lines[-3] == lines[-1] == plain_line("")
    assert lines[-2].startswith(plain_line("Stopped logging on "))


@pytest.mark.parametrize("way", ["close", "quit", "break"])
def test_request_shuts_daemon_and_slave_down_cleanly(farm, way):
    node, owner = farm()
    running(node, owner)
    ask(node, way)
    assert node.wait_exit() == 0
    node.output.rest()
    lines = node.own_lines()
    assert closing(1) in lines and FORCE not in lines
    assert lines[-4] == daemon_line(f"disconnected from master {owner}")
    assert_closed(lines)
    node.assert_no_slave()


def test_close_during_the_information_run_takes_effect_after_it(make_node):
    node = make_node(plays=scenario(information="connect\ninfo\nwait 2500\nexit 0"))
    node.start()
    node.slave_report("sending SLAVE_INFO, version 4000000, GPUs 1")
    ask(node, "close")
    assert node.wait_exit() == 0
    node.output.rest()
    lines = node.own_lines()
    assert daemon_line(f"start listening for masters on port {node.port}") in lines
    assert_closed(lines)


@pytest.mark.parametrize("way", ["end-session", "close-console", "log-off", "shutdown"])
def test_system_shutdown_leaves_time_to_stop_the_slave_and_close_the_log(farm, way):
    """Windows kills after five seconds; the slave has twelve, and the log is unflushed."""
    node, owner = farm(
        flags="daemon logPrefix logToFile",
        plays=scenario(settings="on-stop ignore\non-lost ignore"),
    )
    running(node, owner)
    ask(node, way)
    assert node.wait_exit() in (0, FORCED_STATUS)
    lines = node.log_file.read_text().splitlines()
    stop = lines.index(daemon_line(f"stopping Quelta slave for master {owner}"))
    assert lines[stop + 1] == FORCE
    assert lines[-4] == daemon_line(f"disconnected from master {owner}")
    assert_closed(lines)
    node.assert_no_slave()


def test_daemon_without_a_window_reports_it_and_exits(make_node):
    """Like in a session without memory for windows; here Wine has no display."""
    node = make_node(flags="logPrefix")
    node.start(env={name: value for name, value in os.environ.items() if name != "DISPLAY"})
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert lines[2:-3] == [
        error_line("the system refused the window through which messages arrive")
    ]
    assert_closed(lines)
