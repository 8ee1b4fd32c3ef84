"""Fixtures of the package's tests: nodes with a real daemon, and masters of the package.

The daemons are those of the end-to-end tests, which choose the system and the programs.
"""

from __future__ import annotations

import itertools
import os
import signal
import socket
from contextlib import contextmanager
from pathlib import Path
from typing import Any, AsyncIterator, Generator, Iterator

import hypothesis
import pytest
from helpers import MakeNode, MakeRawMaster
from support import programs
from support.limits import TEST_LIMIT
from support.master import Master as RawMaster
from support.node import Node
from support.ports import Ports

import quelta

QUICK_TESTS_BETWEEN_SLOW_ONES = 7

# Runs are repeatable, keep no examples and never judge the speed of a machine.
os.environ["HYPOTHESIS_STORAGE_DIRECTORY"] = str(
    Path(__file__).resolve().parents[2] / "build" / "hypothesis"
)
hypothesis.settings.register_profile("quelta", database=None, deadline=None, derandomize=True)
hypothesis.settings.load_profile("quelta")


def pytest_configure() -> None:
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    try:
        programs.bin_dir()
    except RuntimeError as missing:
        raise pytest.UsageError(str(missing)) from missing


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Puts the slow tests first, spread out because each worker is given neighbouring tests."""
    slow = [item for item in items if item.get_closest_marker("slow")]
    quick = iter([item for item in items if not item.get_closest_marker("slow")])
    ordered = []
    for item in slow:
        ordered += [item, *itertools.islice(quick, QUICK_TESTS_BETWEEN_SLOW_ONES)]
    items[:] = [*ordered, *quick]


@contextmanager
def time_limit(phase: str) -> Iterator[None]:
    """Fails a phase that exceeds the limit; the fixtures still shut their programs down."""

    def give_up(*_: object) -> None:
        pytest.fail(f"{phase} has not ended within {TEST_LIMIT:g} s")

    previous = signal.signal(signal.SIGALRM, give_up)
    signal.setitimer(signal.ITIMER_REAL, TEST_LIMIT)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_call() -> Iterator[None]:
    with time_limit("the test"):
        yield


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_teardown() -> Iterator[None]:
    with time_limit("the tear-down"):
        yield


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item) -> Generator[None, Any, None]:
    """Adds the daemons' output so far to the report of a failure."""
    report = (yield).get_result()
    if report.failed and report.when == "call":
        for node in getattr(item, "funcargs", {}).get("nodes", []):
            report.sections.append(
                (f"output of {node.folder.name}", "\n".join(node.output.lines()))
            )


@pytest.fixture(scope="session")
def ports(tmp_path_factory: pytest.TempPathFactory, worker_id: str) -> Ports:
    own = tmp_path_factory.getbasetemp()
    return Ports((own if worker_id == "master" else own.parent) / "ports")


@pytest.fixture
def nodes() -> list[Node]:
    return []


@pytest.fixture
def make_node(nodes: list[Node], tmp_path: Path, ports: Ports) -> Iterator[MakeNode]:
    """Creates serving nodes, which are ended after the test."""

    def make(**settings: Any) -> Node:
        node = Node(tmp_path / f"node{len(nodes)}", ports.free_block(), **settings)
        nodes.append(node)
        return node.serve()

    yield make
    for node in nodes:
        node.close()
    for node in nodes:
        node.assert_nothing_forced()


@pytest.fixture
def node(make_node: MakeNode) -> Node:
    return make_node(alias="render07")


@pytest.fixture
def make_raw_master() -> Iterator[MakeRawMaster]:
    """Creates other masters, which are made of plain sockets."""
    masters: list[RawMaster] = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as beacons:

        def make(text: bytes = b"other") -> RawMaster:
            masters.append(RawMaster(f"127.0.0.{len(masters) + 2}", text, beacons))
            return masters[-1]

        yield make
        for master in masters:
            master.close()


@pytest.fixture
async def master() -> AsyncIterator[quelta.Master]:
    async with quelta.Master(text="td") as opened:
        yield opened
