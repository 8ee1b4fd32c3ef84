"""A slave that hangs, falls silent or dies is stopped, and only its owner is notified.

The time-outs are the real ones, so several of these tests take more than ten seconds.
"""

import time

import pytest

from support import wire
from support.node import wait_until
from support.output import daemon_line, plain_line
from support.ownership import puppet, running, started, stopped
from support.scenario import PUPPET, scenario

HANGING_AT_START = plain_line("detected that slave is hanging during startup -> stopping slave")
HANGING_AFTER_INFO = plain_line(
    "detected that slave is hanging after initialization -> stopping slave"
)
HEARTBEAT_STOPPED = plain_line("detected that heart beat of slave stopped -> stopping slave")
CRASHED = plain_line("slave crashed or was stopped via CTRL-C")
KILLED = plain_line("slave didn't stop gracefully, killing process by force")

# Seconds that a busy machine may add to a time-out.
SLACK = 3


def failure_notice(owner):
    return daemon_line(f"notifying master {owner} that the slave has crashed")


def assert_failed(node, owner, *others):
    """Asserts that the owner is notified once, sees the failure in its scans, and can clear it."""
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    for other in others:
        other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect_silence(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner, *others)
    owner.expect_silence(node.status(wire.DAEMON_STATUS))


def assert_took(since, limit):
    assert limit <= time.monotonic() - since <= limit + SLACK


