"""A real console, which takes UTF-16 and a NUL behind each line."""

import pytest

from support import programs
from support.console import SHOWN_NUL, Console
from support.output import Output

pytestmark = pytest.mark.windows_only("only Windows has a console that takes UTF-16")


@pytest.fixture
def on_console(make_node):
    """Starts a node's daemon on a console of its own; gives the node, the console and the lines shown."""

    def start(arguments=None, **settings):
        node, console = make_node(**settings), Console()
        streams = dict.fromkeys(("stdin", "stdout", "stderr"), console.end)
        node.start(arguments, **streams, preexec_fn=console.take_hold)
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


def test_ctrl_c_on_the_keyboard_ends_the_daemon_in_order(on_console):
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
