"""A system that gives the daemon no more threads: what needed one has failed, and the rest goes on."""

import resource
import time

import pytest

from support import measure, wire
from support.output import error_line
from support.ownership import running, started, stopped
from support.transcript import INFORMATION_RUN, between_start_and_stop

pytestmark = [
    pytest.mark.linux_only(
        "limits the memory that a Linux process has for the stacks of its threads"
    ),
    pytest.mark.skipif(measure.SANITIZED, reason="a sanitizer maps memory of its own"),
]

MEBIBYTE = 1 << 20
STACK = 64 * MEBIBYTE  # more than the C library keeps of ended threads
SCARCE = 8 * MEBIBYTE
RECOVERY_SECONDS = 2
REFUSED_SLAVE = "the system refused the thread that runs the slave"


def with_large_stacks():
    resource.setrlimit(resource.RLIMIT_STACK, (STACK, resource.RLIM_INFINITY))


def give_no_more_threads(node):
    limit = measure.address_space_kilobytes(node.process.pid) * 1024 + SCARCE
    resource.prlimit(node.process.pid, resource.RLIMIT_AS, (limit, resource.RLIM_INFINITY))


def give_threads_again(node):
    resource.prlimit(
        node.process.pid, resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY)
    )


def test_no_thread_for_the_information_run(make_node):
    """It has failed like a launch, so the daemon ends; it does not go on without GPUs."""

    def without_threads():
        resource.setrlimit(resource.RLIMIT_STACK, (1 << 40, resource.RLIM_INFINITY))
        resource.setrlimit(resource.RLIMIT_AS, (1 << 32, 1 << 32))

    node = make_node(flags="").start(preexec_fn=without_threads)
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert between_start_and_stop(lines) == [*INFORMATION_RUN, REFUSED_SLAVE]


def test_masters_connected_without_threads_are_connected_anew(make_node, make_master):
    """JUCE takes them for connected although nobody reads what they send."""
    node = make_node(flags="daemon logPrefix logJuce").serve(preexec_fn=with_large_stacks)
    give_no_more_threads(node)
    deaf = [make_master().join(node) for _ in range(4)]
    give_threads_again(node)
    for master in deaf:
        master.request(wire.SCAN_REQUEST)
    sent = time.monotonic()
    for master in deaf:
        master.accept()
    assert time.monotonic() - sent < RECOVERY_SECONDS
    for master in deaf:
        node.output.wait(
            error_line(
                f"nothing reads the connection to master {master} any more -> connecting anew"
            )
        )
        master.expect_silence(node.status(wire.DAEMON_STATUS))
    node.quit()


def test_no_thread_for_a_start(make_node, make_master):
    node = make_node(flags="daemon logPrefix logJuce").serve(preexec_fn=with_large_stacks)
    owner, other = (make_master().join(node) for _ in range(2))
    owner.expect_silence(
        node.status(wire.DAEMON_STATUS)
    )  # once it is served, all its threads are there
    other.expect_silence(node.status(wire.DAEMON_STATUS))
    give_no_more_threads(node)
    started(node, owner, other)
    node.output.wait(error_line(REFUSED_SLAVE))
    owner.request(wire.SCAN_REQUEST)
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, other)
    give_threads_again(node)
    running(node, owner, other)
    stopped(node, owner, other)
    node.quit()
