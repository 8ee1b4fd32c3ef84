"""The farm view as its readers see it: what nodes do arrives in JSON, events and metrics."""

import os
import re
import signal
import subprocess

import pytest

from support import programs
from support.console_master import PATIENCE, ConsoleMaster
from support.farm_view import address_of
from support.limits import HANG_LIMIT
from support.node import wait_until

TIME = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"


@pytest.fixture
def operate():
    """Starts console masters that are ended after the test."""
    started = []

    def start(*arguments):
        started.append(ConsoleMaster(*arguments, "--timeout", PATIENCE))
        return started[-1]

    yield start
    for master in started:
        master.interrupt()
        master.wait_exit()
        master.close()


def test_nodes_have_the_documented_fields(make_node, view):
    name = address_of(node := make_node(alias="rack 7").serve())
    served = view(name)
    served.wait_state("free", name)
    wait_until(lambda: served.node(name)["roundTripMs"] is not None, "a scan is measured")
    whole = served.get_json("/api/v1/nodes")
    assert list(whole) == ["time", "nodes"]
    (found,) = whole["nodes"]
    assert re.fullmatch(TIME, whole["time"])
    assert re.fullmatch(TIME, found["since"]) and re.fullmatch(TIME, found["lastChange"])
    assert 0 < found["roundTripMs"] < HANG_LIMIT * 1000
    del found["since"], found["lastChange"], found["roundTripMs"]
    assert found == {
        "node": name,
        "state": "free",
        "alias": node.alias,
        "gpus": 1,
        "slaveVersion": 4000000,
        "owner": None,
        "ownerText": None,
    }


def test_hold_and_release_arrive_as_events(make_node, view, operate):
    name = address_of(make_node().serve())
    served = view(name)
    served.wait_state("free", name)
    events = served.events()
    snapshot = events.wait("nodes")
    assert events.retry == 2000
    assert [node["node"] for node in snapshot["nodes"]] == [name]
    hold = operate("hold", name, "--text", "frame 12")
    owned = events.wait_state("owned", name)
    assert owned["ownerText"] == "frame 12"
    assert owned["since"] == owned["lastChange"] > snapshot["nodes"][0]["since"]
    event = events.wait("event")
    assert (event["event"], event["node"], event["owner"]) == ("changed", name, owned["owner"])
    assert re.fullmatch(TIME, event["time"])
    hold.interrupt()
    events.wait_state("free", name)
    history = served.node(name)["history"]
    assert [(change["state"], change["ownerText"]) for change in history[-3:]] == [
        ("free", None),
        ("owned", "frame 12"),
        ("free", None),
    ]
    assert [change["time"] for change in history] == sorted(change["time"] for change in history)


def test_history_of_all_nodes_has_the_same_changes(make_node, view):
    names = [address_of(make_node().serve()) for _ in range(2)]
    served = view(*names)
    for name in names:
        served.wait_state("free", name)
    whole = served.get_json("/api/v1/history")
    assert list(whole) == ["time", "since", "nodes"]
    assert whole["since"] <= whole["time"]
    assert whole["nodes"] == {name: served.node(name)["history"] for name in names}


def test_steal_is_counted(make_node, view, operate):
    name = address_of(make_node().serve())
    served = view(name)
    served.wait_state("free", name)
    events = served.events()
    operate("hold", name, "--text", "first")
    first = events.wait_state("owned", name)
    operate("steal", name, "--text", "second")
    events.wait("node", lambda node: node["ownerText"] == "second")
    second = served.node(name)
    assert second["since"] > first["since"]
    assert served.metric(f'quelta_node_steals_total{{node="{name}"}}') == 1
    assert served.metric(f'quelta_node_owned{{node="{name}"}}') == 1


def test_short_ownership_is_counted_as_a_failure(make_node, view, operate):
    name = address_of(node := make_node().serve())
    served = view(name)
    served.wait_state("free", name)
    events = served.events()
    hold = operate("hold", name)
    hold.output.wait(f"{name} running")
    node.kill_slave()
    events.wait_state("owned", name)
    events.wait_state("free", name)  # the owner gives a failed slave back
    assert served.metric(f'quelta_node_failures_total{{node="{name}"}}') == 1


def test_killed_daemon_is_down_and_comes_back(make_node, view):
    name = address_of(node := make_node().serve())
    served = view(name)
    served.wait_state("free", name)
    events = served.events()
    up = f'quelta_node_up{{node="{name}"}}'
    assert (served.metric(up), served.metric('quelta_nodes{state="free"}')) == (1, 1)
    node.process.kill()
    node.process.wait(HANG_LIMIT)
    events.wait_state("disconnected", name)
    assert events.wait("event")["event"] == "disconnected"
    assert (served.metric(up), served.metric('quelta_nodes{state="disconnected"}')) == (0, 1)
    assert served.metric('quelta_nodes{state="free"}') == 0
    assert served.metric(f'quelta_node_lost_connections_total{{node="{name}"}}') == 1
    node.serve()
    events.wait_state("free", name)
    assert served.metric(up) == 1


def test_node_that_never_answers_is_shown_as_such(ports, view):
    name = f"127.0.0.1:{ports.free_block()}"
    served = view(name, timeout="0.5")
    assert served.node(name)["state"] in ("waiting", "no answer")
    node = served.wait_state("no answer", name)
    assert (node["alias"], node["gpus"], node["slaveVersion"]) == (None, None, None)
    assert served.metric("quelta_nodes_expected") == 1
    assert served.metric(f'quelta_node_up{{node="{name}"}}') == 0


