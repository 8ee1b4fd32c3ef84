"""scripts/limited.py ends everything that a command started, in time, and lists it."""

import os
import re
import shlex
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

SCRIPTS = Path(__file__).parents[2] / "scripts"
HANG_LIMIT = 60.0  # seconds
LIMIT_REACHED, NEEDED_PROCESS_ENDED, WRONG_USE = 124, 125, 2

# Leaves a process behind that has its own session and no environment. Its first thread ends while
# another sleeps, which then prints the process id.
ZOMBIE_LEADER = """
import ctypes, os, sys, threading, time
if os.fork():
    os.wait()
    sys.exit()
os.setsid()
if os.fork():
    os._exit(0)
if len(sys.argv) == 1:
    os.execve(sys.executable, [sys.executable, "-I", "-c", sys.orig_argv[2], "alone"], {})
leader = f"/proc/{os.getpid()}/stat"
def wait_for_the_leader():
    while open(leader).read().rpartition(")")[2].split()[0] != "Z":
        time.sleep(0.01)
    os.write(1, b"%d\\n" % os.getpid())
    time.sleep(1000)
threading.Thread(target=wait_for_the_leader).start()
ctypes.CDLL(None).pthread_exit(None)
"""


def command(*arguments):
    return [sys.executable, str(SCRIPTS / "limited.py"), *arguments]


def limited(*arguments):
    return subprocess.run(command(*arguments), capture_output=True, text=True, timeout=HANG_LIMIT)


def is_alive(process):
    """Returns whether any thread of the process is alive."""
    try:
        return any(
            Path(f"/proc/{process}/task/{thread}/stat").read_text().rpartition(")")[2].split()[0]
            not in "ZX"
            for thread in os.listdir(f"/proc/{process}/task")
        )
    except OSError:
        return False


def start(*arguments):
    """Starts limited.py with a command that prints a line when ready; returns that line too."""
    runner = subprocess.Popen(
        command(*arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    )
    assert runner.stdout
    return runner, runner.stdout.readline().strip()


@pytest.mark.parametrize("script, status", [("exit 0", 0), ("exit 7", 7), ("kill -KILL $$", 137)])
def test_returns_the_commands_status(script, status):
    ended = limited("60", "sh", "-c", script)
    assert (ended.returncode, ended.stderr) == (status, "")


def test_missing_command():
    ended = limited("60", "/nowhere/at-all")
    assert (ended.returncode, ended.stderr) == (127, "/nowhere/at-all: No such file or directory\n")


@pytest.mark.parametrize(
    "arguments", [[], ["60"], ["soon", "true"], ["--while"], ["--while", "x", "60", "true"]]
)
def test_usage_errors(arguments):
    assert limited(*arguments).returncode == WRONG_USE


def test_hanging_command_and_its_descendants_are_killed_and_listed():
    began = time.monotonic()
    ended = limited("3", "sh", "-c", "sleep 1001 & setsid sleep 1002 & echo $!; wait")
    assert 3 <= time.monotonic() - began < 20
    assert ended.returncode == LIMIT_REACHED
    why, *running = ended.stderr.splitlines()
    assert why == "sh has not ended within 3 s; still running:"
    assert [
        re.sub(r"^  \d+ ", "", line)
        for line in sorted(running, key=lambda line: int(line.split()[0]))
    ] == ["sh -c sleep 1001 & setsid sleep 1002 & echo $!; wait", "sleep 1001", "sleep 1002"]
    assert not any(is_alive(line.split()[0]) for line in running)


def test_zombie_leader_with_a_living_thread_is_killed_and_listed():
    script = f"{sys.executable} -c '{ZOMBIE_LEADER}'; sleep 1003"
    ended = limited("3", "sh", "-c", script)
    assert ended.returncode == LIMIT_REACHED
    process = ended.stdout.strip()
    assert re.search(rf"^  {process} \S*python\S* -I -c ", ended.stderr, re.MULTILINE)
    assert "(its first thread has ended)" in ended.stderr
    assert not is_alive(process)


def test_leftover_processes_are_killed_and_listed():
    ended = limited("60", "sh", "-c", "env -i setsid sleep 1004 & echo $!; exit 7")
    assert ended.returncode == 7
    assert ended.stderr == f"sh has ended; still running:\n  {ended.stdout.strip()} sleep 1004\n"
    assert not is_alive(ended.stdout.strip())


def test_command_ends_with_a_process_it_needs():
    with subprocess.Popen(["sleep", "1005"]) as needed:
        runner, started = start(
            "--while", str(needed.pid), "60", "sh", "-c", "sleep 1006 & echo $!; wait"
        )
        needed.kill()
    assert runner.wait(HANG_LIMIT) == NEEDED_PROCESS_ENDED
    assert (
        f"process {needed.pid}, which sh needs, has ended; still running:\n" in runner.stderr.read()
    )
    assert not is_alive(started)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_signal_ends_everything(number):
    runner, started = start("60", "sh", "-c", "setsid sleep 1007 & echo $!; wait")
    runner.send_signal(number)
    assert runner.wait(HANG_LIMIT) == -number
    assert not is_alive(started)


def test_command_may_exit_cleanly():
    runner, _ = start(
        "60", "sh", "-c", "trap 'echo in order; exit' TERM; sleep 1008 & echo ready; wait"
    )
    runner.terminate()
    assert runner.wait(HANG_LIMIT) == -signal.SIGTERM
    assert runner.stdout.read() == "in order\n"


def test_killed_parent_takes_everything_with_it():
    line = shlex.join(command("600", "sh", "-c", "setsid sleep 1009 & echo $!; wait"))
    with subprocess.Popen(
        ["sh", "-c", line + "; true"], stdout=subprocess.PIPE, text=True
    ) as parent:
        assert parent.stdout
        started = parent.stdout.readline().strip()
        assert is_alive(started)
        parent.kill()
        deadline = time.monotonic() + HANG_LIMIT
        while is_alive(started) and time.monotonic() < deadline:
            time.sleep(0.01)
    assert not is_alive(started)


def test_hanging_step_fails_and_the_next_one_runs(tmp_path):
    script = f"""
        . {SCRIPTS}/steps.sh
        step "first" true
        step "second" limited 1 sleep 1010
        step "third" limited 60 true
        steps_end
    """
    ended = subprocess.run(
        ["bash", "-c", script], cwd=tmp_path, capture_output=True, text=True, timeout=HANG_LIMIT
    )
    assert ended.returncode == 1
    shown = re.sub(r"\(\d+ s\)", "(N s)", ended.stdout)
    assert shown == (
        "\n=== first\n--- first: passed (N s)\n\n=== second\n--- second: FAILED (N s)\n"
        "\n=== third\n--- third: passed (N s)\n\nfailed: second\n2 passed, 1 failed\n"
    )
    assert re.fullmatch(
        r"sleep has not ended within 1 s; still running:\n  \d+ sleep 1010\n", ended.stderr
    )


def test_command_inherits_the_original_signals():
    look = ["grep", "^Sig[BI]", "/proc/self/status"]
    plain = subprocess.run(look, capture_output=True, text=True, timeout=HANG_LIMIT)
    assert limited("60", *look).stdout == plain.stdout
