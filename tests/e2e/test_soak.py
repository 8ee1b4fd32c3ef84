"""Many slaves of every kind in turn: the daemon releases everything it acquired for them.

QUELTA_SOAK_ROUNDS sets the number of rounds. Every run includes a short soak.
"""

import os
from collections import Counter

import pytest

from support import measure, programs, wire
from support.node import wait_until
from support.output import daemon_line
from support.ownership import running, started, stopped
from support.scenario import scenario

ROUNDS = int(os.environ.get("QUELTA_SOAK_ROUNDS", "12"))
WARM_UP = 5  # every quick kind of round once
GROWTH_KILOBYTES = 400
CENSUS = "quelta_windows_census.exe"

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
        thief.expect(
            *(
                node.status(kind, thief)
                for kind in (wire.DAEMON_STATUS, wire.STEAL_REPLY, wire.SLAVE_RUNNING)
            )
        )
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
    node.slave_report("hanging", before)  # a stop reaches it only once it has connected
    stopped(node, owner, other)


def lose_the_owner(node, owner, other):
    node.play(WELL_BEHAVED)
    running(node, owner, other)
    owner.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    owner.return_to(node)
    owner.expect_silence(node.status(wire.DAEMON_STATUS))  # all its threads run once it is served


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
# By round number modulo 100; these slaves run into the real time-outs.
SLOW = {10: hang_until_the_limit, 60: ignore_the_stop}


def play_round(number, *node_and_masters):
    SLOW.get(number % 100, QUICK[number % len(QUICK)])(*node_and_masters)


def held(process):
    """Returns everything that a leak would increase, except memory."""
    kinds = Counter(target.partition(":")[0] for target in measure.descriptors(process))
    return kinds, measure.threads(process), measure.children(process)


@pytest.mark.linux_only("counts what a Linux process holds")
@pytest.mark.skipif(measure.SANITIZED, reason="a sanitizer starts its own threads on demand")
@pytest.mark.slow
def test_many_slaves_leak_nothing(farm):
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
    print(
        f"{ROUNDS} rounds: {before[1]} threads, {sum(before[0].values())} descriptors, {grown:+} kB"
    )
    assert grown < GROWTH_KILOBYTES
    lines = node.quit()
    # Every monitor released its port, so no later one had to choose another.
    ports = [line for line in lines if line.startswith(daemon_line("using free port "))]
    assert set(ports) == {daemon_line(f"using free port {node.port + 1} to communicate with slave")}
    assert len(ports) > WARM_UP + ROUNDS
    node.assert_no_slave()


def census(node):
    """Returns the daemon's threads and handles by kind, counted by Windows while a slave runs."""
    counted = programs.run(programs.bin_dir() / CENSUS, node.slave_id())
    return Counter(
        {kind: int(number) for kind, number in (line.split(": ") for line in counted.splitlines())}
    )


def windows_held(node):
    """Returns the minimum of several counts, because a thread about to end is still counted."""
    held_now = census(node)
    for _ in range(4):
        held_now &= census(node)
    return held_now


@pytest.mark.windows_only("counts the handles of a Windows process")
@pytest.mark.slow
def test_each_launch_leaks_only_its_two_handles(farm):
    """By design, the handles of the slave's process and of its first thread are never closed."""
    node, owner, other = farm(2, flags="daemon logPrefix logJuce")

    def launches():
        return len(
            [
                line
                for line in node.output.lines()
                if line.startswith(daemon_line("starting slave for master "))
            ]
        )

    def held_while_running():
        node.play(WELL_BEHAVED)
        running(node, owner, other)
        held_now = windows_held(node)
        stopped(node, owner, other)
        return held_now, launches()

    for number in range(WARM_UP):
        play_round(number, node, owner, other)
    before, first = held_while_running()
    for number in range(WARM_UP, WARM_UP + ROUNDS):
        play_round(number, node, owner, other)
    after, last = held_while_running()
    kept = {kind: after[kind] - before[kind] for kind in after}
    launched, tolerance = last - first, after["running threads"]
    print(f"{launched} launches: {before} before, {after} after")
    assert kept.pop("Process") == launched
    # A thread acquires a handle to itself and a few events when it first blocks on a lock.
    kept["Thread"] -= launched
    assert all(abs(number) <= tolerance < launched for number in kept.values()), kept
