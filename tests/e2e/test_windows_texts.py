"""System texts in non-ASCII languages reach the log as UTF-8 in every code page."""

import os
import shutil
import subprocess

import pytest

from support import programs

pytestmark = pytest.mark.windows_only("Linux has no code pages")

SOCKET_TEXT = "quelta_windows_sockettext.exe"
ACCESS_DENIED = 10013


@pytest.fixture(scope="session")
def locales(tmp_path_factory):
    """Creates locales for Wine, which derives the language and the code page from them."""
    if not shutil.which("localedef"):
        pytest.skip("localedef is missing")
    folder = tmp_path_factory.mktemp("locales")

    def environment(name):
        made = folder / f"{name}.UTF-8"
        if not made.is_dir():
            subprocess.run(["localedef", "-i", name, "-f", "UTF-8", str(made)], check=True)
        return {**os.environ, "LOCPATH": str(folder), "LC_ALL": made.name}

    return environment


def socket_texts(environment, *errors):
    command = programs.command(programs.bin_dir() / SOCKET_TEXT, *map(str, errors))
    return subprocess.run(
        command, env=environment, check=True, capture_output=True, stdin=subprocess.DEVNULL
    ).stdout


@pytest.mark.parametrize(
    "locale, text",
    [
        ("fr_FR", "Accès refusé."),
        ("ja_JP", "アクセスが拒否されました。"),
    ],
)
def test_socket_error_is_utf8_in_every_language(locales, locale, text):
    # The system's text ends with CR LF; standard output translates that LF to CR LF again.
    expected = f"{text}\r\r\n ({ACCESS_DENIED})\r\n"
    assert (
        socket_texts(locales(locale), ACCESS_DENIED).decode("utf-8", "backslashreplace") == expected
    )


def test_no_socket_error():
    assert socket_texts(None, 0) == b"- (0)\r\n"


def test_socket_error_without_a_system_text():
    assert socket_texts(None, 29999) == b" (29999)\r\n"
