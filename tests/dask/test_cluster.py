"""QueltaCluster with real daemons and real Dask workers: size, results, and who is given back."""

import asyncio
import os
import signal
import subprocess
import sys
from unittest.mock import AsyncMock

import pytest
from distributed import Client
from helpers import (
    LIMIT,
    all_free,
    assert_computes,
    cluster_on,
    names,
    owners,
    slow_square,
    states,
    wait_for_workers,
    wait_until,
    where,
    workers,
)
from local_farm import LocalFarm
from tornado.ioloop import IOLoop

from quelta import AddressError, NodeState
from quelta.dask import QueltaCluster
from quelta.dask.cluster import NodeAdaptive


def test_results_equal_those_of_a_local_run(farm):
    with cluster_on(farm, 2) as cluster, Client(cluster) as client:
        client.wait_for_workers(2, timeout=LIMIT)
        assert_computes(client)


def test_shows_the_nodes_as_owned_with_its_text(farm):
    with cluster_on(farm, 2, text="night shift") as cluster:
        wait_for_workers(cluster, ["node1", "node2"])
        assert owners(farm) == ["night shift", "night shift", ""]
    assert all_free(farm)


def test_scales_up_and_down(farm):
    with cluster_on(farm, 1) as cluster:
        wait_for_workers(cluster, ["node1"])
        cluster.scale(3)
        wait_for_workers(cluster, ["node1", "node2", "node3"])
        cluster.scale(1)
        wait_for_workers(cluster, ["node1"])
        wait_until(lambda: owners(farm) == ["dask", "", ""], "two nodes are given back")


def test_moves_results_off_a_node_before_it_is_given_back(farm):
    with cluster_on(farm, 2) as cluster, Client(cluster) as client:
        wait_for_workers(cluster, ["node1", "node2"])
        # Random results would differ if they were computed again.
        futures = [client.submit(os.urandom, 8, pure=False, workers="node2") for _ in range(8)]
        before = client.gather(futures)
        cluster.scale(1)
        wait_for_workers(cluster, ["node1"])
        assert client.gather(futures) == before


def test_aims_higher_than_the_farm_is_large(farm):
    with cluster_on(farm, 99) as cluster:
        wait_for_workers(cluster, ["node1", "node2", "node3"])


def test_adapts_to_the_load(farm):
    with cluster_on(farm, 0) as cluster, Client(cluster) as client:
        cluster.adapt(minimum=0, maximum=2, interval="100ms", wait_count=2)
        futures = client.map(slow_square, range(12), pure=False)
        assert client.gather(futures) == [number * number for number in range(12)]
        del futures
        wait_for_workers(cluster, [])
        wait_until(lambda: all_free(farm), "idle nodes are given back")


def test_adapting_never_exceeds_the_maximum(farm):
    seen = set()
    with cluster_on(farm, 0) as cluster, Client(cluster) as client:
        cluster.adapt(minimum=1, maximum=2, interval="100ms", wait_count=2)
        for future in client.map(slow_square, range(30), pure=False):
            future.result()
            seen.add(len(workers(cluster)))
    assert max(seen) == 2


async def test_adapting_has_the_cluster_retire_workers():
    """Dask would end their processes, which a daemon takes for a crash of its slave."""

    class Cluster:
        loop = IOLoop.current()
        scale_down = AsyncMock()

        @property
        def scheduler_comm(self):
            raise AssertionError("the scheduler was asked")

    cluster = Cluster()
    adaptive = NodeAdaptive(cluster, interval=None)
    await adaptive.scale_down(["node1"])
    cluster.scale_down.assert_awaited_once_with(["node1"])


def test_adapts_up_to_the_size_of_the_farm(farm):
    with cluster_on(farm, 0) as cluster:
        assert cluster.adapt().maximum == 3
        assert cluster.adapt(maximum=2).maximum == 2


def test_counts_nodes_rather_than_cores(farm):
    with cluster_on(farm, 0) as cluster:
        with pytest.raises(ValueError, match="this cluster counts nodes: use minimum and maximum"):
            cluster.adapt(maximum_cores=4)


def test_gives_every_node_back_after_an_exception(farm):
    with pytest.raises(RuntimeError, match="the script is wrong"):
        with cluster_on(farm, 2) as cluster:
            wait_for_workers(cluster, ["node1", "node2"])
            raise RuntimeError("the script is wrong")
    assert all_free(farm)


