"""What Windows reads in the programs: required libraries, version, manifest."""

import re
import subprocess
from xml.etree import ElementTree

import pytest

from support import programs
from support.version import VERSION

pytestmark = pytest.mark.windows_only("reads files in the format of Windows programs")

DESCRIPTIONS = {
    "quelta_daemon.exe": "Quelta Slave Daemon",
    "quelta_standin_slave.exe": "Quelta Stand-in Render Slave",
    "quelta_master.exe": "Quelta Console Master",
}

# Part of every Windows since 7; no compiler runtime is among them.
SYSTEM_LIBRARIES = {
    "advapi32.dll",
    "kernel32.dll",
    "msvcrt.dll",
    "mswsock.dll",
    "ole32.dll",
    "oleaut32.dll",
    "rpcrt4.dll",
    "shell32.dll",
    "shlwapi.dll",
    "user32.dll",
    "version.dll",
    "wininet.dll",
    "winmm.dll",
    "ws2_32.dll",
}

ASSEMBLY = "{urn:schemas-microsoft-com:asm.v1}"
TRUST = "{urn:schemas-microsoft-com:asm.v3}"
COMPATIBILITY = "{urn:schemas-microsoft-com:compatibility.v1}"
SETTINGS = "{http://schemas.microsoft.com/SMI/2016/WindowsSettings}"
WINDOWS_10 = "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"

every_program = pytest.mark.parametrize("name", DESCRIPTIONS)


def tool(name, *arguments):
    return subprocess.run(
        ["x86_64-w64-mingw32-" + name, *arguments], check=True, capture_output=True, text=True
    ).stdout


def headers(name):
    return tool("objdump", "-p", str(programs.bin_dir() / name))


@every_program
def test_only_system_libraries_are_needed(name):
    needed = {library.lower() for library in re.findall(r"DLL Name: (\S+)", headers(name))}
    assert "kernel32.dll" in needed
    assert needed - SYSTEM_LIBRARIES == set()


@every_program
def test_programs_use_the_console_subsystem(name):
    assert re.search(r"^Subsystem\s+0+3\s", headers(name), re.MULTILINE)


@every_program
def test_version_resource(name):
    resources = tool("windres", "-J", "coff", "-O", "rc", str(programs.bin_dir() / name))
    numbers = VERSION.replace(".", ", ")
    assert re.search(rf"FILEVERSION {numbers}, 0\s", resources)
    values = dict(re.findall(r'VALUE "(\w+)", "(.*)"', resources))
    assert values == {
        "CompanyName": "Quelta",
        "FileDescription": DESCRIPTIONS[name],
        "FileVersion": VERSION,
        "InternalName": name.removesuffix(".exe"),
        "OriginalFilename": name,
        "ProductName": "Quelta",
        "ProductVersion": "4.00 XB1 (experimental build)",
    }


@every_program
def test_manifest(name):
    found = re.findall(
        rb"<assembly .*?</assembly>", (programs.bin_dir() / name).read_bytes(), re.DOTALL
    )
    assert len(found) == 1
    manifest = ElementTree.fromstring(found[0].decode())
    (level,) = manifest.iter(TRUST + "requestedExecutionLevel")
    assert (level.get("level"), level.get("uiAccess")) == ("asInvoker", "false")
    assert [system.get("Id") for system in manifest.iter(COMPATIBILITY + "supportedOS")] == [
        WINDOWS_10
    ]
    # Long paths only: the code page remains the system's.
    (settings,) = manifest.findall(f"{TRUST}application/{TRUST}windowsSettings")
    assert [(setting.tag, setting.text) for setting in settings] == [
        (SETTINGS + "longPathAware", "true")
    ]
    (identity,) = manifest.findall(ASSEMBLY + "assemblyIdentity")
    assert identity.get("version") == VERSION + ".0"
