"""The arguments and the process environment that a slave is started with."""

import os
import signal
from pathlib import Path

import pytest

from support import programs, wire
from support.node import wait_until
from support.ownership import running, start_line, started
from support.scenario import QUICK_INFORMATION, scenario


def arguments_of_slave(node, master, after):
    """Checks the fixed arguments of `master`'s slave and returns the others."""
    port = node.monitor_port(after)
    fixed = [
        programs.STANDIN_SLAVE,
        "--net-master-address",
        master.address[0],
        "--net-master-port",
        str(master.address[1]),
        "--daemon-port",
        str(port),
        "--alias",
    ]
    for number, text in enumerate(fixed):
        after = node.slave_report(f"argument {number}: [{text}]", after)
    end = node.output.wait_match(r"standin: folder: .*", after).string
    lines = node.output.lines()[after + 1 :]
    rest = [line for line in lines[: lines.index(end)] if line.startswith("standin: argument ")]
    return [line.partition(": [")[2][:-1] for line in rest]


def seen(farm, **settings):
    """Returns the arguments of a running slave from the alias on."""
    node, master = farm(**settings)
    started(node, master)
    return arguments_of_slave(node, master, start_line(node, master))


@pytest.mark.parametrize(
    "alias, taken",
    [
        ("", ""),
        ("node7", "node7"),
        ("two  words", "two  words"),
        ("  ", "  "),
        ("Übergröße 日本", "Übergröße 日本"),
        ("it's", "it's"),
        ("C:\\folder\\file", "C:\\folder\\file"),
        ("ends with two\\\\", "ends with two\\"),
        ('a "quoted" name', "a quoted name"),
        ('doubled "" quote', 'doubled " quote'),
        ('say \\"hi\\"', 'say "hi"'),
        ("50% %s $HOME `id` *", "50% %s $HOME `id` *"),
    ],
)
def test_alias(farm, alias, taken):
    assert seen(farm, alias=alias) == [taken]


def test_explicit_empty_alias(farm):
    assert seen(farm, options=["--alias", ""]) == [""]


def test_trailing_backslash_in_the_alias_swallows_the_following_arguments(farm):
    """The alias is not escaped, so the C runtime's rules find no closing quote.

    It also swallows the option that asks for information, so the slave exits in both runs.
    """
    plays = scenario(run=QUICK_INFORMATION)
    assert seen(farm, alias="C:\\", options=["--gpus", "1"], plays=plays) == ['C:" -g 0']


def test_alias_that_closes_its_quotes_adds_arguments(farm):
    assert seen(farm, alias='x" -g 7 "y') == ["x", "-g", "7", "y"]


@pytest.mark.parametrize(
    "options, taken",
    [
        (["--gpus", "1,2"], ["-g", "0", "-g", "1"]),
        (["--gpus", "3 1 3"], ["-g", "2", "-g", "0", "-g", "2"]),
        (["--gpus", "2147483647"], ["-g", "2147483646"]),
        (["--out-of-core", "8G"], ["--out-of-core", "8589934592"]),
        (["--out-of-core", "8G,512m"], ["--out-of-core", "8589934592,536870912"]),
        (["--out-of-core", "8G,0"], ["--out-of-core", "8589934592"]),
        (["--out-of-core", "0,1G"], []),
        (["--out-of-core", "99999999999999999999"], ["--out-of-core", "9223372036854775807"]),
        (["--out-of-core", "9223372036854775807G"], ["--out-of-core", "9223372036854775807"]),
        (["--gpus", "2", "--out-of-core", "1k,1"], ["-g", "1", "--out-of-core", "1024,1"]),
    ],
)
def test_gpus_and_out_of_core(farm, options, taken):
    assert seen(farm, options=options) == ["", *taken]


def test_all_options_together(farm):
    arguments = seen(farm, alias="node7", options=["--out-of-core", "8G", "--gpus", "1,3"])
    assert arguments == ["node7", "-g", "0", "-g", "2", "--out-of-core", "8589934592"]


def test_executable_path_with_blanks(make_node, make_master):
    node = make_node()
    name = "my slave Ü" + programs.SUFFIX
    node.slave = programs.install(programs.STANDIN_SLAVE, node.folder / "own folder", name)
    node.play(scenario())
    node.serve()
    master = make_master().join(node)
    started(node, master)
    after = start_line(node, master)
    node.slave_report(f"argument 0: [{name}]", after)
    node.slave_report(f"folder: [{programs.native_path(node.slave.parent)}]", after)


