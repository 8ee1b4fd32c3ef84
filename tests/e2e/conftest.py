"""Fixtures of the end-to-end suite: nodes with a real daemon, and masters on the loopback."""

import signal
import socket
from contextlib import contextmanager

import pytest

from support import exec_slave, programs
from support.farm_view import FarmView
from support.limits import TEST_LIMIT
from support.master import Master
from support.node import Node
from support.ports import Ports

QUICK_TESTS_BETWEEN_SLOW_ONES = 7


def pytest_configure():
    # Daemons must not inherit a hang-up that a nohup in front of the tests ignores.
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    try:
        programs.bin_dir()
    except RuntimeError as missing:
        raise pytest.UsageError(str(missing)) from missing


def pytest_collection_modifyitems(items):
    other = "linux_only" if programs.ON_WINDOWS else "windows_only"
    for item in items:
        marker = item.get_closest_marker(other)
        if marker:
            item.add_marker(pytest.mark.skip(reason=f"{other}: {marker.args[0]}"))
    items[:] = slow_ones_early(items)
    if programs.ON_WINDOWS:
        # Last, because Wine's server keeps a processor busy with the sockets of killed daemons.
        items.sort(key=lambda item: item.path.name == "test_killed_daemon.py")


def slow_ones_early(items):
    """Puts the slow tests first, spread out because each worker is given neighbouring tests."""
    slow = [item for item in items if item.get_closest_marker("slow")]
    quick = [item for item in items if not item.get_closest_marker("slow")]
    ordered = []
    for number, item in enumerate(slow):
        ordered += [
            item,
            *quick[
                number
                * QUICK_TESTS_BETWEEN_SLOW_ONES : (number + 1)
                * QUICK_TESTS_BETWEEN_SLOW_ONES
            ],
        ]
    return ordered + quick[len(slow) * QUICK_TESTS_BETWEEN_SLOW_ONES :]


@contextmanager
def time_limit(phase):
    """Fails a phase that exceeds the limit; the fixtures still shut their programs down."""

    def give_up(*_):
        pytest.fail(f"{phase} has not ended within {TEST_LIMIT:g} s")

    previous = signal.signal(signal.SIGALRM, give_up)
    signal.setitimer(signal.ITIMER_REAL, TEST_LIMIT)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_setup():
    with time_limit("the set-up"):
        yield


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_call():
    with time_limit("the test"):
        yield


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_teardown():
    with time_limit("the tear-down"):
        yield


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """Adds the daemons' output so far to the report of a failure."""
    report = (yield).get_result()
    if report.failed and report.when == "call":
        for node in item.funcargs.get("nodes", []):
            for name, output in (("output", node.output), ("errors", node.errors)):
                if output.lines():
                    report.sections.append(
                        (f"{name} of {node.folder.name}", "\n".join(output.lines()))
                    )


@pytest.fixture(scope="session")
def ports(tmp_path_factory, worker_id):
    own = tmp_path_factory.getbasetemp()
    return Ports((own if worker_id == "master" else own.parent) / "ports")


@pytest.fixture(scope="session")
def beacon_socket():
    """One socket for all datagrams: a temporary socket might take a port reserved for a daemon."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as datagrams:
        datagrams.bind(("127.0.0.1", 0))
        yield datagrams


@pytest.fixture
def nodes() -> list[Node]:
    return []


@pytest.fixture
def make_node(nodes, tmp_path, ports):
    """Creates nodes, closes them after the test and asserts that no thread was killed by force."""

    def make(**settings):
        nodes.append(Node(tmp_path / f"node{len(nodes)}", ports.free_block(), **settings))
        return nodes[-1]

    yield make
    for node in nodes:
        node.close()
    for node in nodes:
        node.assert_nothing_forced()


@pytest.fixture
def make_master(beacon_socket):
    """Creates masters, each on its own loopback address by default."""
    masters: list[Master] = []

    def make(ip=None, text=None, **settings):
        number = len(masters) + 2
        masters.append(
            Master(
                ip or f"127.0.0.{number}",
                b"master %d" % number if text is None else text,
                beacon_socket,
                **settings,
            )
        )
        return masters[-1]

    yield make
    for master in masters:
        master.close()


@pytest.fixture
def farm(make_node, make_master):
    """Creates a serving node and masters connected to it: `node, first, second = farm(2)`."""

    def make(masters=1, **settings):
        node = make_node(**settings).serve()
        return (node, *(make_master().join(node) for _ in range(masters)))

    return make


@pytest.fixture
def make_exec_node(make_node):
    """Creates nodes whose slave is the exec slave with the given configuration; `node` holds
    settings of the node itself."""

    def make(node=None, **settings):
        return exec_slave.equip(make_node(**(node or {})), **settings)

    return make


@pytest.fixture
def exec_node(make_exec_node):
    """The same, serving."""
    return lambda **settings: make_exec_node(**settings).serve()


@pytest.fixture
def hold():
    """Has console masters hold the slaves of nodes: `hold(node)`."""
    masters = []

    def make(node):
        masters.append(exec_slave.Hold(node))
        return masters[-1]

    yield make
    for master in masters:
        master.close()


@pytest.fixture
def daemon_voice():
    """Starts exec slaves without a daemon: `daemon_voice(node)`."""
    voices = []

    def make(node, **streams):
        voices.append(exec_slave.DaemonVoice(node, **streams))
        return voices[-1]

    yield make
    for voice in voices:
        voice.close()


@pytest.fixture
def tcp_listener():
    """Opens listening sockets that are closed after the test."""
    sockets = []

    def make(port, ip="0.0.0.0"):
        listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        sockets.append(listener)
        listener.bind((ip, port))
        listener.listen()
        return listener

    yield make
    for listener in sockets:
        listener.close()


@pytest.fixture
def view():
    """Starts farm views that are ended after the test."""
    started = []

    def start(*arguments, **settings):
        started.append(FarmView(*arguments, **settings))
        return started[-1]

    yield start
    for one in started:
        one.close()
