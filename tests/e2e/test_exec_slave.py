"""The exec slave under the daemon: what it reports, when the program is ready, how a run ends."""

import re
import signal

import pytest

from support import measure, programs
from support.exec_slave import (
    CRASHED,
    OWN,
    STATUS,
    configure,
    exit_text,
    native,
    slave_process,
    worker,
)
from support.output import plain_line

ONLINE = ("print", "online", "hang")


def own(text):
    """Returns the pattern of a line of the exec slave itself."""
    return re.escape(OWN) + text


def own_lines(node):
    """Returns the lines of the exec slave itself, except what the detection of GPUs has met."""
    lines = node.output.lines()
    return [line for line in lines if line.startswith(OWN) and "no GPU was found" not in line]


def test_information_run_reports_version_and_gpus(exec_node):
    node = exec_node(command=worker("hang"), version=4001002, gpus=3)
    node.output.wait_sequence(
        [plain_line("  version:       4001002"), plain_line("  provided GPUs: 3")]
    )
    assert not any(line.startswith(OWN + "started") for line in node.output.lines())


def test_version_comes_from_a_command(exec_node):
    exec_node(
        command=worker("hang"),
        version=None,
        version_command=worker("print", "Blender 4.12.3 (hash)"),
        version_pattern=r"Blender (\d+)\.(\d+)\.(\d+)",
    ).output.wait(plain_line("  version:       4012003"))


def test_failing_version_command_fails_the_information_run(make_exec_node):
    node = make_exec_node(
        command=worker("hang"),
        version=None,
        version_command=worker("print", "no licence", "exit", "3"),
        version_pattern=r"(\d+)",
    ).start()
    assert node.wait_exit() == 0
    lines = node.output.rest()
    told = own(r"cannot find the version: the command \S+ ended with exit status 3: no licence")
    assert re.fullmatch(told, own_lines(node)[-1])
    assert CRASHED in lines
    assert exit_text(lines) == "exit status 2"


def test_wrong_configuration_fails_the_information_run(make_exec_node):
    node = make_exec_node(command=worker("hang"))
    configure(node, command=[], speed=3)
    assert node.start().wait_exit() == 0
    lines = node.output.rest()
    told = own_lines(node)
    assert len(told) == 2
    assert all(re.match(own(r".*quelta_exec_slave\.toml:\d+:\d+: "), line) for line in told)
    assert "speed" in told[1]
    assert CRASHED in lines
    assert exit_text(lines) == "exit status 2"


@pytest.mark.parametrize("means", ["line", "tcp", "command", "after"])
def test_owner_is_told_once_the_program_is_ready(exec_node, hold, tmp_path, means):
    go, ready = tmp_path / "go", tmp_path / "ready"
    node = exec_node(
        command=["not yet"],
    )
    port = node.port + 3
    conditions = {
        "line": {"line": "^on(line)$"},
        "tcp": {"tcp": f"127.0.0.1:{port}"},
        "command": {"command": worker("require", native(ready))},
        "after": {"after": 3000},
    }
    begin = () if means == "after" else ("await", native(go))
    steps = ("print", "up", *begin, "listen", port, "create", native(ready), *ONLINE)
    configure(node, command=worker(*steps), ready=conditions[means])
    master = hold(node)
    up = node.output.wait("up")
    # The daemon hears of a slave that is starting, again and again.
    authenticating = "daemon    : received heartbeat message 'AUTHENTICATING' from slave"
    node.output.wait(authenticating, node.output.wait(authenticating, up))
    assert OWN + "the program is ready" not in node.output.lines()
    go.touch()
    node.output.wait(OWN + "the program is ready", up)
    master.wait("running")
    node.output.wait(STATUS, node.output.wait(STATUS))
    master.give_back()
    assert exit_text(node.quit()) == "exit status " + ("1" if programs.ON_WINDOWS else "143")


def test_program_that_is_not_ready_in_time_fails(exec_node, hold):
    node = exec_node(command=worker("hang"), ready={"tcp": "127.0.0.1:1", "timeout": 1, "after": 5})
    master = hold(node)
    text = node.output.wait_match(own(r"the program was not ready within 1 s: (.*)")).group(1)
    assert text.startswith("cannot connect to 127.0.0.1:1: ")
    master.wait("failed")
    node.wait_no_slave()
    assert "running" not in master.events()
    assert exit_text(node.quit()) == "exit status 124"


