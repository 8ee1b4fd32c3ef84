"""Frames that no honest peer sends: whoever sends them may lose by it, nobody else does, and memory stays bounded."""

import resource

import pytest

from support import measure, wire
from support.hostile import timed
from support.output import daemon_line, error_line, plain_line
from support.ownership import puppet, running, started, stopped
from support.scenario import PUPPET, scenario

FLAGS = "daemon logPrefix logJuce"
TWO_GIBIBYTES = bytes.fromhex("2c9eb4f2 ffffff7f")
FOREIGN = {
    "foreign magic": "2c9eb4f3 5c000000" + "00" * 92,
    "zeros": "00" * 100,
    "text": b"GET / HTTP/1.1\r\nHost: node7\r\n\r\n".hex(),
}
SWALLOWED = {
    "length zero": "2c9eb4f2 00000000" * 50,
    "length -1": "2c9eb4f2 ffffffff",
    "lowest length": "2c9eb4f2 00000080",
}
CUT = {
    "in the magic": "2c9e",
    "in the length": "2c9eb4f2 5c00",
    "behind the header": "2c9eb4f2 5c000000",
    "in the record": "2c9eb4f2 5c000000 41432300 08000000",
    "in two gibibytes": "2c9eb4f2 ffffff7f 41432300",
}
RECOVERY_SECONDS = 2
SLAVE_END_SECONDS = 2  # for a slave that obeys


def without_gibibytes():
    resource.setrlimit(resource.RLIMIT_AS, (1536 << 20, 1536 << 20))


limited_memory = pytest.mark.skipif(
    measure.SANITIZED, reason="a sanitizer's own memory hides the daemon's"
)


@pytest.fixture
def attacked(farm):
    """A node whose slave runs for one master while another one, the last, is up to something."""
    node, owner, hostile = farm(2, flags=FLAGS)
    running(node, owner, hostile)
    yield node, owner, hostile
    hostile.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, hostile)
    node.quit()


def assert_served(node, owner):
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


@pytest.mark.parametrize("junk", FOREIGN.values(), ids=FOREIGN)
def test_master_that_speaks_something_else_is_connected_anew(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)
    hostile.accept()


@pytest.mark.parametrize("junk", SWALLOWED.values(), ids=SWALLOWED)
def test_frames_without_content_are_passed_over(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)


@pytest.mark.parametrize("junk", CUT.values(), ids=CUT)
def test_frame_cut_by_the_end_of_the_connection(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)
    hostile.connection.close()
    hostile.accept()


def test_master_that_sends_byte_by_byte_holds_nobody_up(attacked):
    node, owner, hostile = attacked
    for byte in wire.frame(hostile.record(wire.SCAN_REQUEST)):
        hostile.connection.send_bytes(bytes([byte]))
        assert_served(node, owner)
    hostile.expect(node.status(wire.DAEMON_STATUS, owner))


def test_half_a_frame_holds_nobody_up_at_the_end(farm):
    node, owner, hostile = farm(2, flags=FLAGS)
    running(node, owner, hostile)
    hostile.connection.send_bytes(TWO_GIBIBYTES + b"x")
    node.quit()
    node.assert_no_slave()


@limited_memory
@pytest.mark.linux_only("reads the memory of a Linux process")
@pytest.mark.slow
def test_announced_gibibytes_cost_only_what_arrives(make_node, make_master):
    node = make_node(flags=FLAGS).serve()
    owner, *hostile = (make_master().join(node) for _ in range(9))
    running(node, owner, *hostile)
    before = measure.resident_kilobytes(node.process.pid)
    for master in hostile:
        master.connection.send_bytes(TWO_GIBIBYTES + bytes(1 << 20))
    for _ in range(20):
        assert_served(node, owner)
    # 8 MiB have arrived; each of the 9 answering threads may add its stack and its share of the heap.
    assert measure.resident_kilobytes(node.process.pid) - before < 24 * 1024
    for master in hostile:
        master.connection.close()
        master.accept()
        master.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert measure.resident_kilobytes(node.process.pid) - before < 8 * 1024
    stopped(node, owner, *hostile)


