"""The archive for operators: its contents, and that it works wherever it is unpacked."""

import fcntl
import json
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from support import programs
from support.limits import HANG_LIMIT
from support.node import FLAGS_FILE
from support.transcript import between_start_and_stop, usage
from support.version import VERSION

BUILD = programs.bin_dir().parent
NAME = f"quelta-daemon-{VERSION}-" + ("win64" if programs.ON_WINDOWS else "linux-x86_64")
ARCHIVE = NAME + (".zip" if programs.ON_WINDOWS else ".tar.gz")

PROGRAMS = [
    name + programs.SUFFIX
    for name in ("quelta_daemon", "quelta_master", "quelta_standin_slave", "quelta_exec_slave")
]
LICENCES = ["Boost", "CLI11", "JUCE-modules", "nlohmann-json", "tomlplusplus"]
if programs.ON_WINDOWS:
    LICENCES += ["gcc-runtime", "mingw-w64-runtime", "winpthreads", "zlib"]
EXTRAS = (
    ["check-windows.ps1", "check-windows-support.ps1"]
    if programs.ON_WINDOWS
    else ["quelta_daemon.service"]
)
TEXTS = [
    "README.txt",
    FLAGS_FILE,
    "SECURITY.md",
    "docs/operation.md",
    "docs/exec_slave.md",
    "quelta_exec_slave.toml.example",
    *EXTRAS,
    *(f"licences/{name}.txt" for name in LICENCES),
]


def is_packaged_build():
    cache = BUILD / "CMakeCache.txt"
    return cache.exists() and "CMAKE_BUILD_TYPE:STRING=Release\n" in cache.read_text()


pytestmark = pytest.mark.skipif(
    not is_packaged_build(), reason="only the build folder of a release is packaged"
)


