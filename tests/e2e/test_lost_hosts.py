"""The power failure of a master's machine is detected within 30 s, and its slave is stopped."""

import time

import pytest

from support import namespaces, programs, wire
from support.namespaces import Cable, RemoteMaster
from support.output import daemon_line
from support.ownership import running, stopped
from support.scenario import scenario

NOTICED_WITHIN = 30
REASON = "needs Linux's network namespaces" if programs.ON_WINDOWS else namespaces.why_not()
pytestmark = pytest.mark.skipif(bool(REASON), reason=REASON or "-")


@pytest.fixture
def cable():
    laid = Cable()
    try:
        yield laid.lay()
    finally:
        laid.remove()


@pytest.fixture
def far_apart(cable, make_node):
    """A daemon on one machine, a master beside it, and a master on the other machine."""
    masters: list[RemoteMaster] = []

    def make(**settings):
        node = make_node(flags="daemon logPrefix logJuce", **settings)
        with cable.near.entered():
            node.serve()
        masters.extend(RemoteMaster(machine, cable.near) for machine in (cable.near, cable.far))
        return node, *(master.join(node) for master in masters)

    yield make
    for master in masters:
        master.close()


def assert_noticed(node, near, lost, cut_at):
    """Asserts that only the lost master is disconnected and the other sees a free node."""
    near.expect(node.status(wire.DAEMON_STATUS))
    took = time.monotonic() - cut_at
    assert took < NOTICED_WITHIN
    print(f"noticed after {took:.1f} s")
    node.wait_no_slave()
    node.output.wait_sequence(
        [
            daemon_line(f"disconnected from master {lost}"),
            daemon_line(f"stopping Quelta slave for master {lost}"),
        ]
    )
    running(node, near)
    stopped(node, near)
    node.quit()


@pytest.mark.slow
def test_loss_of_an_idle_host_is_detected(far_apart, cable):
    node, near, lost = far_apart()
    running(node, lost, near)
    cable.cut()
    assert_noticed(node, near, lost, time.monotonic())


@pytest.mark.slow
def test_loss_of_a_host_with_a_broadcast_in_flight_is_detected(far_apart, cable):
    """The host fails while its start request waits for a slow stop; two broadcasts follow."""
    node, near, lost = far_apart(plays=scenario(settings="on-stop exit-after 1500"))
    running(node, near, lost)
    near.request(wire.STOP_REQUEST)
    stopping = node.output.wait(daemon_line(f"stopping Quelta slave for master {near}"))
    lost.request(wire.START_REQUEST)
    node.slave_report("stopping in 1500 ms", stopping)
    cable.cut()
    cut_at = time.monotonic()
    near.expect(
        node.status(wire.DAEMON_STATUS),
        node.status(wire.STOP_REPLY),
        node.status(wire.DAEMON_STATUS, lost),
    )
    assert_noticed(node, near, lost, cut_at)


@pytest.mark.slow
def test_loss_of_a_host_without_a_slave_does_not_delay_the_others(far_apart, cable):
    node, near, lost = far_apart()
    cable.cut()
    cut_at = time.monotonic()
    running(node, near)
    stopped(node, near)
    assert time.monotonic() - cut_at < 10
    node.output.wait(daemon_line(f"disconnected from master {lost}"))
    assert time.monotonic() - cut_at < NOTICED_WITHIN
    near.expect_silence(node.status(wire.DAEMON_STATUS))
