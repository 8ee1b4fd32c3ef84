"""Which nodes a cluster takes and gives back."""

import pytest

from quelta.dask.decisions import (
    LONGEST_PAUSE,
    NodeRecord,
    dask_name,
    nodes_to_take,
    pause_after,
    workers_to_drop,
    worth_asking,
)


def test_takes_free_nodes_in_the_order_given():
    records = [NodeRecord(node) for node in ("c:1", "a:1", "b:1")]
    assert nodes_to_take(records, {"a:1", "b:1", "c:1"}, 2) == ["c:1", "a:1"]


def test_takes_no_node_that_is_not_free():
    records = [NodeRecord(node) for node in ("a:1", "b:1")]
    assert nodes_to_take(records, {"b:1"}, 2) == ["b:1"]


def test_takes_nothing_if_nothing_is_missing():
    assert nodes_to_take([NodeRecord("a:1")], {"a:1"}, 0) == []
    assert nodes_to_take([NodeRecord("a:1")], {"a:1"}, -1) == []


def test_takes_a_node_that_has_failed_last():
    failing, good = NodeRecord("a:1"), NodeRecord("b:1")
    failing.failed(now=0)
    assert nodes_to_take([failing, good], {"a:1", "b:1"}, 2) == ["b:1", "a:1"]


@pytest.mark.parametrize("failures, seconds", [(0, 2), (1, 4), (2, 8), (4, 32), (5, 60), (99, 60)])
def test_leaves_a_failing_node_alone_for_longer_each_time(failures, seconds):
    assert pause_after(failures) == seconds
    assert LONGEST_PAUSE == 60


def test_asks_a_node_again_when_its_pause_is_over():
    record = NodeRecord("a:1")
    record.failed(now=100)
    assert worth_asking([record], (), now=101.9) == []
    assert worth_asking([record], (), now=102) == ["a:1"]


def test_forgets_failures_once_a_worker_has_come_up():
    record = NodeRecord("a:1")
    record.failed(now=100)
    record.failed(now=102)
    record.worked()
    record.failed(now=200)
    assert record.not_before == 202


def test_asks_no_node_that_it_holds():
    assert worth_asking([NodeRecord("a:1"), NodeRecord("b:1")], {"a:1"}, now=0) == ["b:1"]


def test_drops_workers_first_that_have_not_registered():
    assert workers_to_drop(["old", "new", "starting"], {"old", "new"}, 1) == ["starting"]


def test_drops_the_youngest_of_the_registered_workers():
    assert workers_to_drop(["a", "b", "c"], {"a", "b", "c"}, 2) == ["c", "b"]


def test_drops_nobody_if_there_are_too_few():
    assert workers_to_drop(["a"], {"a"}, 0) == []
    assert workers_to_drop(["a"], {"a"}, -3) == []


@pytest.mark.parametrize("alias, name", [("node7", "node7"), ("7", 7), ("", ""), ("7b", "7b")])
def test_names_a_worker_as_its_command_line_does(alias, name):
    assert dask_name(alias) == name
