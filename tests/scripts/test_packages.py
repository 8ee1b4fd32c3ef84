"""scripts/packages.sh installs missing packages and waits for a lock that another apt holds."""

import subprocess
from pathlib import Path

import pytest

SCRIPTS = Path(__file__).parents[2] / "scripts"
HANG_LIMIT = 60.0  # seconds
UPDATE, INSTALL = "update -qq", "install -y -qq --no-install-recommends wanted"

# Fails with apt's own message once per line of the file `held`; records each call.
APT_GET = """#!/bin/sh
echo "$@" >>calls
[ -z "$APT_ERROR" ] || { echo "E: $APT_ERROR"; exit 100; }
[ -s held ] || exit 0
sed -i 1d held
echo "E: Could not get lock /var/lib/apt/lists/lock. It is held by process 4711 (apt-get)"
echo "E: Unable to lock directory /var/lib/apt/lists/"
exit 100
"""


@pytest.fixture
def need_packages(tmp_path):
    """Runs need_packages where only the package `there` is installed."""
    for name, text in (
        ("apt-get", APT_GET),
        ("dpkg-query", '#!/bin/sh\n[ "$4" = there ] && echo install ok installed\n'),
        ("id", "#!/bin/sh\necho 0\n"),
    ):
        (tmp_path / name).write_text(text)
        (tmp_path / name).chmod(0o755)

    def run(*names, held=0, lock_limit=300, error=""):
        (tmp_path / "held").write_text("x\n" * held)
        script = f'. {SCRIPTS}/packages.sh; apt_lock_limit={lock_limit}; need_packages "$@"'
        ended = subprocess.run(
            ["bash", "-uc", script, "bash", *names],
            cwd=tmp_path,
            capture_output=True,
            text=True,
            env={"PATH": f"{tmp_path}:/usr/bin:/bin", "APT_ERROR": error},
            timeout=HANG_LIMIT,
        )
        calls = tmp_path / "calls"
        return ended, calls.read_text().splitlines() if calls.exists() else []

    return run


def test_installed_packages_need_no_action(need_packages):
    ended, calls = need_packages("there")
    assert (ended.returncode, ended.stdout, calls) == (0, "", [])


def test_missing_packages_are_installed(need_packages):
    ended, calls = need_packages("there", "wanted")
    assert (ended.returncode, ended.stdout) == (0, "installing Debian packages: wanted\n")
    assert calls == [UPDATE, INSTALL]


def test_apt_lock_is_awaited_and_reported_once(need_packages):
    ended, calls = need_packages("wanted", held=2)
    assert ended.returncode == 0
    assert ended.stdout == (
        "installing Debian packages: wanted\n"
        "Could not get lock /var/lib/apt/lists/lock. It is held by process 4711 (apt-get); "
        "waiting up to 300 s for it\n"
    )
    assert calls == [UPDATE, UPDATE, UPDATE, INSTALL]


def test_permanent_apt_lock_fails(need_packages):
    ended, calls = need_packages("wanted", held=1000, lock_limit=3)
    assert ended.returncode == 1
    assert "E: Could not get lock /var/lib/apt/lists/lock" in ended.stderr
    assert set(calls) == {UPDATE}


def test_other_errors_fail_immediately(need_packages):
    ended, calls = need_packages("wanted", error="Unable to locate package wanted")
    assert (ended.returncode, calls) == (1, [UPDATE])
    assert (
        ended.stderr
        == "apt-get could not install them; its last words:\nE: Unable to locate package wanted\n"
    )