def test_gives_back_nodes_whose_workers_are_still_starting(farm):
    with cluster_on(farm, 3):
        wait_until(lambda: "dask" in owners(farm), "a node is taken")
    assert all_free(farm)


SCRIPT = """
import sys, time
from quelta.dask import QueltaCluster
from quelta.dask.cluster import NodeAdaptive
with QueltaCluster(sys.argv[1:], address="127.0.0.1", n_workers=2) as cluster:
    print("holding", flush=True)
    time.sleep(600)
"""


def end_script(farm: LocalFarm, signal_number: int) -> str:
    """Sends a signal to a script that holds nodes; returns what it writes to standard error."""
    command = [sys.executable, "-c", SCRIPT, *names(farm)]
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    with subprocess.Popen(command, env=environment, stderr=subprocess.PIPE, text=True) as script:
        try:
            wait_until(lambda: owners(farm).count("dask") == 2, "two nodes are taken")
            script.send_signal(signal_number)
            _, errors = script.communicate(timeout=LIMIT)
        finally:
            script.kill()
    return errors


def test_gives_every_node_back_on_ctrl_c(farm):
    assert "KeyboardInterrupt" in end_script(farm, signal.SIGINT)
    assert all_free(farm)


def test_nodes_free_themselves_if_the_script_is_killed(farm):
    end_script(farm, signal.SIGKILL)
    wait_until(lambda: all_free(farm), "the daemons have noticed")


async def test_works_inside_an_event_loop(farm):
    async with cluster_on(farm, 0, asynchronous=True) as cluster:
        async with Client(cluster, asynchronous=True) as client:
            await cluster.scale(2)
            await client.wait_for_workers(2, timeout=LIMIT)
            assert await client.gather(client.map(lambda n: n + 1, range(10))) == [*range(1, 11)]
    async with cluster_on(farm, 1, asynchronous=True) as cluster:
        async with Client(cluster, asynchronous=True) as client:
            assert await client.submit(where, 0) == "node1"


def test_the_scheduler_listens_at_the_port_after_each_of_the_masters(farm, free_ports):
    with cluster_on(farm, 2, port=free_ports) as cluster:
        wait_for_workers(cluster, ["node1", "node2"])
        ports = [status.owner.port for status in states(farm) if status.owner]
        assert ports == [free_ports, free_ports + 2]
        assert cluster.scheduler_address == f"tcp://127.0.0.1:{free_ports + 1}"


def test_says_which_port_is_missing(farm, free_ports, tcp_listener):
    tcp_listener(free_ports + 1)
    message = f"the scheduler's port {free_ports + 1} is in use, or is none"
    with pytest.raises(AddressError, match=message):
        cluster_on(farm, 1, port=free_ports)


def test_listens_everywhere_if_its_address_is_forwarded_to_this_machine(farm):
    with QueltaCluster(names(farm), address="192.0.2.1") as cluster:
        (first, *_) = cluster.scheduler.listeners
        assert first.listen_address.startswith("tcp://0.0.0.0:")


async def test_leaves_no_task_behind(farm):
    async with cluster_on(farm, 1, asynchronous=True) as cluster:
        async with Client(cluster, asynchronous=True) as client:
            assert await client.submit(where, 0) == "node1"
    assert asyncio.all_tasks() == {asyncio.current_task()}


def test_leaves_a_node_alone_that_another_master_owns(farm, thief):
    thief.steal(farm.nodes[0])
    with cluster_on(farm, 3) as cluster:
        wait_for_workers(cluster, ["node2", "node3"])
        assert owners(farm) == ["another artist", "dask", "dask"]
        thief.give_back()
        wait_for_workers(cluster, ["node1", "node2", "node3"])


def test_needs_a_node():
    with pytest.raises(ValueError, match="a cluster needs at least one node"):
        QueltaCluster([])


def test_reports_the_state_of_nodes_that_do_not_exist(farm, free_ports):
    nodes = [f"127.0.0.1:{free_ports}", farm.nodes[0].name]
    with QueltaCluster(nodes, address="127.0.0.1", n_workers=2) as cluster:
        wait_for_workers(cluster, ["node1"])
    assert [status.state for status in states(farm)] == [NodeState.FREE] * 3