def test_error_line_fails_the_run_at_once(exec_node, hold, tmp_path):
    go = tmp_path / "go"
    node = exec_node(
        command=worker(*ONLINE[:2], "await", native(go), "print", "falling back to CPU", "hang"),
        errors=["CUDA error", "falling back to (the )?CPU"],
        ready={"line": "online"},
    )
    master = hold(node)
    master.wait("running")
    go.touch()
    node.output.wait(
        OWN + "failed, since a line of output matches 'falling back to (the )?CPU': "
        "falling back to CPU"
    )
    master.wait("failed")
    node.wait_no_slave()
    lines = node.quit()
    assert CRASHED in lines
    assert exit_text(lines) == "exit status 123"


def test_error_in_the_last_line_fails_a_run_that_exits_with_0(exec_node, hold):
    node = exec_node(command=worker("bytes", "43554441206572726F72"), errors=["^CUDA error$"])
    hold(node).wait("failed")
    node.output.wait(OWN + "the program has ended: exit status 0")
    assert exit_text(node.quit()) == "exit status 123"


@pytest.mark.parametrize(
    "end, status, text",
    [
        (("exit", "7"), "exit status 7", "exit status 7"),
        (("exit", "0"), "exit status 0", "exit status 0"),
        pytest.param(
            ("crash",),
            f"exit status {128 + signal.SIGABRT}",
            "signal 6 (Aborted)",
            marks=pytest.mark.linux_only("Windows has no signals"),
        ),
    ],
    ids=["7", "0", "crash"],
)
def test_end_of_the_program_is_the_end_of_the_slave(exec_node, hold, end, status, text):
    node = exec_node(command=worker("print", "online", "wait", "1000", *end))
    master = hold(node)
    master.wait("failed")
    node.output.wait(f"{OWN}the program has ended: {text}")
    assert exit_text(node.quit()) == status


def test_missing_program_is_told_in_the_words_of_the_system(exec_node, hold):
    node = exec_node(command=["/nowhere/renderer"])
    hold(node).wait("failed")
    lines = node.quit()
    reason = "(No such file or directory|Path not found)"
    assert re.fullmatch(own("cannot run /nowhere/renderer: " + reason), own_lines(node)[-1])
    assert exit_text(lines) == "exit status 122"


def test_placeholders_reach_the_program(exec_node, hold, tmp_path):
    folder = tmp_path / "work ä node7"
    folder.mkdir()
    node = exec_node(
        node={"options": ["--alias", "node7"]},
        command=worker(
            *("print", "{master_address} {master_port} {alias} {gpu_count} {{}}"),
            *("folder", "variable", "FARM", "hang"),
        ),
        folder=native(tmp_path) + "/work ä {alias}",
        environment={"FARM": "<{master_address}>"},
        output={"prefix": "worker: "},
    )
    master = hold(node)
    port = master.output.wait_match(r"listening as 127\.0\.0\.1:(\d+)").group(1)
    node.output.wait(f"worker: 127.0.0.1 {port} node7 1 {{}}")
    node.output.wait("worker: FARM=<127.0.0.1>")
    assert any(line.endswith("work ä node7") for line in node.output.lines())


def test_output_goes_to_the_console_and_the_file(exec_node, hold, tmp_path):
    log = tmp_path / "worker.log"
    node = exec_node(
        command=worker("print", "one", "bytes", "C3A4E409FF0774776F", "hang"),
        ready={"line": "one"},
        output={"prefix": "worker: ", "file": native(log)},
    )
    master = hold(node)
    master.wait("running")
    node.output.wait("worker: one")
    master.give_back()
    # A line that is not UTF-8 is read as Latin-1.
    node.output.wait("worker: Ã¤ä\tÿ?two")
    logged = log.read_text(encoding="utf-8").splitlines()
    assert [line for line in logged if line.startswith("worker: ")] == [
        "worker: one",
        "worker: Ã¤ä\tÿ?two",
    ]
    assert logged[-1].startswith(OWN + "the program has ended: ")


def test_endless_line_leaves_memory_flat(exec_node, hold):
    slow = programs.ON_WINDOWS or measure.SANITIZED
    size = 20_000_000 if slow else 100_000_000
    node = exec_node(
        node={"flags": ""},  # lines of the daemon may get into a piece, which no pipe takes at once
        command=worker("flood", size, "print", "", "print", "online", "hang"),
        ready={"line": "^online$"},
    )
    master = hold(node)
    master.wait("running")
    node.output.wait("online")  # the last line; the program is ready before it has been passed on
    pieces = [line for line in node.output.lines() if line.startswith("x")]
    assert {len(piece) for piece in pieces[:-1]} == {8192}
    assert sum(map(len, pieces)) == size
    if not measure.SANITIZED and not programs.ON_WINDOWS:
        assert measure.peak_kilobytes(slave_process(node)) < 20_000
    master.give_back()
