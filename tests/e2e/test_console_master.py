"""The console master as an operator sees it: its messages, streams and exit statuses."""

import json
import os
import re
import signal
import time

import pytest

from support import console_master, programs
from support.console_master import PATIENCE, ConsoleMaster
from support.output import daemon_line
from support.scenario import scenario

# How often a test that needs a fast machine is tried.
ATTEMPTS = 5

# Seconds during which a further signal is the same request, plus a margin.
REPETITION = 1.1

# The exit status after Ctrl-C; 0xC000013A on real Windows, but 0 under Wine.
INTERRUPTED = 0 if programs.ON_WINDOWS else -signal.SIGINT


@pytest.fixture
def operate():
    """Starts console masters that are stopped after the test."""
    started = []

    def start(*arguments, timeout=PATIENCE, **streams):
        started.append(ConsoleMaster(*arguments, "--timeout", timeout, **streams))
        return started[-1]

    yield start
    for master in started:
        master.close()


def address_of(node):
    return f"127.0.0.1:{node.port}"


def table_row(node, state):
    """Returns the table row of a node without an alias and without an owner, as a pattern."""
    return rf"{address_of(node)} +1 +4000000 +{state}"


TIME = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d"


def test_watch_reports_a_restarted_node(make_node, operate):
    node = make_node().serve()
    watch = operate("watch", address_of(node))
    watch.output.wait_line(table_row(node, "free"))
    node.quit()
    gone = watch.output.wait_line(table_row(node, "disconnected"))
    node.serve()
    back = watch.output.wait_line(
        rf'{TIME} {address_of(node)} found: alias "", 1 GPU, version 4000000, free', gone
    )
    watch.output.wait_line(table_row(node, "free"), back)
    watch.interrupt()
    assert watch.wait_exit() == 0


def test_watch_timestamps_every_line_outside_tables(make_node, operate):
    node = make_node().serve()
    watch = operate("watch", address_of(node))
    watch.output.wait_line(table_row(node, "free"))
    watch.interrupt()
    listening, found, *table = watch.output.rest()
    assert re.fullmatch(rf"{TIME} listening as 127\.0\.0\.1:\d+", listening)
    assert re.fullmatch(
        rf'{TIME} {address_of(node)} found: alias "", 1 GPU, version 4000000, free', found
    )
    assert table[1].startswith("NODE ")


def test_json_events_contain_the_time(make_node, operate):
    node = make_node().serve()
    watch = operate("watch", "--json", address_of(node))
    watch.output.wait_match('{.*"event":"found".*}')
    watch.interrupt()
    listening, found = map(json.loads, watch.output.rest())
    assert list(listening) == ["time", "event", "address"]
    assert list(found) == [
        "time",
        "event",
        "node",
        "state",
        "alias",
        "gpus",
        "slaveVersion",
        "owner",
        "ownerText",
    ]


def test_foreign_address_causes_a_warning(make_node):
    node = make_node().serve()
    result = console_master.run(
        "scan", "--address", "192.0.2.1", "--timeout", "0.5", address_of(node)
    )
    assert result.returncode == 1
    assert result.stderr == (
        "warning: 192.0.2.1 is not an address of this machine; "
        "nodes that connect to it may reach another one\n"
    )
    own = console_master.run(
        "scan", "--address", "127.0.0.1", "--timeout", PATIENCE, address_of(node)
    )
    assert (own.returncode, own.stderr) == (0, "")


def test_unanswered_broadcast_is_reported(ports):
    nowhere = f"127.0.0.1:{ports.free_block()}"
    warning = f"nobody has answered the broadcast to {nowhere}\n"
    for options, output in ((["--timeout", "0.5"], ""), (["--timeout", "0.5", "--json"], "[]\n")):
        result = console_master.run("scan", "--broadcast", nowhere, *options)
        assert (result.returncode, result.stdout, result.stderr) == (1, output, warning)


def test_answered_broadcast_is_not_reported(make_node):
    node = make_node().serve()
    result = console_master.run("scan", "--broadcast", address_of(node), "--timeout", "5")
    assert (result.returncode, result.stderr) == (0, "")
    assert re.search(table_row(node, "free"), result.stdout)


def test_named_nodes_do_not_count_as_answers_to_a_broadcast(make_node, ports):
    node = make_node().serve()
    nowhere = f"127.0.0.1:{ports.free_block()}"
    result = console_master.run("scan", "--broadcast", nowhere, "--timeout", "5", address_of(node))
    assert result.returncode == 0
    assert re.search(table_row(node, "free"), result.stdout)
    assert result.stderr == f"no other node has answered the broadcast to {nowhere}\n"


