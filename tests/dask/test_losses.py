"""Nodes that a QueltaCluster loses: Dask computes elsewhere, and the nodes come back."""

import logging

from distributed import Client
from helpers import (
    WORKER,
    all_free,
    assert_computes,
    cluster_on,
    owners,
    slow_square,
    wait_for_workers,
    wait_until,
    workers,
)


def test_replaces_a_stolen_node_and_loses_no_result(farm, thief):
    with cluster_on(farm, 2) as cluster, Client(cluster) as client:
        wait_for_workers(cluster, ["node1", "node2"])
        futures = client.map(slow_square, range(40), pure=False)
        thief.steal(farm.nodes[0])
        assert client.gather(futures) == [number * number for number in range(40)]
        wait_for_workers(cluster, ["node2", "node3"])
        assert owners(farm) == ["another artist", "dask", "dask"]


def test_comes_back_to_a_stolen_node_when_it_is_free(farm, thief):
    with cluster_on(farm, 3) as cluster:
        wait_for_workers(cluster, ["node1", "node2", "node3"])
        thief.steal(farm.nodes[1])
        wait_for_workers(cluster, ["node1", "node3"])
        thief.give_back()
        wait_for_workers(cluster, ["node1", "node2", "node3"])


def test_a_killed_node_loses_no_result_and_comes_back(farm):
    with cluster_on(farm, 3) as cluster, Client(cluster) as client:
        wait_for_workers(cluster, ["node1", "node2", "node3"])
        futures = client.map(slow_square, range(40), pure=False)
        wait_until(lambda: any(future.done() for future in futures), "work has begun")
        farm.nodes[2].kill()
        assert client.gather(futures) == [number * number for number in range(40)]
        wait_for_workers(cluster, ["node1", "node2"])
        farm.nodes[2].start()
        wait_for_workers(cluster, ["node1", "node2", "node3"])
        assert_computes(client)


def test_the_log_tells_which_node_was_lost_and_why(farm, thief, caplog):
    caplog.set_level(logging.INFO, "quelta.dask")
    node = farm.nodes[0].name
    with cluster_on(farm, 1) as cluster:
        wait_until(lambda: f"{node}: the slave runs" in caplog.messages, "the slave runs")
        thief.steal(farm.nodes[0])
        wait_for_workers(cluster, ["node2"])
    assert f"{node}: lost worker node1: stolen" in caplog.messages


FAILING = WORKER.replace('"/usr/bin/python3", ', '"/usr/bin/false", ')
WRONG_NAME = WORKER.replace('"{alias}"', '"somebody"')


def test_a_node_whose_worker_cannot_start_is_left_alone_for_a_while(make_farm, caplog):
    farm = make_farm(1, FAILING)
    lost = f"{farm.nodes[0].name}: lost worker node1: "

    def losses() -> list[float]:
        return [r.created for r in caplog.records if r.getMessage().startswith(lost)]

    with cluster_on(farm, 1) as cluster:
        wait_until(lambda: len(losses()) > 1, "the worker has failed twice")
        assert workers(cluster) == []
    assert losses()[1] - losses()[0] >= 2
    assert all_free(farm)


def test_a_worker_of_another_name_is_reported(make_farm, caplog):
    farm = make_farm(1, WRONG_NAME)
    with cluster_on(farm, 1, time_limit=10):
        text = "no Dask worker named 'node1' has registered within 10 s"
        wait_until(lambda: text in caplog.text, "the cluster has noticed")
    assert all_free(farm)


def test_of_two_nodes_with_one_alias_one_is_used(make_farm, caplog):
    farm = make_farm(2, node2="node1")
    with cluster_on(farm, 2) as cluster:
        wait_for_workers(cluster, ["node1"])
        first, second = (node.name for node in farm.nodes)
        text = (
            f"{second} has the alias 'node1' of {first} and is not used: aliases name the workers"
        )
        wait_until(lambda: text in caplog.text, "the cluster has noticed")
        assert owners(farm) == ["dask", ""]


def test_an_alias_of_digits_names_a_worker(make_farm):
    farm = make_farm(1, node1="7")
    with cluster_on(farm, 1) as cluster, Client(cluster) as client:
        wait_for_workers(cluster, ["7"])
        assert cluster.plan == cluster.observed == {7}
        assert_computes(client)
        cluster.scale(0)
        wait_for_workers(cluster, [])
