"""Fixtures of the end-to-end suite: nodes with a real daemon, and masters on the loopback."""

import signal
import socket
from contextlib import contextmanager

import pytest

from support import programs
from support.limits import TEST_LIMIT
from support.master import Master
from support.node import Node
from support.ports import Ports

APART = 7


def pytest_configure():
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
        # Wine's server keeps a processor busy with the sockets of killed daemons until it ends, so these come last.
        items.sort(key=lambda item: item.path.name == "test_killed_daemon.py")


def slow_ones_early(items):
    """The tests with the slow ones at the front, but apart, since processes get neighbours to run one by one."""
    slow = [item for item in items if item.get_closest_marker("slow")]
    quick = [item for item in items if not item.get_closest_marker("slow")]
    ordered = []
    for number, item in enumerate(slow):
        ordered += [item, *quick[number * APART : (number + 1) * APART]]
    return ordered + quick[len(slow) * APART :]


@contextmanager
def time_limit(phase):
    """Fails what takes longer, so that its fixtures still end their programs."""

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
    """Shows with a failure what its daemons have printed up to then."""
    report = (yield).get_result()
    if report.failed and report.when == "call" and "make_node" in item.funcargs:
        for node in item.funcargs["make_node"].nodes:
            for name, output in (("output", node.output), ("errors", node.errors)):
                if output:
                    report.sections.append(
                        (f"{name} of {node.folder.name}", "\n".join(output.lines()))
                    )


@pytest.fixture(scope="session")
def ports(tmp_path_factory, worker_id):
    own = tmp_path_factory.getbasetemp()
    return Ports((own if worker_id == "master" else own.parent) / "ports")


@pytest.fixture(scope="session")
def beacon_socket():
    """One socket for all datagrams, so that no passing socket takes a port that was promised to a daemon."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as datagrams:
        datagrams.bind(("127.0.0.1", 0))
        yield datagrams


@pytest.fixture
def make_node(tmp_path, ports):
    """Makes nodes whose daemons and slaves end with the test, and whose daemons must not have ended a thread by force."""
    nodes = []

    def make(**settings):
        nodes.append(Node(tmp_path / f"node{len(nodes)}", ports.free_block(), **settings))
        return nodes[-1]

    make.nodes = nodes
    yield make
    for node in nodes:
        node.close()
    for node in nodes:
        node.assert_nothing_forced()


@pytest.fixture
def make_master(beacon_socket):
    """Makes masters, each on a loopback address of its own unless one is given."""
    masters = []

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
    """Makes a node in service and masters that it has connected to: `node, first, second = farm(2)`."""

    def make(masters=1, **settings):
        node = make_node(**settings).serve()
        return (node, *(make_master().join(node) for _ in range(masters)))

    return make


@pytest.fixture
def tcp_listener():
    """Opens listening sockets that end with the test."""
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
