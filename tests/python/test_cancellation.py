"""A hold that is cancelled gives its node back, wherever the cancellation arrives."""

from __future__ import annotations

import asyncio
import os
import signal
import subprocess
import sys
import types
from collections.abc import Callable, Coroutine, Generator
from pathlib import Path
from typing import Any

import pytest
from helpers import MakeNode, free, name_of
from support.limits import HANG_LIMIT
from support.node import Node
from support.scenario import scenario

from quelta import LostReason, Master, NodeState

AT_SUSPENSION, AT_RESUMPTION = "at suspension", "at resumption"


class Interrupted:
    """Runs a coroutine and cancels its task at the nth await that suspends it in a stage.

    At suspension the cancellation cancels what is awaited; at resumption that has just ended.
    """

    def __init__(
        self, coroutine: Coroutine[Any, Any, None], in_stage: Callable[[], bool], at: int, when: str
    ) -> None:
        self.coroutine = coroutine
        self.in_stage = in_stage
        self.at = at
        self.when = when
        self.count = 0

    @types.coroutine
    def run(self) -> Generator[Any, Any, None]:
        error: BaseException | None = None
        while True:
            try:
                awaited = self.coroutine.throw(error) if error else self.coroutine.send(None)
            except StopIteration:
                return
            self.count += self.in_stage()
            due = self.count == self.at and self.in_stage()
            task = asyncio.current_task()
            assert task
            if due and self.when == AT_SUSPENSION:
                task.cancel()
            try:
                yield awaited
                error = None
            except BaseException as raised:
                error = raised
            if due and self.when == AT_RESUMPTION:
                error = asyncio.CancelledError()


async def hold(master: Master, node: Node, steps: list[str]) -> None:
    # The name is looked up, which is one more await than for an address.
    async with master.hold(f"localhost:{node.port}", timeout=HANG_LIMIT, stop_timeout=HANG_LIMIT):
        steps.append("held")
        await asyncio.sleep(0)
        steps.append("leaving")
    steps.append("given back")


@pytest.mark.slow
@pytest.mark.parametrize("when", [AT_SUSPENSION, AT_RESUMPTION])
@pytest.mark.parametrize("stage", [[], ["held"], ["held", "leaving"]], ids=len)
async def test_every_await_gives_the_node_back(node: Node, stage: list[str], when: str) -> None:
    cancelled = True
    at = 0
    while cancelled:
        at += 1
        async with Master(text="td") as master:
            steps: list[str] = []
            interrupted = Interrupted(hold(master, node, steps), lambda: steps == stage, at, when)

            async def run() -> None:
                await interrupted.run()

            task = asyncio.create_task(run())
            await asyncio.wait({task})
            cancelled = task.cancelled()
            assert cancelled == (interrupted.count >= at)
            assert steps == (stage if cancelled else ["held", "leaving", "given back"])
            assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]
            assert node.slave_processes() == []
    assert at > 1


async def test_repeated_cancellation_does_not_abandon_the_node(make_node: MakeNode) -> None:
    node = make_node(plays=scenario(settings="on-stop exit-after 1500"))
    async with Master(text="td") as master:
        steps: list[str] = []
        task = asyncio.create_task(hold(master, node, steps))
        while not steps:
            await asyncio.sleep(0.01)
        while not task.done():
            task.cancel()
            await asyncio.sleep(0.01)
        assert task.cancelled() and "given back" not in steps
        node.slave_report("stopping in 1500 ms")
        assert node.slave_processes() == []
        assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


async def test_a_master_whose_end_is_cancelled_gives_every_node_back(make_node: MakeNode) -> None:
    nodes = [
        make_node(plays=scenario(settings=f"on-stop exit-after {time}")) for time in (1000, 3000)
    ]

    async def use() -> None:
        async with Master(text="td") as master:
            for node in nodes:
                await master.hold(name_of(node), timeout=HANG_LIMIT).__aenter__()

    task = asyncio.create_task(use())
    for node in nodes:
        await asyncio.to_thread(node.output.wait_match, r"standin: stopping in \d+ ms")
    task.cancel()
    await asyncio.wait({task})
    assert task.cancelled()
    for node in nodes:
        node.assert_no_slave()


async def test_a_time_limit_around_the_block_gives_the_node_back(
    node: Node, master: Master
) -> None:
    with pytest.raises(TimeoutError):
        async with asyncio.timeout(None) as limit:
            async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
                limit.reschedule(asyncio.get_running_loop().time())
                await lease.lost
    assert lease.reason is LostReason.RELEASED
    assert await master.scan(name_of(node), HANG_LIMIT) == [free(node)]


def test_a_program_that_ends_gives_its_nodes_back(node: Node) -> None:
    """asyncio.run cancels the tasks that its main coroutine leaves behind."""

    async def hold_for_ever(master: Master) -> None:
        async with master.hold(name_of(node), timeout=HANG_LIMIT) as lease:
            await lease.lost

    async def main() -> None:
        async with Master(text="td") as master:
            asyncio.create_task(hold_for_ever(master))
            while (await master.scan(name_of(node), HANG_LIMIT))[0].state is NodeState.FREE:
                await asyncio.sleep(0.01)

    asyncio.run(main())
    node.assert_no_slave()


SCRIPT = """
import asyncio
import sys
from quelta import Master

async def main():
    async with Master() as master:
        async with master.hold(sys.argv[1]) as lease:
            print("held", flush=True)
            await lease.lost

asyncio.run(main())
"""


def test_ctrl_c_gives_the_node_back(node: Node) -> None:
    script = subprocess.Popen(
        [sys.executable, "-W", "error", "-c", SCRIPT, name_of(node)],
        env={**os.environ, "PYTHONPATH": str(Path(__file__).resolve().parents[2] / "python")},
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    try:
        assert script.stdout and script.stdout.readline() == "held\n"
        script.send_signal(signal.SIGINT)
        errors = script.communicate(timeout=HANG_LIMIT)[1]
    finally:
        script.kill()
        script.wait(HANG_LIMIT)
    assert errors.endswith("KeyboardInterrupt\n")
    assert script.returncode == -signal.SIGINT
    node.output.wait_match(r"daemon    : received stop request from master .*")
    node.assert_no_slave()