@pytest.fixture(scope="module")
def archive(tmp_path_factory, worker_id):
    """The archive, created once per run by the first worker that needs it."""
    own = tmp_path_factory.getbasetemp()
    folder = (own if worker_id == "master" else own.parent) / "package"
    folder.mkdir(exist_ok=True)
    with (folder / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not (folder / ARCHIVE).exists():
            subprocess.run(
                ["cpack", "--config", str(BUILD / "CPackConfig.cmake"), "-B", str(folder)],
                check=True,
                capture_output=True,
                timeout=HANG_LIMIT,
            )
    return folder / ARCHIVE


@pytest.fixture
def unpacked(archive, tmp_path):
    shutil.unpack_archive(archive, tmp_path / "Größe 1")
    folder = tmp_path / "Größe 1" / NAME
    for name in PROGRAMS:
        (folder / name).chmod(0o755)  # shutil does not restore the mode
    return folder


@pytest.fixture
def packaged_node(make_node, unpacked):
    """A node with the programs and the flags file of the package."""
    node = make_node(flags=None)
    node.program = unpacked / PROGRAMS[0]
    node.slave = unpacked / PROGRAMS[2]
    return node


def test_archive_contents(unpacked):
    files = {str(path.relative_to(unpacked)) for path in unpacked.rglob("*") if path.is_file()}
    assert files == {*PROGRAMS, *TEXTS}


@pytest.mark.parametrize("name", TEXTS)
def test_texts_have_native_line_endings(unpacked, name):
    text = (unpacked / name).read_bytes()
    lines = text.count(b"\n")
    assert lines > 5
    assert text.count(b"\r\n") == text.count(b"\r") == (lines if programs.ON_WINDOWS else 0)
    text.decode()
    assert b"@" not in text or b"@PROJECT" not in text


@pytest.mark.parametrize("name", ["SECURITY.md", "docs/operation.md"])
def test_document_links_resolve_within_the_archive(unpacked, name):
    document = unpacked / name
    links = re.findall(r"\]\(([^)#]+)\)", document.read_text())
    assert [link for link in links if not (document.parent / link).is_file()] == []


@pytest.mark.linux_only("Windows has no systemd")
def test_systemd_unit_restarts_the_daemon_as_its_own_user(unpacked):
    lines = (unpacked / "quelta_daemon.service").read_text().splitlines()
    settings = dict(
        line.split("=", 1) for line in lines if "=" in line and not line.startswith("#")
    )
    assert settings["User"] == "quelta"
    assert settings["ExecStart"].split()[0].endswith("/quelta_daemon")
    assert (settings["Restart"], settings["RestartSec"]) == ("always", "5")
    assert (settings["KillMode"], settings["TimeoutStopSec"]) == ("mixed", "30")
    assert settings["Delegate"] == "yes"


@pytest.mark.parametrize("path", ["SECURITY.md", "packaging/README.txt", "docs/windows.md"])
def test_documents_give_the_same_firewall_rules(path):
    text = " ".join((Path(__file__).parents[2] / path).read_text().split())
    program = 'program="C:\\Quelta\\quelta_daemon.exe"'
    add = "netsh advfirewall firewall add rule name="
    assert f"netsh advfirewall firewall delete rule name=all {program}" in text
    assert (
        f'{add}"Quelta beacons" dir=in action=allow {program}'
        " protocol=UDP localport=5130 remoteip=10.0.5.0/24" in text
    )
    assert f'{add}"Quelta monitor" dir=in action=block {program} protocol=TCP' in text
    assert "action=allow protocol" not in text, "a rule without a program leaves Windows asking"


def test_shipped_flags_file_changes_nothing(packaged_node):
    node = packaged_node
    node.start([])
    lines = between_start_and_stop(node.output.rest())
    assert lines == ["No path to the Quelta render slave given.", *usage(node.program)]
    assert node.errors.rest() == []


def test_flags_file_names_every_flag_with_its_default(packaged_node):
    node = packaged_node
    given = re.sub(r'"[^"]*"', "", node.flags_file.read_text())
    flags = dict(line.split() for line in given.splitlines() if line.strip())
    node.flags_file.unlink()
    node.set_flags("logFlags")
    node.start([])
    rows = [line.split() for line in node.output.rest() if re.match(r"\w+ +release ", line)]
    assert len(rows) == 12
    assert {**flags, "logFlags": "1"} == {row[0]: row[2] for row in rows}


def test_one_digit_in_the_shipped_flags_file_enables_a_flag(packaged_node):
    node = packaged_node
    text = node.flags_file.read_text()
    changed = re.sub(r"^(logPrefix +)0", r"\g<1>1", text, flags=re.MULTILINE)
    assert changed != text
    node.flags_file.write_text(changed)
    node.start([])
    assert "ERROR     : No path to the Quelta render slave given." in node.output.rest()


def test_packaged_programs_work_together(packaged_node, unpacked):
    node = packaged_node
    node.alias = "packaged"
    node.options = ["--alias", node.alias]
    node.serve()
    output = programs.run(
        unpacked / PROGRAMS[1], "scan", f"127.0.0.1:{node.port}", "--json", "--timeout", "60"
    )
    (row,) = json.loads(output)
    assert (row["alias"], row["gpus"], row["state"]) == ("packaged", 1, "free")
    assert node.quit()


def test_packaged_exec_slave_takes_the_packaged_example(unpacked):
    example = unpacked / "quelta_exec_slave.toml.example"
    example.rename(unpacked / "quelta_exec_slave.toml")
    output = programs.run(unpacked / PROGRAMS[3], "--check")
    assert re.search(r"^command +farm-worker --master 192\.0\.2\.1:21000", output, re.MULTILINE)


def test_readme_names_every_option_and_file():
    text = (Path(__file__).parents[2] / "packaging" / "README.txt").read_text()
    for name in (
        "--port",
        "--slave",
        "--alias",
        "--gpus",
        "--out-of-core",
        FLAGS_FILE,
        "quelta_daemon_log.txt",
        *(name.removesuffix(programs.SUFFIX) for name in PROGRAMS),
        *EXTRAS,
        "SECURITY.md",
        "operation.md",
        "exec_slave.md",
        "quelta_exec_slave.toml.example",
    ):
        assert name in text
