"""Invalid frames hurt at most their sender, and memory use stays bounded."""

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
SLAVE_END_SECONDS = 2  # for a slave that obeys the stop


def without_gibibytes():
    resource.setrlimit(resource.RLIMIT_AS, (1536 << 20, 1536 << 20))


limited_memory = pytest.mark.skipif(
    measure.SANITIZED, reason="a sanitizer's own memory hides the daemon's"
)


@pytest.fixture
def attacked(farm):
    """A node whose slave runs for one master while another, the last, sends invalid frames."""
    node, owner, hostile = farm(2, flags=FLAGS)
    running(node, owner, hostile)
    yield node, owner, hostile
    hostile.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    stopped(node, owner, hostile)
    node.quit()


def assert_served(node, owner):
    owner.expect_silence(node.status(wire.DAEMON_STATUS, owner))


@pytest.mark.parametrize("junk", FOREIGN.values(), ids=FOREIGN)
def test_master_with_a_foreign_protocol_is_reconnected(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)
    hostile.accept()


@pytest.mark.parametrize("junk", SWALLOWED.values(), ids=SWALLOWED)
def test_empty_frames_are_ignored(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)


@pytest.mark.parametrize("junk", CUT.values(), ids=CUT)
def test_frame_truncated_by_disconnection(attacked, junk):
    node, owner, hostile = attacked
    hostile.connection.send_bytes(bytes.fromhex(junk))
    assert_served(node, owner)
    hostile.connection.close()
    hostile.accept()


def test_master_sending_byte_by_byte_does_not_block_others(attacked):
    node, owner, hostile = attacked
    for byte in wire.frame(hostile.record(wire.SCAN_REQUEST)):
        hostile.connection.send_bytes(bytes([byte]))
        assert_served(node, owner)
    hostile.expect(node.status(wire.DAEMON_STATUS, owner))


def test_partial_frame_does_not_block_shutdown(farm):
    node, owner, hostile = farm(2, flags=FLAGS)
    running(node, owner, hostile)
    hostile.connection.send_bytes(TWO_GIBIBYTES + b"x")
    node.quit()
    node.assert_no_slave()


@limited_memory
@pytest.mark.linux_only("reads the memory of a Linux process")
@pytest.mark.slow
def test_announced_gibibytes_use_only_the_memory_received(make_node, make_master):
    node = make_node(flags=FLAGS).serve()
    owner, *hostile = (make_master().join(node) for _ in range(9))
    running(node, owner, *hostile)
    before = measure.resident_kilobytes(node.process.pid)
    for master in hostile:
        master.connection.send_bytes(TWO_GIBIBYTES + bytes(1 << 20))
    for _ in range(20):
        assert_served(node, owner)
    # 8 MiB have arrived; each of the 9 replying threads may add a stack and a heap arena.
    assert measure.resident_kilobytes(node.process.pid) - before < 24 * 1024
    for master in hostile:
        master.connection.close()
        master.accept()
        master.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    assert measure.resident_kilobytes(node.process.pid) - before < 8 * 1024
    stopped(node, owner, *hostile)


@limited_memory
@pytest.mark.linux_only("limits the memory of a Linux process")
def test_allocation_failure_for_a_frame_only_drops_its_connection(make_node, make_master):
    """The connection's reader thread dies. The daemon reconnects and keeps serving the others."""
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
def test_master_disconnecting_after_an_allocation_failure_is_detected(make_node, make_master):
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
def test_slave_stops_if_its_owner_disconnects_after_an_allocation_failure(make_node, make_master):
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
def test_slave_with_a_foreign_protocol_can_be_stopped(farm, junk):
    """The stop message travels the other way, so the slave's own bytes do not matter."""
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
def test_slave_announcing_gibibytes_uses_only_the_memory_received(farm):
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


def test_slave_sending_byte_by_byte_is_understood(farm):
    node, owner, other = farm(
        2, flags="daemon daemonDetail logPrefix logJuce", plays=scenario(PUPPET)
    )
    slave = puppet(node, owner, other)
    for byte in wire.frame(wire.slave_record(wire.SLAVE_INFO, 1, 4000000)):
        slave.send_bytes(bytes([byte]))
        other.expect_silence(node.status(wire.DAEMON_STATUS, owner))
    owner.expect(node.status(wire.SLAVE_RUNNING, owner))


def test_slave_starts_after_a_hostile_one(farm):
    """Every launch has its own monitor, so no bytes of the previous slave remain."""
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
