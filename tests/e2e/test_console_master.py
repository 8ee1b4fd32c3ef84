"""The console master as an operator sees it: what it says, on which stream, and its exit status."""

import pytest

from support import console_master, programs
from support.console_master import PATIENCE, ConsoleMaster


@pytest.fixture
def operate():
    """Starts console masters that end with the test."""
    started = []

    def start(*arguments):
        started.append(ConsoleMaster(*arguments, "--timeout", PATIENCE))
        return started[-1]

    yield start
    for master in started:
        master.close()


def address_of(node):
    return f"127.0.0.1:{node.port}"


def table_row(node, state):
    """A node of the stand-in slave without an alias and without an owner, as a table shows it."""
    return rf"{address_of(node)} +1 +4000000 +{state}"


def test_watch_notices_that_a_restarted_node_is_back(make_node, operate):
    node = make_node().serve()
    watch = operate("watch", address_of(node))
    watch.output.wait_line(table_row(node, "free"))
    node.quit()
    gone = watch.output.wait_line(table_row(node, "disconnected"))
    node.serve()
    back = watch.output.wait_line(rf'(.* )?{address_of(node)} found: alias "", 1 GPU, version 4000000, free', gone)
    watch.output.wait_line(table_row(node, "free"), back)
    watch.interrupt()
    assert watch.wait_exit() == 0


def test_a_folder_is_no_file_of_nodes(tmp_path):
    result = console_master.run("scan", "--nodes", programs.native_path(tmp_path))
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.splitlines() == [
        f'cannot read the file of nodes "{programs.native_path(tmp_path)}": it is a folder',
        "Run with --help for more information.",
    ]