@limited_memory
@pytest.mark.linux_only("limits the memory of a Linux process")
def test_gibibytes_that_the_machine_does_not_have(make_node, make_master):
    """The thread that reads their connection dies of them, so that one is made anew; everybody else is served on."""
    node = make_node(flags=FLAGS).serve(preexec_fn=without_gibibytes)
    owner, hostile = (make_master().join(node) for _ in range(2))
    hostile.connection.send_bytes(TWO_GIBIBYTES + b"x")
    assert timed(hostile.accept) < RECOVERY_SECONDS
    running(node, owner, hostile)
    hostile.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, hostile)
    node.quit()


@limited_memory
@pytest.mark.linux_only("limits the memory of a Linux process")
def test_master_that_leaves_after_gibibytes_is_noticed(make_node, make_master):
    node = make_node(flags=FLAGS).serve(preexec_fn=without_gibibytes)
    hostile = make_master().join(node)
    hostile.connection.send_bytes(TWO_GIBIBYTES)
    hostile.vanish()
    node.output.wait(
        error_line(f"nothing reads the connection to master {hostile} any more -> connecting anew")
    )
    hostile.return_to(node).expect_silence(node.status(wire.DAEMON_STATUS))
    node.quit()


@limited_memory
@pytest.mark.linux_only("limits the memory of a Linux process")
def test_owner_that_leaves_after_gibibytes_loses_its_slave(make_node, make_master):
    node = make_node(flags=FLAGS).serve(preexec_fn=without_gibibytes)
    owner, other = (make_master().join(node) for _ in range(2))
    running(node, owner, other)
    owner.connection.send_bytes(TWO_GIBIBYTES)
    owner.vanish()
    assert (
        timed(lambda: other.expect(node.status(wire.DAEMON_STATUS)))
        < RECOVERY_SECONDS + SLAVE_END_SECONDS
    )
    node.wait_no_slave()
    running(node, other)
    node.quit()


@pytest.mark.parametrize(
    "junk",
    [*FOREIGN.values(), *SWALLOWED.values(), "2c9eb4f2 ffffff7f", "2c9eb4f2 14000000 0d"],
    ids=[*FOREIGN, *SWALLOWED, "two gibibytes", "cut"],
)
def test_slave_that_speaks_something_else_is_stopped_like_any_other(farm, junk):
    """The stop message travels the other way, so what the slave has said does not matter."""
    node, owner, other = farm(
        2, flags=FLAGS, plays=scenario(f"connect\ninfo\nwait 300\nraw {junk}\nbeat 1000")
    )
    running(node, owner, other)
    node.slave_report(f"sending {len(bytes.fromhex(junk))} bytes unframed")
    other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, other)
    lines = node.quit()
    assert plain_line("slave didn't stop gracefully, killing process by force") not in lines


@limited_memory
@pytest.mark.linux_only("reads the memory of a Linux process")
def test_slave_that_announces_gibibytes(farm):
    node, owner = farm(flags=FLAGS, plays=scenario(PUPPET))
    slave = puppet(node, owner)
    before = measure.resident_kilobytes(node.process.pid)
    slave.send_bytes(TWO_GIBIBYTES + bytes(1 << 20))
    assert_served(node, owner)
    owner.request(wire.STOP_REQUEST)
    slave.expect_stop()
    assert measure.resident_kilobytes(node.process.pid) - before < 16 * 1024
    node.kill_slave()
    owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))


def test_slave_that_sends_byte_by_byte_is_heard(farm):
    node, owner, other = farm(
        2, flags="daemon daemonDetail logPrefix logJuce", plays=scenario(PUPPET)
    )
    slave = puppet(node, owner, other)
    for byte in wire.frame(wire.slave_record(wire.SLAVE_INFO, 1, 4000000)):
        slave.send_bytes(bytes([byte]))
        other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))


def test_start_after_a_hostile_slave(farm):
    """Each launch has a monitor of its own: nothing of the last slave's bytes is left."""
    node, owner = farm(
        flags=FLAGS, plays=scenario("connect\nraw 2c9eb4f2ffffff7f\nwait 200\ncrash")
    )
    started(node, owner)
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    stopped(node, owner)
    node.play(scenario())
    running(node, owner)
    node.output.wait(
        daemon_line(f"notifying master {owner} that the slave is initialized and running")
    )
