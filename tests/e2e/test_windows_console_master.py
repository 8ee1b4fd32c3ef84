"""The console master on a real Windows console, and its UTF-16 command line."""

import json
import subprocess

import pytest

from support import console_master, programs
from support.console import Console
from support.console_master import PATIENCE, ConsoleMaster, Lines
from support.limits import HANG_LIMIT

pytestmark = pytest.mark.windows_only("only Windows has consoles and command lines of UTF-16")

# No code page contains all of these characters.
TEXT = "日本 Ж Größe"


@pytest.fixture
def on_console():
    """Starts a console master on its own console; returns process, console and displayed lines."""
    started = []

    def start(*arguments):
        console = Console()
        started.append(
            subprocess.Popen(
                console_master.command(*arguments),
                start_new_session=True,
                preexec_fn=console.take_hold,
                **console.streams(),
            )
        )
        console.started()
        return started[-1], console, Lines(console.pipe())

    yield start
    for process in started:
        if process.poll() is None:
            process.kill()
            process.wait(HANG_LIMIT)


def test_output_beyond_every_code_page(make_node, on_console):
    node = make_node(alias=TEXT).serve()
    process, _, shown = on_console("scan", "--timeout", PATIENCE, f"127.0.0.1:{node.port}")
    lines = shown.rest()
    assert process.wait(HANG_LIMIT) == 0
    assert lines[-1].split() == [f"127.0.0.1:{node.port}", *TEXT.split(), "1", "4000000", "free"]


def test_errors_are_shown_unchanged_and_without_nuls(on_console):
    process, _, shown = on_console("scan", TEXT)
    lines = shown.rest()
    assert process.wait(HANG_LIMIT) == 2
    assert lines[-2:] == [
        f'"{TEXT.split()[0]}" is not a node: give host:port, for example 10.0.0.5:5130',
        "Run with --help for more information.",
    ]


def test_ctrl_c_on_the_keyboard_releases_the_node(make_node, on_console):
    node = make_node().serve()
    process, console, shown = on_console("hold", f"127.0.0.1:{node.port}")
    shown.wait(f"127.0.0.1:{node.port} running")
    console.press_ctrl_c()
    lines = shown.rest()
    assert process.wait(HANG_LIMIT) == 0
    assert (
        lines[-2].removeprefix("^C")
        == "giving back 1 node, waiting up to 20 s; Ctrl-C again ends at once"
    )
    assert lines[-1] == f"127.0.0.1:{node.port} stopped: the node is free"


def test_arguments_beyond_every_code_page_reach_the_node(make_node):
    node = make_node().serve()
    hold = ConsoleMaster("hold", "--text", TEXT, "--json", f"127.0.0.1:{node.port}")
    hold.output.wait_match('.*"event":"running".*')
    scan = console_master.run("scan", "--json", "--timeout", PATIENCE, f"127.0.0.1:{node.port}")
    hold.interrupt()
    assert hold.wait_exit() == 0
    assert json.loads(scan.stdout)[0]["ownerText"] == TEXT


def test_node_file_may_have_any_name(make_node, tmp_path):
    node = make_node().serve()
    file = tmp_path / f"{TEXT}.txt"
    file.write_text(f"127.0.0.1:{node.port}\n")
    scan = console_master.run("scan", "--timeout", PATIENCE, "--nodes", programs.native_path(file))
    assert (scan.returncode, scan.stderr) == (0, "")
