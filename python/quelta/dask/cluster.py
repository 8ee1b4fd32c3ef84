"""A Dask cluster whose workers are nodes of a render farm."""

from __future__ import annotations

import asyncio
import logging
import math
import socket
import time
from collections.abc import Iterable
from contextlib import AsyncExitStack, suppress
from functools import partial
from typing import Any

from distributed import Scheduler
from distributed.core import Status
from distributed.deploy.adaptive import Adaptive
from distributed.deploy.cluster import Cluster
from distributed.deploy.spec import SpecCluster
from distributed.utils import NoOpAwaitable

from quelta import AddressError, Master, NodeState
from quelta.nodes import node_list

from . import decisions
from .worker import LeasedWorker, Loss

logger = logging.getLogger("quelta.dask")

PERIOD = 1.0  # seconds between two looks at the farm, while workers are missing
ATTEMPTS = 20  # to find a free port whose successor is free as well
RETIRE_TIME = 30.0  # seconds to move a worker's results elsewhere
SCAN_TIME = 2.0  # seconds that a node has to answer a scan


class NodeAdaptive(Adaptive):  # type: ignore[misc]
    """Leaves retiring to the cluster.

    Dask's own way ends the worker's process, which the daemon would take for a crash of its slave.
    """

    async def scale_down(self, workers: Iterable[str | int]) -> None:
        await self.cluster.scale_down(workers)


