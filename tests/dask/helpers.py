"""What the Dask tests share."""

from __future__ import annotations

import asyncio
import sys
import time
from collections.abc import Callable
from typing import Any

import cloudpickle
import options
from distributed import Client
from local_farm import LocalFarm

from quelta import Master, NodeState, NodeStatus
from quelta.dask import QueltaCluster

LIMIT = 300.0  # seconds; only guards against a hang
POLL = 0.05
# The workers have no copy of this file.
cloudpickle.register_pickle_by_value(sys.modules[__name__])
WORKER = (options.HERE / "worker.toml").read_text()


def wait_until(condition: Callable[[], Any], what: str) -> None:
    deadline = time.monotonic() + LIMIT
    while not condition():
        assert time.monotonic() < deadline, f"timed out waiting until {what}"
        time.sleep(POLL)


def names(farm: LocalFarm) -> list[str]:
    return [node.name for node in farm.nodes]


def states(farm: LocalFarm) -> list[NodeStatus]:
    """Asks the nodes as a master of its own."""

    async def scan() -> list[NodeStatus]:
        async with Master(address="127.0.0.1") as master:
            return await master.scan(names(farm), 20)

    return asyncio.run(scan())


def owners(farm: LocalFarm) -> list[str]:
    """Returns each node's owner by its text; "" for a free node."""
    return [status.owner_text for status in states(farm)]


def all_free(farm: LocalFarm) -> bool:
    return all(status.state == NodeState.FREE for status in states(farm))


def cluster_on(farm: LocalFarm, n_workers: int, **settings: Any) -> QueltaCluster:
    return QueltaCluster(names(farm), address="127.0.0.1", n_workers=n_workers, **settings)


def workers(cluster: QueltaCluster) -> list[str]:
    return sorted(map(str, cluster.observed))


def wait_for_workers(cluster: QueltaCluster, expected: list[str]) -> None:
    wait_until(lambda: workers(cluster) == expected, f"the workers are {expected}")


def slow_square(number: int, seconds: float = 0.2) -> int:
    time.sleep(seconds)
    return number * number


def where(_: int) -> str:
    """Returns the name of the worker that runs this."""
    from distributed import get_worker

    return str(get_worker().name)


def assert_computes(client: Client, count: int = 24) -> None:
    """Asserts that the cluster's results are those of this process."""
    expected = [number * number for number in range(count)]
    assert client.gather(client.map(lambda n: n * n, range(count), pure=False)) == expected
