"""Fixtures of the Dask tests: farms of real daemons, whose slaves run real Dask workers."""

from __future__ import annotations

import os
import signal
import socket
from collections.abc import Callable, Iterator
from contextlib import ExitStack, contextmanager
from pathlib import Path

import pytest
from helpers import LIMIT, WORKER, all_free, wait_until
from local_farm import DAEMON, SLAVE, LocalFarm, LocalNode, Thief, free_port

MakeFarm = Callable[..., LocalFarm]


def pytest_configure() -> None:
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    if not all((bin_dir() / program).is_file() for program in (DAEMON, SLAVE)):
        raise pytest.UsageError(f"QUELTA_BIN_DIR names no folder with {DAEMON} and {SLAVE}")


def bin_dir() -> Path:
    return Path(os.environ.get("QUELTA_BIN_DIR", "")).resolve()


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_call() -> Iterator[None]:
    """Fails a test that exceeds the limit; the fixtures still shut their programs down."""

    def give_up(*_: object) -> None:
        pytest.fail(f"the test has not ended within {LIMIT:g} s")

    previous = signal.signal(signal.SIGALRM, give_up)
    signal.setitimer(signal.ITIMER_REAL, LIMIT)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)


@contextmanager
def running(size: int, folder: Path, worker: str) -> Iterator[LocalFarm]:
    with LocalFarm(size, folder, bin_dir(), worker) as farm:
        yield farm


@pytest.fixture(scope="session")
def shared_farm(tmp_path_factory: pytest.TempPathFactory) -> Iterator[LocalFarm]:
    with running(3, tmp_path_factory.mktemp("farm") / "nodes", WORKER) as farm:
        yield farm


@pytest.fixture
def farm(shared_farm: LocalFarm) -> Iterator[LocalFarm]:
    """Three free nodes. Whatever the test does with them, they have to be free at its end."""
    yield shared_farm
    for node in shared_farm.nodes:
        if not node.is_running:
            node.start()
            node.wait_until_listening()
    wait_until(lambda: all_free(shared_farm), "every node has been given back")


@pytest.fixture
def make_farm(tmp_path: Path) -> Iterator[MakeFarm]:
    """Starts farms with a worker of the test's own."""
    with ExitStack() as stack:

        def make(size: int, worker: str = WORKER, **settings: str) -> LocalFarm:
            farm = LocalFarm(size, tmp_path / "nodes", bin_dir(), worker)
            for node in farm.nodes:
                node.alias = settings.get(node.alias, node.alias)
            return stack.enter_context(farm)

        yield make


class ThiefOfOne:
    """Another master, which takes one node."""

    def __init__(self, folder: Path) -> None:
        self._log = folder / "thief.log"
        self._thief: Thief | None = None

    def steal(self, node: LocalNode) -> None:
        self._thief = Thief(bin_dir(), node.name, self._log)
        wait_until(self._thief.has_stolen, "the node is stolen")

    def give_back(self) -> None:
        if self._thief:
            self._thief.give_back()
            self._thief = None


@pytest.fixture
def thief(farm: LocalFarm, tmp_path: Path) -> Iterator[ThiefOfOne]:
    one = ThiefOfOne(tmp_path)
    yield one
    one.give_back()


@pytest.fixture
def free_ports() -> int:
    """Returns a port that is free like the ones after it."""
    return free_port()


@pytest.fixture
def tcp_listener() -> Iterator[Callable[[int], None]]:
    with ExitStack() as stack:

        def listen(port: int) -> None:
            stack.enter_context(socket.create_server(("127.0.0.1", port)))

        yield listen
