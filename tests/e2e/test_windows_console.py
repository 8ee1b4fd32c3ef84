"""A real console, which displays UTF-16 and a NUL after each line."""

import subprocess

import pytest

from support import programs
from support.console import SHOWN_NUL, Console
from support.limits import HANG_LIMIT
from support.output import Output
from support.scenario import scenario

pytestmark = pytest.mark.windows_only("only Windows has a console that takes UTF-16")


PROBE = "quelta_windows_probe.exe"
REQUEST = "quelta_windows_request.exe"


@pytest.fixture
def shell():
    """Runs a command line of Windows' shell on a console; returns the process and its lines."""
    shells = []

    def start(line):
        console = Console()
        shells.append(
            subprocess.Popen(
                programs.command("cmd.exe", "/c", line),
                start_new_session=True,
                **console.streams(),
                preexec_fn=console.take_hold,
            )
        )
        console.started()
        return shells[-1], Output(console.pipe())

    yield start
    for process in shells:
        if process.poll() is None:
            process.kill()
            process.wait(HANG_LIMIT)


def selections(lines):
    """Returns whether text could be selected each time the probe looked."""
    begin = "probe: selection: "
    return [line.removeprefix(begin) for line in lines if line.startswith(begin)]


@pytest.fixture
def on_console(make_node):
    """Starts a node's daemon on its own console; returns the node, the console and its lines."""

    def start(arguments=None, **settings):
        node, console = make_node(**settings), Console()
        node.start(arguments, **console.streams(), preexec_fn=console.take_hold)
        console.started()
        return node, console, Output(console.pipe())

    return start


def test_lines_end_with_a_nul(on_console):
    node, _, shown = on_console(arguments=["--port", "5130"], flags="logPrefix")
    lines = shown.rest()
    assert node.wait_exit() == 0
    assert lines[0].startswith("            Started logging on ")
    assert lines[1] == "            " + SHOWN_NUL
    assert lines[2] == "ERROR     : No path to the Quelta render slave given." + SHOWN_NUL
    assert all(line.endswith(SHOWN_NUL) for line in (lines[0], *lines[-3:]))


def test_text_beyond_every_code_page(on_console):
    alias = "Übergröße Ж 日本"
    node, console, shown = on_console(flags="daemon", alias=alias)
    shown.wait(f"  slave alias:   {alias}{SHOWN_NUL}")
    shown.wait(f"  slave path:    {programs.native_path(node.slave)}{SHOWN_NUL}")
    shown.wait(f"start listening for masters on port {node.port}{SHOWN_NUL}")
    console.press_ctrl_c()
    assert node.wait_exit() == 0


def test_ctrl_c_on_the_keyboard_shuts_the_daemon_down_cleanly(on_console):
    node, console, shown = on_console(flags="daemon")
    shown.wait(f"start listening for masters on port {node.port}{SHOWN_NUL}")
    console.press_ctrl_c()
    lines = shown.rest()
    assert node.wait_exit() == 0
    end = [line.removeprefix("^C") for line in lines[-4:]]
    assert end[0] == f"closing down all existing master connections (0)...{SHOWN_NUL}"
    assert end[2].startswith("Stopped logging on ")


def test_standard_error_is_a_console_too(on_console):
    node, _, shown = on_console(arguments=["--port", "5130"], flags="logToStdout=2")
    assert "No path to the Quelta render slave given." + SHOWN_NUL in shown.rest()
    assert node.wait_exit() == 0


def test_text_cannot_be_selected_while_the_daemon_runs(make_node, shell):
    """A selection blocks the writing thread and thereby every thread that logs."""
    node = make_node()
    probe = programs.native_path(programs.install(PROBE, node.slave.parent))
    daemon = f"{programs.native_path(node.program)} --port {node.port} --slave {probe}"
    process, shown = shell(f"{probe} & {daemon} & {probe}")
    assert selections(shown.rest()) == ["on", "off", "on"]
    assert process.wait(HANG_LIMIT) == 0


def test_text_can_be_selected_again_after_the_daemon_aborted(make_node, shell):
    node = make_node(plays=scenario(information="hang"))
    probe = programs.native_path(programs.install(PROBE, node.slave.parent))
    daemon = programs.native_path(node.program)
    slave = programs.native_path(node.slave)
    process, shown = shell(f"{daemon} --port {node.port} --slave {slave} & {probe}")
    slave_id = shown.wait_match(r"standin: pid: (\d+)").group(1)
    command = programs.command(programs.bin_dir() / REQUEST, slave_id, "break")
    subprocess.run(command, stdin=subprocess.DEVNULL, check=True, timeout=HANG_LIMIT)
    lines = shown.rest()
    assert not [line for line in lines if "Stopped logging on " in line]
    assert selections(lines) == ["on"]
    assert process.wait(HANG_LIMIT) == 0


def test_redirected_input_is_left_alone(make_node, shell):
    node = make_node()
    probe = programs.native_path(programs.install(PROBE, node.slave.parent))
    daemon = f"{programs.native_path(node.program)} --port {node.port} --slave {probe}"
    _, shown = shell(f"{daemon} < nul & {probe}")
    assert selections(shown.rest()) == ["no console", "on"]
