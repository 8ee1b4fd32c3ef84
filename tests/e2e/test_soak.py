"""Many slaves, one after another, of every kind: what the daemon has taken for them it gives back.

QUELTA_SOAK_ROUNDS sets the number of rounds. A short soak is part of every run.
"""

import os
from collections import Counter

import pytest

from support import measure, wire
from support.hostile import assert_nothing_forced
from support.node import wait_until
from support.output import daemon_line
from support.ownership import running, started, stopped
from support.scenario import scenario

pytestmark = pytest.mark.linux_only("counts what a Linux process holds; Windows keeps two handles a launch by design")

ROUNDS = int(os.environ.get("QUELTA_SOAK_ROUNDS", "12"))
WARM_UP = 5  # every quick kind once
GROWTH_KILOBYTES = 400

WELL_BEHAVED = scenario()
CRASHING = scenario("connect\ninfo\nwait 300\nstatus\ncrash")
CRASHING_AT_ONCE = scenario("crash")
EXITING = scenario("connect\ninfo\nwait 300\nexit 7")
DAWDLING = scenario(settings="on-stop exit-after 400")
HANGING = scenario("connect\nauthenticating\nhang")
MUTE = scenario("connect\ninfo\nhang")
STUBBORN = scenario(settings="on-stop ignore\non-lost ignore")


def start_and_stop(node, owner, other):
    node.play(WELL_BEHAVED)
    running(node, owner, other)
    stopped(node, owner, other)


def steal_to_and_fro(node, owner, other):
    node.play(DAWDLING)
    running(node, owner, other)
    node.play(WELL_BEHAVED)
    for thief, victim in ((other, owner), (owner, other)):
        thief.request(wire.STEAL_REQUEST)
        thief.expect(*(node.status(kind, thief) for kind in (wire.DAEMON_STATUS, wire.STEAL_REPLY, wire.SLAVE_RUNNING)))
        victim.expect(node.status(wire.DAEMON_STATUS, thief))
    stopped(node, owner, other)


def crash(node, owner, other):
    for plays in (CRASHING, CRASHING_AT_ONCE, EXITING):
        node.play(plays)
        started(node, owner, other)
        if plays is not CRASHING_AT_ONCE:
            owner.expect(node.status(wire.SLAVE_RUNNING, owner))
        owner.expect(node.status(wire.SLAVE_FAILED, owner))
        stopped(node, owner, other)


def stop_before_it_runs(node, owner, other):
    node.play(HANGING)
    before = len(node.output.lines()) - 1
    started(node, owner, other)
    node.slave_report("hanging", before)  # until it has connected, nothing reaches it
    stopped(node, owner, other)


def lose_the_owner(node, owner, other):
    node.play(WELL_BEHAVED)
    running(node, owner, other)
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    owner.return_to(node)
    owner.expect_silence(node.status(wire.DAEMON_STATUS))  # once it is served, all its threads are there


def hang_until_the_limit(node, owner, other):
    node.play(MUTE)
    running(node, owner, other)
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, other)


def ignore_the_stop(node, owner, other):
    node.play(STUBBORN)
    running(node, owner, other)
    stopped(node, owner, other)


QUICK = [start_and_stop, steal_to_and_fro, crash, stop_before_it_runs, lose_the_owner]
# Rounds of each hundred; these slaves run into the real time limits.
SLOW = {10: hang_until_the_limit, 60: ignore_the_stop}


def play_round(number, *everybody):
    SLOW.get(number % 100, QUICK[number % len(QUICK)])(*everybody)


def held(process):
    """Everything that a leak would make more of, but memory."""
    kinds = Counter(target.partition(":")[0] for target in measure.descriptors(process))
    return kinds, measure.threads(process), measure.children(process)


@pytest.mark.skipif(measure.SANITIZED, reason="a sanitizer has threads of its own, which come when they are needed")
@pytest.mark.slow
def test_as_much_is_held_after_many_slaves_as_before(farm):
    node, owner, other = farm(2, flags="daemon logPrefix logJuce")
    daemon = node.process.pid
    for number in range(WARM_UP):
        play_round(number, node, owner, other)
    before, kilobytes = held(daemon), measure.resident_kilobytes(daemon)

    for number in range(WARM_UP, WARM_UP + ROUNDS):
        play_round(number, node, owner, other)

    wait_until(lambda: held(daemon) == before, f"the daemon holds {before} again")
    assert before[2] == {}, "no child is left, and no zombie"
    grown = measure.resident_kilobytes(daemon) - kilobytes
    print(f"{ROUNDS} rounds: {before[1]} threads, {sum(before[0].values())} descriptors, {grown:+} kB")
    assert grown < GROWTH_KILOBYTES
    lines = node.quit()
    assert_nothing_forced(lines)
    # No monitor has kept its port, so none of the later ones had to look for another.
    ports = [line for line in lines if line.startswith(daemon_line("using free port "))]
    assert set(ports) == {daemon_line(f"using free port {node.port + 1} to communicate with slave")}
    assert len(ports) > WARM_UP + ROUNDS
    node.assert_no_slave()