def test_monitor_port_is_reused(farm):
    node, first, second = farm(2)
    ports = {node.monitor_port()}
    for owner, other in ((first, second), (second, first)):
        running(node, owner, other)
        ports.add(node.monitor_port(start_line(node, owner)))
        owner.request(wire.STOP_REQUEST)
        owner.expect(node.status(wire.DAEMON_STATUS), node.status(wire.STOP_REPLY))
        other.expect(node.status(wire.DAEMON_STATUS))
    assert ports == {node.port + 1}


def process_status(pid, field):
    rows = dict(
        line.split(":\t", 1)
        for line in Path(f"/proc/{pid}/status").read_text().splitlines()
        if ":\t" in line
    )
    return rows[field].strip()


@pytest.fixture
def sleeping_slave(make_node, make_master):
    """Starts a slave that keeps the signals and files it inherited, so that tests can read them."""

    def start(node, **popen):
        node.serve(**popen)
        owner, _ = (make_master().join(node) for _ in range(2))
        node.slave.unlink()
        node.slave.write_text("#!/bin/sh\nexec sleep 600\n")
        node.slave.chmod(0o755)
        owner.request(wire.START_REQUEST)
        wait_until(
            lambda: [Path(f"/proc/{slave}/comm").read_text() for slave in node.slave_processes()]
            == ["sleep\n"],
            "the slave sleeps",
        )
        return node.slave_process()

    return start


@pytest.mark.linux_only("reads the slave's state from /proc")
def test_slave_inherits_only_the_standard_streams(make_node, sleeping_slave):
    node = make_node(flags="daemon logPrefix logToFile")
    reader, writer = os.pipe()
    slave = sleeping_slave(node, pass_fds=[reader, writer])
    os.close(reader)
    os.close(writer)
    # Its dynamic loader opens libraries for a moment; inherited descriptors would stay.
    wait_until(
        lambda: sorted(os.listdir(f"/proc/{slave}/fd")) == ["0", "1", "2"],
        "the slave has nothing else",
    )


@pytest.mark.linux_only("reads the slave's state from /proc")
@pytest.mark.parametrize(
    "ignored",
    [
        [],
        [signal.SIGHUP],
        [signal.SIGPIPE, signal.SIGUSR1, signal.SIGRTMAX],
    ],
    ids=["none", "as under nohup", "others, of which the daemon ignores one itself"],
)
def test_slave_inherits_the_signals_that_the_daemon_inherited(make_node, sleeping_slave, ignored):
    def prepare():
        for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
            signal.signal(number, signal.SIG_IGN if number in ignored else signal.SIG_DFL)
        signal.pthread_sigmask(signal.SIG_SETMASK, [signal.SIGUSR2])

    slave = sleeping_slave(make_node(), preexec_fn=prepare)
    assert int(process_status(slave, "SigIgn"), 16) == sum(1 << number - 1 for number in ignored)
    assert int(process_status(slave, "SigBlk"), 16) == 1 << signal.SIGUSR2 - 1


@pytest.mark.linux_only("reads the slave's state from /proc")
def test_slave_starts_in_the_daemons_process_group(make_node, sleeping_slave):
    node = make_node()
    slave = sleeping_slave(node, env={**os.environ, "QUELTA_TEST_MARK": "handed on"})
    assert int(process_status(slave, "SigBlk"), 16) == int(
        process_status(os.getpid(), "SigBlk"), 16
    )
    assert int(process_status(slave, "PPid")) == node.process.pid
    assert os.getpgid(slave) == os.getpgid(node.process.pid) == node.process.pid
    assert b"QUELTA_TEST_MARK=handed on" in Path(f"/proc/{slave}/environ").read_bytes().split(b"\0")
    assert Path(f"/proc/{slave}/cwd").resolve() == node.slave.parent


@pytest.mark.linux_only("only Linux has a signal for a parent's death, and zombies")
def test_ended_slaves_are_reaped(farm):
    node, owner = farm()
    running(node, owner)
    slave = node.slave_process()
    os.kill(slave, signal.SIGKILL)
    owner.expect(node.status(wire.SLAVE_FAILED, owner))
    wait_until(lambda: not Path(f"/proc/{slave}").exists(), "the slave is reaped")