def test_serving_never_takes_a_node(make_node, view):
    name = address_of(node := make_node().serve())
    served = view(name)
    served.wait_state("free", name)
    wait_until(lambda: served.node(name)["roundTripMs"] is not None, "a scan is answered")
    served.master.interrupt()
    assert served.master.wait_exit() == 0
    requests = {
        found.group(1)
        for line in node.quit()
        if (found := re.search(r"received (.* request) from master", line))
    }
    assert requests == {"scan request"}


def test_broadcast_finds_nodes(make_node, view):
    name = address_of(make_node().serve())
    served = view("--broadcast", name)
    wait_until(lambda: served.node_names() == [name], "the node has answered the broadcast")
    served.wait_state("free", name)
    assert served.metric("quelta_nodes_expected") == 0


def test_ctrl_c_ends_the_program_and_its_events(make_node, view):
    name = address_of(make_node().serve())
    served = view(name)
    events = served.events()
    events.wait("nodes")
    served.master.interrupt()
    assert served.master.wait_exit() == 0
    with pytest.raises(AssertionError, match="the events ended"):
        events.wait("never")
    assert served.master.errors.rest() == []


def test_used_address_is_reported(make_node, view, tcp_listener):
    taken = tcp_listener(0, "127.0.0.1").getsockname()[1]
    name = address_of(make_node())
    served = ConsoleMaster("serve", "--http", f"127.0.0.1:{taken}", name)
    assert served.wait_exit() == 3
    (line,) = served.errors.rest()
    assert re.fullmatch(
        rf"cannot serve at 127\.0\.0\.1:{taken}: .+; try another --http", line
    ), line


def test_json_output_has_the_address(make_node, view):
    served = ConsoleMaster("serve", "--json", "--http", "127.0.0.1:0", address_of(make_node()))
    try:
        line = served.output.wait_match(
            r'\{"time":"[^"]+","event":"serving","url":"http://127\.0\.0\.1:\d+/"\}'
        )
        assert line
    finally:
        served.interrupt(signal.SIGINT)
        assert served.wait_exit() == 0
        served.close()


class NodesFile:
    """A file of nodes that is replaced as an editor or a script does it."""

    def __init__(self, path):
        self.path = path

    def write(self, text):
        new = self.path.with_suffix(".new")
        new.write_text(text)
        os.replace(new, self.path)

    @property
    def name(self):
        return programs.native_path(self.path)


@pytest.fixture
def nodes_file(tmp_path):
    return NodesFile(tmp_path / "nodes.txt")


def test_nodes_file_is_read_again_when_it_changes(make_node, view, nodes_file):
    first, second, third = (address_of(make_node().serve()) for _ in range(3))
    nodes_file.write(f"{first}\n{second} # rack 2\n")
    served = view("--nodes", nodes_file.name)
    for name in (first, second):
        served.wait_state("free", name)
    events = served.events()
    nodes_file.write(f"{first} {third}\n")
    assert events.wait("removed") == {"node": second}
    events.wait_state("free", third)
    assert sorted(served.node_names()) == sorted([first, third])
    assert served.metric(f'quelta_node_up{{node="{second}"}}') is None
    nodes_file.write(f"{second}\n{first}\n{third}\n")
    events.wait_state("free", second)
    assert len(served.node(first)["history"]) <= 2  # never left
    assert served.metric("quelta_nodes_expected") == 3


def test_nodes_of_the_command_line_stay(make_node, view, nodes_file):
    named, listed = (address_of(make_node().serve()) for _ in range(2))
    nodes_file.write(listed)
    served = view(named, "--nodes", nodes_file.name)
    served.wait_state("free", listed)
    nodes_file.write("# none today\n")
    wait_until(lambda: served.node_names() == [named], "the listed node is removed")


def test_wrong_nodes_file_keeps_the_earlier_nodes(make_node, view, nodes_file):
    name = address_of(make_node().serve())
    other = address_of(make_node().serve())
    nodes_file.write(name)
    served = view("--nodes", nodes_file.name)
    served.wait_state("free", name)
    nodes_file.write(f"{other} nonsense")
    served.master.errors.wait(
        f'{nodes_file.name}: "nonsense" is not a node: give host:port, for example 10.0.0.5:5130; '
        "keeping the earlier nodes"
    )
    assert served.node_names() == [name]
    nodes_file.path.unlink()
    served.master.errors.wait_match(
        f'cannot read the file of nodes "{re.escape(nodes_file.name)}": .+; '
        "keeping the earlier nodes"
    )
    assert served.node_names() == [name]
    nodes_file.write(f"{name} {other}")
    served.wait_state("free", other)
    assert len(served.master.errors.lines()) == 2


def test_metrics_satisfy_promtool(make_node, view, operate):
    name = address_of(make_node(alias="rack 7").serve())
    served = view(name)
    served.wait_state("free", name)
    result = subprocess.run(
        ["promtool", "check", "metrics"],
        input=served.get("/metrics"),
        capture_output=True,
        encoding="utf-8",
        timeout=HANG_LIMIT,
    )
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
