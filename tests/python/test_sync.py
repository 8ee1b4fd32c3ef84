"""quelta.sync: the same with a thread, for programs without asyncio."""

import concurrent.futures
import os
import signal
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest
from helpers import MakeNode, MakeRawMaster, address_of, free, name_of, owned, receive_until, take
from support import wire
from support.limits import HANG_LIMIT
from support.node import Node
from support.ports import refusing_socket
from support.scenario import scenario

from quelta import EventKind, LostReason, MasterClosedError, NoAnswerError, NodeBusyError, sync

PACKAGE = Path(__file__).resolve().parents[2] / "python"


@pytest.fixture
def master() -> Iterator[sync.Master]:
    with sync.Master(text="td") as opened:
        yield opened


def test_nodes_are_scanned_and_held(node: Node, master: sync.Master) -> None:
    assert master.scan(name_of(node), HANG_LIMIT) == [free(node)]
    with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        assert lease.node == name_of(node)
        assert lease.master_address == master.address_for(name_of(node))
        assert lease.status == owned(node, lease.master_address)
        assert (lease.lost, lease.confirmed) == (None, True)
        assert lease.wait(0.01) is None
        assert len(node.slave_processes()) == 1
    assert lease.lost is LostReason.RELEASED
    assert master.scan(name_of(node), HANG_LIMIT) == [free(node)]


def test_a_lost_lease_is_noticed(
    node: Node, master: sync.Master, make_raw_master: MakeRawMaster
) -> None:
    thief = make_raw_master().join(node)
    with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
        thief.request(wire.STEAL_REQUEST)
        assert lease.wait(HANG_LIMIT) is LostReason.STOLEN
    receive_until(thief, wire.SLAVE_RUNNING)


def test_exceptions_come_through(
    node: Node, master: sync.Master, make_raw_master: MakeRawMaster
) -> None:
    other = make_raw_master()
    take(other, node)
    with pytest.raises(NodeBusyError) as caught:
        with master.hold(name_of(node), timeout=HANG_LIMIT):
            pass
    assert caught.value.owner == address_of(other)
    with refusing_socket() as nowhere, pytest.raises(NoAnswerError):
        with master.hold(f"127.0.0.1:{nowhere.getsockname()[1]}", timeout=0.5):
            pass


def test_an_exception_in_the_block_gives_the_node_back(node: Node, master: sync.Master) -> None:
    with pytest.raises(ZeroDivisionError):
        with master.hold(name_of(node), timeout=HANG_LIMIT):
            raise ZeroDivisionError
    assert master.scan(name_of(node), HANG_LIMIT) == [free(node)]


def test_events_are_iterated(node: Node) -> None:
    with sync.Master() as master:
        events = master.events(name_of(node))
        with master.hold(name_of(node), timeout=HANG_LIMIT):
            assert next(events).kind is EventKind.FOUND
        assert list(master.events(timeout=0.01)) == []
    assert [event.kind for event in events] == [
        EventKind.CHANGED,
        EventKind.STARTING,
        EventKind.RUNNING,
        EventKind.CHANGED,
        EventKind.STOPPED,
    ]


def test_threads_share_a_master(make_node: MakeNode, master: sync.Master) -> None:
    nodes = [make_node() for _ in range(2)]
    ended = []

    def hold(node: Node) -> None:
        with master.hold(name_of(node), timeout=HANG_LIMIT):
            ended.append(node)

    threads = [threading.Thread(target=hold, args=[node]) for node in nodes]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(HANG_LIMIT)
    assert sorted(map(name_of, ended)) == sorted(map(name_of, nodes))


def test_the_thread_ends_with_the_block(node: Node) -> None:
    before = set(threading.enumerate())
    with sync.Master() as master:
        assert len(set(threading.enumerate()) - before) == 1
        lease = master.hold(name_of(node), timeout=HANG_LIMIT).__enter__()
    assert set(threading.enumerate()) == before
    assert lease.lost is LostReason.RELEASED
    node.assert_no_slave()
    with pytest.raises(MasterClosedError):
        master.scan(name_of(node))


def test_a_wait_ends_with_the_master(node: Node) -> None:
    reasons: list[LostReason | None] = []
    with sync.Master() as master:
        lease = master.hold(name_of(node), timeout=HANG_LIMIT).__enter__()
        waiting = threading.Thread(target=lambda: reasons.append(lease.wait()))
        waiting.start()
    waiting.join(HANG_LIMIT)
    assert reasons == [LostReason.RELEASED]


def test_a_call_that_the_closing_loop_never_began_ends() -> None:
    never: concurrent.futures.Future[None] = concurrent.futures.Future()
    closed: concurrent.futures.Future[None] = concurrent.futures.Future()
    closed.set_result(None)
    with pytest.raises(MasterClosedError):
        sync._wait_for(never, closed)


# Tells when the main thread waits, which is where Ctrl-C is to find it.
SCRIPT = """
import sys
import threading
import time
from quelta import sync

def report():
    frame = None
    while frame is None or frame.f_code.co_name != "wait":
        time.sleep(0.01)
        frame = sys._current_frames()[threading.main_thread().ident]
    print("waiting", flush=True)

with sync.Master() as master:
    with master.hold(sys.argv[1]) as lease:
        threading.Thread(target=report).start()
        lease.wait()
"""


@pytest.mark.parametrize("moment", ["while held", "while starting"])
def test_ctrl_c_gives_the_node_back(make_node: MakeNode, moment: str) -> None:
    starting = moment == "while starting"
    node = make_node(plays=scenario("connect\nauthenticating\nhang") if starting else None)
    script = subprocess.Popen(
        [sys.executable, "-c", SCRIPT, name_of(node)],
        env={**os.environ, "PYTHONPATH": str(PACKAGE)},
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    try:
        assert script.stdout
        node.output.wait_match(r"standin: argument 4: \[[1-9]\d*\]")
        if not starting:
            assert script.stdout.readline() == "waiting\n"
        script.send_signal(signal.SIGINT)
        errors = script.communicate(timeout=HANG_LIMIT)[1]
    finally:
        script.kill()
        script.wait(HANG_LIMIT)
    assert errors.endswith("KeyboardInterrupt\n")
    assert script.returncode == -signal.SIGINT
    node.wait_no_slave()
    node.output.wait_match(r"daemon    : received stop request from master .*")
