"""The slave of an owner with an unusable address can be replaced; no replaced slave is leaked."""

import pytest

from support import wire
from support.node import wait_until
from support.output import daemon_line, error_line
from support.ownership import puppet, stopped
from support.scenario import PUPPET, scenario
from support.slave import SlaveConnection

ALREADY_RUNNING = error_line("already running slave")
MAX_KEPT = 8


def started_without_port(node, master, *others, running=True):
    address = (master.address[0], 0)
    master.request(wire.START_REQUEST, address=address)
    status = node.status(wire.DAEMON_STATUS, master)._replace(owner=address)
    master.expect(status, status._replace(kind=wire.START_REPLY))
    for other in others:
        other.expect(status)
    if running:
        master.expect(status._replace(kind=wire.SLAVE_RUNNING))
    return status


def replaced(node, owner, *others):
    """`owner` starts a slave while a portless owner's one runs; `others` are all other masters."""
    owner.request(wire.START_REQUEST)
    owner.expect(
        *(
            node.status(kind, owner)
            for kind in (wire.DAEMON_STATUS, wire.START_REPLY, wire.SLAVE_RUNNING)
        )
    )
    for other in others:
        other.expect(node.status(wire.DAEMON_STATUS, owner))


@pytest.mark.parametrize("address", [("127.0.0.2", 0), ("0.0.0.0", 21000)])
def test_owner_with_an_unusable_address_can_be_replaced(farm, address):
    node, careless, other = farm(2)
    careless.request(wire.START_REQUEST, address=address)
    status = node.status(wire.DAEMON_STATUS, careless)._replace(owner=address)
    careless.expect(
        status, status._replace(kind=wire.START_REPLY), status._replace(kind=wire.SLAVE_RUNNING)
    )
    other.expect(status)
    replaced(node, other, careless)
    node.output.wait_sequence(
        [
            daemon_line("starting slave for master %s:%u" % address),
            ALREADY_RUNNING,
            daemon_line(f"starting slave for master {other}"),
        ]
    )


def test_replaced_slave_runs_until_the_daemon_quits(farm):
    node, careless, other = farm(2)
    started_without_port(node, careless, other)
    first = node.slave_process()
    replaced(node, other, careless)
    assert first in node.slave_processes() and len(node.slave_processes()) == 2
    stopped(node, other, careless)
    wait_until(lambda: node.slave_processes() == [first], "only the replaced slave is left")
    node.quit()
    node.assert_no_slave()


def test_failure_of_a_replaced_slave_is_not_reported(farm):
    node, careless, other = farm(2)
    started_without_port(node, careless, other)
    first = node.slave_process()
    replaced(node, other, careless)
    node.kill_slave(first)
    node.output.wait("            slave crashed or was stopped via CTRL-C")
    for master in (careless, other):
        master.expect_silence(node.status(wire.DAEMON_STATUS, other))
    stopped(node, other, careless)
    node.quit()


def test_slave_replaced_before_it_ran_is_not_reported(farm):
    node, careless, other = farm(2, plays=scenario(PUPPET))
    started_without_port(node, careless, other, running=False)
    start = node.output.wait(daemon_line(f"starting slave for master {careless.address[0]}:0"))
    node.slave_report("hanging", start)
    slaves = [SlaveConnection(node.monitor_port(start)), puppet(node, other, careless)]
    for slave in slaves:
        slave.report(wire.SLAVE_INFO)
    other.expect(node.status(wire.SLAVE_RUNNING, other))
    other.expect_silence(node.status(wire.DAEMON_STATUS, other))
    careless.expect_silence(node.status(wire.DAEMON_STATUS, other))


def test_owner_without_port_can_stop_its_slave(farm):
    node, careless, other = farm(2)
    started_without_port(node, careless, other)
    careless.request(wire.STOP_REQUEST, address=(careless.address[0], 0))
    careless.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
    other.expect(node.status(wire.DAEMON_STATUS))
    node.wait_no_slave()


def test_slave_of_an_owner_without_port_can_be_stolen(farm):
    node, careless, thief = farm(2)
    started_without_port(node, careless, thief)
    thief.request(wire.STEAL_REQUEST)
    thief.expect(
        *(
            node.status(kind, thief)
            for kind in (wire.DAEMON_STATUS, wire.STEAL_REPLY, wire.SLAVE_RUNNING)
        )
    )
    careless.expect(node.status(wire.DAEMON_STATUS, thief))
    assert len(node.slave_processes()) == 1
    assert ALREADY_RUNNING not in node.quit()


def test_lost_connection_of_an_owner_without_port_stops_its_slave(farm):
    node, careless, other = farm(2)
    started_without_port(node, careless, other)
    careless.vanish()
    other.expect(node.status(wire.DAEMON_STATUS))
    node.wait_no_slave()


def test_number_of_replaced_slaves_is_limited(farm):
    node, careless = farm()
    processes = []
    for _ in range(MAX_KEPT + 3):
        started_without_port(node, careless)
        processes += [process for process in node.slave_processes() if process not in processes]
    wait_until(lambda: len(node.slave_processes()) <= MAX_KEPT + 1, "the oldest slaves are stopped")
    assert set(node.slave_processes()) == set(processes[-MAX_KEPT - 1 :])
    assert node.quit().count(ALREADY_RUNNING) == MAX_KEPT + 2
    node.assert_no_slave()


def test_shutdown_stops_replaced_slaves_in_parallel(farm):
    """Three slaves that need two seconds each to stop are asked at the same time."""
    node, careless = farm(plays=scenario(settings="on-stop exit-after 2000"))
    for _ in range(3):
        started_without_port(node, careless)
    node.quit()
    node.assert_no_slave()
    stopping, ended = "standin: stopping in 2000 ms", "standin: exit status 0"
    reports = [line for line in node.output.lines() if line in (stopping, ended)]
    # The first exit is that of the information run.
    assert reports == [ended, *[stopping] * 3, *[ended] * 3]


def test_replaced_slaves_die_with_a_killed_daemon(farm):
    node, careless = farm(plays=scenario(PUPPET))
    for count in range(1, 4):
        started_without_port(node, careless, running=False)
        wait_until(lambda: len(node.slave_processes()) == count, "one more slave runs")
    node.process.kill()
    node.wait_no_slave()
