"""Runs Prometheus with the project's configuration, made faster, on the loopback."""

from __future__ import annotations

import json
import re
import subprocess
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path
from typing import Any

from support.limits import HANG_LIMIT
from support.node import wait_until

FILES = Path(__file__).resolve().parent.parent.parent / "integrations" / "prometheus"


def replaced(text: str, pattern: str, replacement: str) -> str:
    """Replaces all matches, of which there must be some."""
    result, count = re.subn(pattern, replacement, text)
    assert count > 0, pattern
    return result


def write_configuration(folder: Path, target: str) -> Path:
    """Copies the configuration: the interval is a second, and alerts fire at once."""
    settings = (FILES / "prometheus.yml").read_text()
    settings = replaced(settings, r"_interval: \w+", "_interval: 1s")
    settings = replaced(settings, r'"127\.0\.0\.1:8080"', f'"{target}"')
    rules = (FILES / "quelta_alerts.yml").read_text()
    (folder / "quelta_alerts.yml").write_text(replaced(rules, r"\bfor: \w+", "for: 0s"))
    (folder / "prometheus.yml").write_text(settings)
    return folder / "prometheus.yml"


class PrometheusServer:
    def __init__(self, folder: Path, port: int, target: str) -> None:
        self.url = f"http://127.0.0.1:{port}"
        with open(folder / "log.txt", "wb") as log:
            self.process = subprocess.Popen(
                [
                    "prometheus",
                    f"--config.file={write_configuration(folder, target)}",
                    f"--storage.tsdb.path={folder / 'data'}",
                    f"--web.listen-address=127.0.0.1:{port}",
                ],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=subprocess.STDOUT,
            )
        self.log = folder / "log.txt"
        wait_until(self._is_ready, "Prometheus is ready")

    def _is_ready(self) -> bool:
        assert self.process.poll() is None, self.log.read_text()
        try:
            with urllib.request.urlopen(f"{self.url}/-/ready", timeout=HANG_LIMIT) as answer:
                return bool(answer.status == 200)
        except OSError:
            return False

    def ask(self, path: str, **parameters: str) -> Any:
        """Returns the data of an answer of the HTTP interface."""
        query = urllib.parse.urlencode(parameters)
        try:
            with urllib.request.urlopen(
                f"{self.url}/api/v1/{path}?{query}", timeout=HANG_LIMIT
            ) as answer:
                return json.load(answer)["data"]
        except urllib.error.HTTPError as error:
            raise AssertionError(f"{path} {parameters}: {error.read().decode()}") from error

    def query(self, expression: str) -> list[Any]:
        """Returns the present samples of an expression."""
        return list(self.ask("query", query=expression)["result"])

    def firing(self) -> list[tuple[str, str | None]]:
        """Returns the names and the nodes of the alerts that fire."""
        return sorted(
            (alert["labels"]["alertname"], alert["labels"].get("node"))
            for alert in self.ask("alerts")["alerts"]
            if alert["state"] == "firing"
        )

    def close(self) -> None:
        self.process.terminate()
        try:
            self.process.wait(HANG_LIMIT)
        finally:
            self.process.kill()
