"""The system refuses new threads: what needs one fails, and everything else keeps working."""

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
STACK = 64 * MEBIBYTE  # more than the C library caches of ended threads
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


def test_daemon_exits_without_a_thread_for_the_information_run(make_node):
    """It is treated like a failed launch: the daemon does not continue without GPUs."""

    def without_threads():
        resource.setrlimit(resource.RLIMIT_STACK, (1 << 40, resource.RLIM_INFINITY))
        resource.setrlimit(resource.RLIMIT_AS, (1 << 32, 1 << 32))

    node = make_node(flags="").start(preexec_fn=without_threads)
    lines = node.output.rest()
    assert node.wait_exit() == 0
    assert between_start_and_stop(lines) == [*INFORMATION_RUN, REFUSED_SLAVE]


def test_connections_without_reader_threads_are_reestablished(make_node, make_master):
    """JUCE reports them as connected although no thread reads from them."""
    node = make_node(flags="daemon logPrefix logJuce").serve(preexec_fn=with_large_stacks)
    give_no_more_threads(node)
    masters = [make_master().join(node) for _ in range(4)]
    give_threads_again(node)
    for master in masters:
        master.request(wire.SCAN_REQUEST)
    sent = time.monotonic()
    # The C library may have kept the stack of an ended thread, which serves one of them.
    deaf = [master for master in masters if not master.connection.is_answered()]
    assert len(deaf) >= len(masters) - 1
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


def test_start_without_a_thread_fails_and_recovers(make_node, make_master):
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
