"""Runs `quelta_master serve` and talks to it over HTTP."""

from __future__ import annotations

import http.client
import json
import re
import socket
from typing import Any, Callable, Iterator

from .console_master import PATIENCE, ConsoleMaster
from .limits import HANG_LIMIT
from .node import Node, wait_until

SERVING = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d serving at http://127\.0\.0\.1:(\d+)/"


def address_of(node: Node) -> str:
    return f"127.0.0.1:{node.port}"


class EventStream:
    """The server-sent events of one connection, as pairs of name and data."""

    def __init__(self, port: int) -> None:
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=HANG_LIMIT)
        self.connection.request("GET", "/api/v1/events")
        self.response = self.connection.getresponse()
        self.retry: int | None = None

    def __iter__(self) -> Iterator[tuple[str, Any]]:
        name = ""
        for line in self.response:
            field, _, value = line.decode("utf-8").rstrip("\n").partition(": ")
            if field == "retry":
                self.retry = int(value)
            elif field == "event":
                name = value
            elif field == "data":
                yield name, json.loads(value)
            else:
                assert field == "", line

    def wait(self, name: str, accept: Callable[[Any], bool] = lambda data: True) -> Any:
        """Returns the data of the next event with this name that is accepted."""
        for found, data in self:
            if found == name and accept(data):
                return data
        raise AssertionError(f"the events ended without {name!r}")

    def wait_state(self, state: str, node: str) -> Any:
        return self.wait("node", lambda data: (data["node"], data["state"]) == (node, state))

    def close(self) -> None:
        self.response.close()
        self.connection.close()


class FarmView:
    """A running `quelta_master serve` on a free port."""

    def __init__(self, *arguments: str, timeout: str = PATIENCE) -> None:
        self.master = ConsoleMaster(
            "serve", "--http", "127.0.0.1:0", "--timeout", timeout, *arguments
        )
        self.streams: list[EventStream] = []
        self._port: int | None = None

    @property
    def port(self) -> int:
        if self._port is None:
            self._port = int(self.master.output.wait_match(SERVING).group(1))
        return self._port

    def ask(
        self, target: str, method: str = "GET", **headers: str
    ) -> tuple[http.client.HTTPResponse, bytes]:
        """Makes one request; returns the response and its body."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=HANG_LIMIT)
        try:
            connection.request(method, target, headers=headers)
            response = connection.getresponse()
            return response, response.read()
        finally:
            connection.close()

    def get(self, target: str) -> str:
        response, body = self.ask(target)
        assert response.status == 200, (response.status, body)
        return body.decode("utf-8")

    def get_json(self, target: str) -> Any:
        return json.loads(self.get(target))

    def node(self, name: str) -> Any:
        return self.get_json(f"/api/v1/nodes/{name}")

    def node_names(self) -> list[str]:
        return [node["node"] for node in self.get_json("/api/v1/nodes")["nodes"]]

    def wait_state(self, state: str, name: str) -> Any:
        """Waits until the node is in this state; returns it."""

        def reached() -> Any:
            listed = self.get_json("/api/v1/nodes")["nodes"]
            wanted = [node for node in listed if (node["node"], node["state"]) == (name, state)]
            return wanted[0] if wanted else None

        return wait_until(reached, f"{name} is {state}")

    def metric(self, sample: str) -> float | None:
        """Returns the value of a sample, such as 'quelta_node_up{node="a:1"}'."""
        found = re.search(rf"^{re.escape(sample)} (\S+)$", self.get("/metrics"), re.MULTILINE)
        return float(found.group(1)) if found else None

    def events(self) -> EventStream:
        self.streams.append(EventStream(self.port))
        return self.streams[-1]

    def exchange(self, data: bytes) -> bytes:
        """Sends bytes; returns everything that is answered until the connection ends."""
        with socket.create_connection(("127.0.0.1", self.port), HANG_LIMIT) as connection:
            connection.sendall(data)
            answer = b""
            while piece := connection.recv(65536):
                answer += piece
            return answer

    def close(self) -> None:
        for stream in self.streams:
            stream.close()
        self.master.close()