class QueltaCluster(SpecCluster):  # type: ignore[misc]
    """Takes nodes of a farm as Dask workers, replaces those that it loses, and gives all back.

    `nodes` are texts like "render07:5130". Each node's slave has to run
    `dask worker tcp://{master_address}:{master_port+1} --name {alias} --nthreads 1 --no-nanny`,
    and the daemons' aliases have to differ, since they name the workers.

    `address` is this machine's address as the nodes see it. The master listens at `port`, by
    default at one that is free, and the scheduler at the port after it. If a machine runs several
    daemons, the second one uses the next two ports, and so on. `text` is shown to others as the
    owner's text. A node has `time_limit` seconds to start its slave, and the worker as long again
    to register.

    The cluster aims at the number of workers last given as `n_workers`, to `scale` or by `adapt`.
    While it has fewer, it asks the remaining nodes every second whether they are free; it never
    steals. A node that fails is left alone for 2 s, after further failures for up to 60 s.

    Everything runs on the cluster's event loop; `scale`, `adapt` and `close` can be called from
    any thread, as with Dask's other clusters.
    """

    status: Status

    def __init__(
        self,
        nodes: Iterable[str],
        *,
        address: str | None = None,
        port: int = 0,
        text: str = "dask",
        n_workers: int = 0,
        time_limit: float = 60.0,
        asynchronous: bool = False,
        loop: Any = None,
        name: str | None = None,
        silence_logs: int = logging.WARNING,
    ) -> None:
        self._records = {node: decisions.NodeRecord(node) for node in node_list(nodes)}
        if not self._records:
            raise ValueError("a cluster needs at least one node")
        # One step for the master's port and one for the scheduler's.
        self._new_master = partial(Master, address, port, text, port_step=2)
        self._address = address
        self._attempts = 1 if port else ATTEMPTS
        self._time_limit = time_limit
        self._target = n_workers
        self._master: Master | None = None
        self._leases: dict[str, LeasedWorker] = {}
        self._told: set[str] = set()
        self._exits = AsyncExitStack()
        self._wake = asyncio.Event()
        self._keeper: asyncio.Task[None] | None = None
        super().__init__(
            worker={"cls": self._lease, "options": {}},
            asynchronous=asynchronous,
            loop=loop,
            name=name,
            silence_logs=silence_logs,
        )

    # Size

    def scale(self, n: int) -> Any:
        """Sets the number of workers to aim at. Returns at once."""
        self._target = max(n, 0)
        self.loop.add_callback(self._wake.set)
        return NoOpAwaitable() if self.asynchronous else None

    async def scale_down(self, workers: Iterable[str | int]) -> None:
        """Gives back the nodes of these workers; their results move to other workers before."""
        for name in workers:
            self.worker_spec.pop(name, None)
        self._target = len(self.worker_spec)
        await self._correct_state()

    def adapt(
        self,
        Adaptive: type[Adaptive] = NodeAdaptive,
        minimum: float = 0,
        maximum: float = math.inf,
        **options: Any,
    ) -> Adaptive:
        """Sizes the cluster by its load, as Dask does it: `adapt(minimum=1, maximum=8)`."""
        return super().adapt(Adaptive, minimum, min(maximum, len(self._records)), **options)

    def _threads_per_worker(self) -> int:
        raise ValueError("this cluster counts nodes: use minimum and maximum")

    def _memory_per_worker(self) -> int:
        raise ValueError("this cluster counts nodes: use minimum and maximum")

    # Start and end

    async def _start(self) -> None:
        try:
            if self.status == Status.created:
                await self._start_master()
            await super()._start()
        except BaseException:
            self.status = Status.closed
            await self._exits.aclose()
            raise
        self._keeper = self._keeper or asyncio.create_task(self._keep_size(), name="cluster size")

    async def _start_master(self) -> None:
        """Opens a master, and with it the ports that say where the scheduler has to listen."""
        # An address that is forwarded to this machine is none to listen on.
        host = self._address if self._address and _is_free(self._address, 0) else None
        for _ in range(self._attempts):
            self._master = await self._exits.enter_async_context(self._new_master())
            numbers = [number + 1 for number in await self._master_ports(self._master)]
            taken = [number for number in numbers if not _is_free(host, number)]
            if not taken:
                break
            await self._exits.aclose()
        else:
            raise AddressError(f"the scheduler's port {taken[0]} is in use, or is none")
        self.scheduler_spec = {
            "cls": Scheduler,
            "options": {
                "host": host,
                "port": numbers,
                "dashboard": False,
                "dashboard_address": ":0",
            },
        }
        logger.info("the scheduler listens at %s", numbers)

    async def _master_ports(self, master: Master) -> list[int]:
        """Returns the ports that the nodes connect to: one for all unless they share machines."""
        numbers = set()
        for node in list(self._records):
            try:
                numbers.add((await master.address_for(node)).port)
            except AddressError as error:
                logger.error("%s", error)
                del self._records[node]
        if not numbers:
            raise AddressError("none of the nodes has an address")
        return sorted(numbers)

    async def _close(self) -> None:
        if self._keeper:
            self._keeper.cancel()
            with suppress(asyncio.CancelledError):
                await self._keeper
            self._keeper = None
        self.worker_spec.clear()
        try:
            await super()._close()
            # Nodes that were lost may still be on their way back.
            await asyncio.gather(*(lease.close() for lease in self._leases.values()))
        finally:
            await self._exits.aclose()

    # Workers

    async def _keep_size(self) -> None:
        while True:
            try:
                await self._approach_target()
            except Exception:  # a defect must not stop the upkeep
                logger.exception("cannot bring the cluster to %d workers", self._target)
            with suppress(asyncio.TimeoutError):
                await asyncio.wait_for(self._wake.wait(), PERIOD)
            self._wake.clear()

    async def _approach_target(self) -> None:
        self._forget_lost_workers()  # also one that was lost while SpecCluster was starting it
        excess = len(self.worker_spec) - self._target
        for name in decisions.workers_to_drop(list(self.worker_spec), self.observed, excess):
            del self.worker_spec[name]
        if excess < 0:
            await self._take_nodes(-excess)
        if set(self.worker_spec) != set(self.workers):
            # It ends by itself; stopping it half-way would lose track of workers.
            await asyncio.shield(self._correct_state())

    async def _take_nodes(self, count: int) -> None:
        self._leases = {node: w for node, w in self._leases.items() if not w.is_free}
        asked = decisions.worth_asking(self._records.values(), self._leases, time.monotonic())
        aliases = await self._free_nodes(asked)
        for node in decisions.nodes_to_take(self._records.values(), aliases, count):
            name = decisions.dask_name(aliases[node])
            if self._is_usable(node, name):
                self.worker_spec[name] = {
                    **self.new_spec,
                    "options": {"node": node, "name": name},
                }

    async def _free_nodes(self, nodes: list[str]) -> dict[str, str]:
        """Asks nodes for their state; returns those that are free, with their aliases."""
        assert self._master
        states = await self._master.scan(nodes, SCAN_TIME)
        return {s.node: s.alias for s in states if s.state == NodeState.FREE}

    def _is_usable(self, node: str, name: str | int) -> bool:
        others = [w.node for w in self._leases.values() if w.name == name]
        if name != "" and not others:
            return name not in self.worker_spec
        if node not in self._told:
            self._told.add(node)
            fault = f"has the alias {name!r} of {others[0]}" if others else "has no alias"
            logger.error("%s %s and is not used: aliases name the workers", node, fault)
        return False

    def _lease(self, scheduler: str, *, node: str, name: str | int) -> LeasedWorker:
        """Makes a worker; SpecCluster calls it like the worker's class."""
        assert self._master
        self._leases[node] = LeasedWorker(
            scheduler,
            name=name,
            node=node,
            master=self._master,
            time_limit=self._time_limit,
            retire=self._retire,
            on_lost=self._worker_lost,
        )
        return self._leases[node]

    async def _retire(self, worker: LeasedWorker) -> None:
        if self.status == Status.running:
            with suppress(asyncio.TimeoutError):
                retiring = self.scheduler.retire_workers(names=[worker.name], remove=False)
                await asyncio.wait_for(retiring, RETIRE_TIME)

    def _forget_lost_workers(self) -> None:
        for name, worker in list(self.workers.items()):
            if worker.status == Status.failed:
                del self.workers[name]
                self.worker_spec.pop(name, None)

    async def _worker_lost(self, worker: LeasedWorker, loss: Loss) -> None:
        logger.warning("%s: lost worker %s: %s", worker.node, worker.name, loss.reason)
        if not loss.blameless:
            self._records[worker.node].failed(time.monotonic())
        self._forget_lost_workers()
        # Dask may not notice for minutes that a host has vanished.
        for address, state in list(self.scheduler.workers.items()):
            if state.name == worker.name:
                await self.scheduler.remove_worker(
                    address, stimulus_id=f"lost-{worker.name}", safe=loss.blameless
                )
        self._wake.set()

    def _update_worker_status(self, op: str, msg: Any) -> None:
        if op == "add":
            for info in msg["workers"].values():
                if worker := self.workers.get(info["name"]):
                    worker.registered.set()
                    self._records[worker.node].worked()
        # Not SpecCluster's version, which closes workers that Dask has lost for a while. Here the
        # lease decides.
        Cluster._update_worker_status(self, op, msg)


def _is_free(address: str | None, port: int) -> bool:
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # as the scheduler does
        try:
            probe.bind((address or "", port))
        except (OSError, OverflowError):
            return False
    return True