def test_watch_reports_an_unanswered_broadcast_and_continues(ports, operate):
    nowhere = f"127.0.0.1:{ports.free_block()}"
    watch = operate("watch", "--broadcast", nowhere, timeout="0.5")
    watch.errors.wait(f"nobody has answered the broadcast to {nowhere}")
    watch.interrupt()
    assert watch.wait_exit() == 0
    assert len(watch.errors.rest()) == 1


def test_folder_is_rejected_as_a_node_file(tmp_path):
    result = console_master.run("scan", "--nodes", programs.native_path(tmp_path))
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.splitlines() == [
        f'cannot read the file of nodes "{programs.native_path(tmp_path)}": it is a folder',
        "Run with --help for more information.",
    ]


@pytest.mark.linux_only("Windows has no file that opens but cannot be read")
def test_read_error_in_a_node_file_is_reported():
    result = console_master.run("scan", "--nodes", "/proc/self/mem")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith(
        'cannot read the file of nodes "/proc/self/mem": Input/output error\n'
    )


@pytest.mark.linux_only("Windows has no device that is always full")
@pytest.mark.parametrize(
    "arguments",
    [
        ["scan", "--timeout", PATIENCE],
        ["scan", "--timeout", PATIENCE, "--json"],
        ["--help"],
        ["hold", "--help"],
    ],
    ids=" ".join,
)
def test_failure_to_write_the_output_is_reported(make_node, arguments):
    nodes = [] if "--help" in arguments else [address_of(make_node().serve())]
    with open("/dev/full", "wb") as full:
        result = console_master.run(*arguments, *nodes, stdout=full)
    assert result.returncode == 3
    assert result.stderr == "cannot write the output: No space left on device\n"


def test_scan_fails_if_the_output_pipe_is_closed(make_node):
    node = make_node().serve()
    reader, writer = os.pipe()
    os.close(reader)
    result = console_master.run("scan", "--timeout", PATIENCE, address_of(node), stdout=writer)
    os.close(writer)
    assert result.returncode == 3
    assert re.fullmatch("cannot write the output: .+\n", result.stderr)


def test_held_nodes_are_released_if_the_output_pipe_is_closed(make_node, operate):
    held, leaving = make_node().serve(), make_node().serve()
    reader, writer = os.pipe()
    hold = operate("hold", address_of(held), address_of(leaving), stdout=writer)
    os.close(writer)
    for node in (held, leaving):
        node.slave_report("sending SLAVE_STATUS")
    os.close(reader)
    leaving.quit()  # causes an event that cannot be written
    assert hold.wait_exit() == 3
    assert re.fullmatch("cannot write the output: .+", hold.errors.rest()[0])
    held.output.wait_match(daemon_line("received stop request from master .*"))


def slow_to_stop(make_node, milliseconds):
    """Returns a serving node whose slave takes this long to stop."""
    return make_node(plays=scenario(settings=f"on-stop exit-after {milliseconds}")).serve()


def test_ctrl_c_announces_the_release_immediately(make_node, operate):
    nodes = [slow_to_stop(make_node, 3000), make_node().serve()]
    hold = operate("hold", *map(address_of, nodes), timeout="10.2")
    for node in nodes:
        hold.output.wait(f"{address_of(node)} running")
    hold.interrupt()
    hold.errors.wait("giving back 2 nodes, waiting up to 26 s; Ctrl-C again ends at once")
    assert f"{address_of(nodes[0])} stopped: the node is free" not in hold.output.lines()
    assert hold.wait_exit() == 0
    assert hold.output.count(f"{address_of(nodes[0])} stopped: the node is free") == 1
    assert len(hold.errors.rest()) == 1


def test_immediate_second_signal_is_ignored(make_node, operate):
    node = slow_to_stop(make_node, 500)
    for _ in range(ATTEMPTS):
        hold = operate("hold", address_of(node))
        hold.output.wait(f"{address_of(node)} running")
        begin = time.monotonic()
        hold.interrupt()
        hold.errors.wait_match("giving back 1 node, .*")
        hold.interrupt()
        if time.monotonic() - begin < 1:
            break
        hold.close()
    else:
        raise AssertionError("this machine was never fast enough for two signals within a second")
    assert hold.wait_exit() == 0
    assert hold.output.rest()[-1] == f"{address_of(node)} stopped: the node is free"


def test_later_second_signal_exits_immediately(make_node, operate):
    node = slow_to_stop(make_node, 8000)
    hold = operate("hold", address_of(node))
    hold.output.wait(f"{address_of(node)} running")
    hold.interrupt()
    hold.errors.wait_match("giving back 1 node, .*")
    time.sleep(REPETITION)
    hold.interrupt()
    assert hold.wait_exit() == INTERRUPTED
    assert hold.output.rest()[-1] == f"{address_of(node)} running"