@pytest.mark.slow
def test_slave_that_never_connects(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    begin = time.monotonic()
    started(node, owner, other)
    line = node.output.wait(HANGING_AT_START)
    assert_took(begin, 10)
    node.kill_slave()
    node.output.wait(failure_notice(owner), line)
    assert_failed(node, owner, other)
    assert KILLED not in node.quit()


@pytest.mark.slow
def test_slave_that_connects_and_stays_silent(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    begin = time.monotonic()
    slave = puppet(node, owner, other)
    node.output.wait(HANGING_AT_START)
    assert_took(begin, 10)
    slave.expect_stop()
    node.kill_slave()
    assert_failed(node, owner, other)


def test_slave_that_hangs_after_its_initialisation(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    begin = time.monotonic()
    slave.report(wire.SLAVE_INFO, gpus=3, slave_version=42)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    node.output.wait(HANGING_AFTER_INFO)
    assert_took(begin, 4)
    slave.expect_stop()
    node.kill_slave()
    assert_failed(node, owner, other)


@pytest.mark.slow
def test_slave_whose_heartbeat_stops(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    slave.report(wire.SLAVE_INFO)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    begin = time.monotonic()
    slave.report(wire.SLAVE_STATUS)
    node.output.wait(HEARTBEAT_STOPPED)
    assert_took(begin, 10)
    slave.expect_stop()
    node.kill_slave()
    assert_failed(node, owner, other)


@pytest.mark.slow
def test_heartbeats_may_be_up_to_ten_seconds_apart(farm):
    node, owner = farm(
        plays=scenario("connect\nstatus\nwait 8500\nstatus\nwait 8500\nstatus\nbeat 1000")
    )
    after = -1
    started(node, owner)
    for _ in range(4):
        after = node.output.wait(
            daemon_line("received heartbeat message 'SLAVE_STATUS' from slave"), after
        )
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


@pytest.mark.slow
def test_hung_slave_that_ignores_the_stop_is_killed_after_the_notification(farm):
    node, owner = farm(plays=scenario("connect\ninfo\nhang", settings="on-stop ignore"))
    begin = time.monotonic()
    running(node, owner)
    node.output.wait_sequence([HANGING_AFTER_INFO, failure_notice(owner), KILLED])
    assert_took(begin, 4 + 12)
    node.wait_no_slave()
    assert_failed(node, owner)


@pytest.mark.parametrize(
    "steps",
    [
        "exit 0",
        "exit 7",
        "crash",
        "connect\nauthenticating\nexit 0",
        "connect\nstatus\nwait 300\nexit 0",
        "connect\ncrash",
    ],
)
def test_slave_that_ends_by_itself_has_failed(farm, steps):
    node, owner, other = farm(2, plays=scenario(steps))
    started(node, owner, other)
    node.output.wait_sequence([CRASHED, failure_notice(owner)])
    assert_failed(node, owner, other)


def test_running_slave_that_is_killed(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    node.kill_slave()
    begin = time.monotonic()
    assert_failed(node, owner, other)
    assert time.monotonic() - begin < SLACK
    node.output.wait_sequence([CRASHED, failure_notice(owner)])


def test_slave_that_dies_after_its_information_is_reported_running_then_failed(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    process = node.slave_process()
    slave.report(wire.SLAVE_INFO, gpus=2, slave_version=9)
    node.output.wait(daemon_line("slave has version 9 and provides 2 GPU(s)"))
    assert node.slave_processes() == [process]
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    assert_failed(node, owner, other)
    node.output.wait_sequence(
        [
            daemon_line(f"notifying master {owner} that the slave is initialized and running"),
            CRASHED,
            failure_notice(owner),
        ]
    )


def test_running_slave_is_reported_once(farm):
    node, owner = farm(plays=scenario(PUPPET))
    slave = puppet(node, owner)
    line = -1
    for kind in (
        wire.SLAVE_STATUS,
        wire.AUTHENTICATING,
        wire.SLAVE_INFO,
        wire.SLAVE_STATUS,
        wire.AUTHENTICATING,
        wire.SLAVE_INFO,
    ):
        slave.report(kind)
        name = ("AUTHENTICATING", "SLAVE_INFO", "SLAVE_STATUS")[kind]
        line = node.output.wait(
            daemon_line(f"received heartbeat message '{name}' from slave"), line
        )
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    # The time-out after the second SLAVE_INFO shows that the watchdog kept running.
    node.output.wait(HANGING_AFTER_INFO)
    slave.expect_stop()
    node.kill_slave()
    assert_failed(node, owner)


def test_slave_that_only_sends_heartbeats_is_never_initialised(farm):
    node, owner = farm(plays=scenario("connect\nbeat 300"))
    started(node, owner)
    line = -1
    for _ in range(4):
        line = node.output.wait(
            daemon_line("received heartbeat message 'SLAVE_STATUS' from slave"), line
        )
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner)


def test_failure_is_reported_to_the_requesting_connection(farm):
    """Even for a slave requested on behalf of another master, which can still stop it."""
    node, named, asking = farm(2)
    asking.request(wire.START_REQUEST, address=named.address)
    status = node.status(wire.DAEMON_STATUS, named, text=asking.text)
    asking.expect(
        status, status._replace(kind=wire.START_REPLY), status._replace(kind=wire.SLAVE_RUNNING)
    )
    named.expect(status)
    node.kill_slave()
    asking.expect(status._replace(kind=wire.SLAVE_FAILED))
    asking.expect_silence(status._replace(kind=wire.SLAVE_FAILED))
    named.expect_silence(status)
    stopped(node, named, asking)


def test_failed_slave_stays_with_its_owner(farm):
    node, owner, other = farm(2)
    running(node, owner, other)
    node.kill_slave()
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    other.request(wire.START_REQUEST)
    other.expect(node.status(wire.START_REPLY, owner))
    owner.request(wire.START_REQUEST)
    owner.expect(node.status(wire.START_REPLY, owner))
    stopped(node, owner, other)
    running(node, other, owner)


def test_stop_sends_the_slave_one_message(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    owner.request(wire.STOP_REQUEST)
    slave.expect_stop()
    node.kill_slave()
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    other.expect(node.status(wire.DAEMON_STATUS))
    assert slave.is_closed_by_daemon()
    assert not {KILLED, CRASHED, failure_notice(owner)} & set(node.quit())


def test_slow_slave_is_given_time_to_stop(farm):
    node, owner, other = farm(2, plays=scenario(settings="on-stop exit-after 5000"))
    running(node, owner, other)
    begin = time.monotonic()
    stopped(node, owner, other)
    assert_took(begin, 5)
    assert not {KILLED, CRASHED, failure_notice(owner)} & set(node.quit())


@pytest.mark.slow
def test_slave_that_ignores_the_stop_is_killed_after_twelve_seconds(farm):
    node, owner, other = farm(2, plays=scenario(settings="on-stop ignore"))
    running(node, owner, other)
    begin = time.monotonic()
    stopped(node, owner, other)
    assert_took(begin, 12)
    node.wait_no_slave()
    lines = node.quit()
    assert lines.count(KILLED) == 1
    assert not {CRASHED, failure_notice(owner)} & set(lines)


@pytest.mark.slow
def test_slave_that_was_stopped_before_it_connected_is_killed_after_twelve_seconds(farm):
    node, owner = farm(plays=scenario(PUPPET))
    started(node, owner)
    node.slave_process()
    begin = time.monotonic()
    stopped(node, owner)
    assert_took(begin, 12)
    node.output.wait(KILLED)
    wait_until(lambda: not node.slave_processes(), "the slave is gone")


def test_stop_while_a_hanging_slave_is_stopped_reports_no_crash(farm):
    node, owner, other = farm(2, plays=scenario(PUPPET))
    slave = puppet(node, owner, other)
    slave.report(wire.SLAVE_INFO)
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))
    slave.expect_stop()
    owner.request(wire.STOP_REQUEST)
    node.output.wait(daemon_line(f"stopping Quelta slave for master {owner}"))
    node.kill_slave()
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    other.expect(node.status(wire.DAEMON_STATUS))
    owner.expect_silence(node.status(wire.DAEMON_STATUS))
    assert failure_notice(owner) not in node.quit()
