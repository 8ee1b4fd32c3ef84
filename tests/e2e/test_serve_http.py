"""The farm view's HTTP as a browser, a script and an attacker see it."""

import re
import socket
from pathlib import Path

import jsonschema  # type: ignore[import]
import pytest
import yaml  # type: ignore[import]

from support import programs, wire
from support.console_master import ConsoleMaster
from support.farm_view import address_of
from support.limits import HANG_LIMIT

OPENAPI = Path(__file__).resolve().parents[2] / "docs" / "openapi.yaml"


@pytest.fixture(scope="module")
def openapi():
    return yaml.safe_load(OPENAPI.read_text())


@pytest.fixture
def nowhere(ports):
    """A node that nobody plays."""
    return f"127.0.0.1:{ports.free_block()}"


def validate(openapi, data, name):
    """Asserts that the data satisfies the schema of this name."""
    schema = {"$ref": f"#/components/schemas/{name}", "components": openapi["components"]}
    jsonschema.Draft202012Validator(schema).validate(data)


def test_openapi_document_describes_every_answer(make_node, view, openapi):
    name = address_of(node := make_node(alias="rack 7").serve())
    served = view(name)
    served.wait_state("free", name)
    hold = ConsoleMaster("hold", name, "--text", "frame 12")
    served.wait_state("owned", name)
    events = served.events()
    for target, kind in {
        "/api/v1/nodes": "Nodes",
        f"/api/v1/nodes/{name}": "NodeWithHistory",
        "/api/v1/history": "History",
    }.items():
        validate(openapi, served.get_json(target), kind)
    whole = served.node(name)
    del whole["history"]
    validate(openapi, whole, "Node")
    hold.interrupt()
    assert hold.wait_exit() == 0
    hold.close()
    node.quit()
    seen = set()
    for kind, data in events:
        schema = {"time": "Clock"}.get(kind, kind.capitalize())
        validate(openapi, data, schema)
        seen.add(schema)
        if seen >= {"Nodes", "Node", "Event", "Clock"}:
            break


def test_openapi_document_lists_every_path(view, openapi, nowhere):
    served = view(nowhere)
    for path, operations in openapi["paths"].items():
        assert list(operations) == ["get"], path
        response, _ = served.ask(path.replace("{node}", nowhere), "HEAD")
        (kind,) = operations["get"]["responses"]["200"]["content"]
        assert (response.status, response.getheader("Content-Type").partition(";")[0]) == (
            200,
            kind,
        )


def test_openapi_document_has_the_errors(view, openapi, nowhere):
    served = view(nowhere)
    for request, status in {
        ("/none", "GET", ""): 404,
        ("/api/v1/nodes/none", "GET", ""): 404,
        ("/", "POST", ""): 405,
        ("/api/v1/nodes", "DELETE", ""): 405,
        ("/", "GET", "evil.example"): 421,
        ("/api/v1/nodes/%", "GET", ""): 400,
    }.items():
        target, method, host = request
        headers = {"Host": f"{host}:{served.port}"} if host else {}
        response, body = served.ask(target, method, **headers)
        assert response.status == status, request
        validate(openapi, yaml.safe_load(body), "Error")
        documented = openapi["components"]["responses"]["Error"]["description"]
        assert str(status) in documented


def test_page_allows_only_its_own_style_and_script(view, nowhere):
    response, body = view(nowhere).ask("/")
    policy = response.getheader("Content-Security-Policy")
    directives = dict(part.strip().split(" ", 1) for part in policy.split(";"))
    assert directives["default-src"] == "'none'"
    for name in ("script-src", "style-src"):
        assert re.fullmatch(r"'sha256-[A-Za-z0-9+/]{43}='", directives[name]), policy
    assert body.startswith(b"<!DOCTYPE html>")
    assert b"http://" not in body and b"https://" not in body


def test_other_sites_may_not_read(view, nowhere):
    served = view(nowhere)
    response, _ = served.ask("/api/v1/nodes", Origin="http://evil.example")
    assert response.getheader("Access-Control-Allow-Origin") is None
    assert response.getheader("Cross-Origin-Resource-Policy") == "same-origin"
    preflight, _ = served.ask("/api/v1/nodes", "OPTIONS", Origin="http://evil.example")
    assert preflight.status == 405


def test_localhost_is_a_name_of_the_loopback(view, nowhere):
    served = view(nowhere)
    response, _ = served.ask("/metrics", Host=f"localhost:{served.port}")
    assert response.status == 200


def test_only_the_given_address_is_served(view, nowhere):
    served = view(nowhere)
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.2", served.port), HANG_LIMIT)


@pytest.mark.parametrize(
    "request_bytes, status",
    [
        (b"\0\1\2\3\r\n\r\n", 400),
        (b"GET / HTTP/9.9\r\n\r\n", 400),
        (b"GET / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", 413),
        (b"GET / HTTP/1.1\r\nA: " + b"a" * 20000 + b"\r\n\r\n", 431),
        (b"GET /" + b"a" * 20000 + b" HTTP/1.1\r\n\r\n", 431),
        (b"GET / HTTP/1.1\r\n\r\n" * 2 + b"GET / HTTP/1.1\r\nConnection: close\r\n\r\n", 421),
    ],
    ids=["binary", "version", "body", "headers", "target", "no host"],
)
def test_hostile_requests_are_refused(view, nowhere, request_bytes, status):
    served = view(nowhere)
    answer = served.exchange(request_bytes)
    assert answer.startswith(b"HTTP/1.1 %d " % status), answer[:200]
    assert served.get("/metrics")


def test_clients_that_flood_are_slowed_down(view, nowhere):
    served = view(nowhere)
    host = f"Host: 127.0.0.1:{served.port}\r\n".encode()
    answer = served.exchange((b"GET /none HTTP/1.1\r\n" + host + b"\r\n") * 1000)
    assert answer.count(b"HTTP/1.1 404 ") >= 200
    assert answer.count(b"HTTP/1.1 429 ") == 1


def test_hostile_texts_arrive_as_data(make_node, make_master, view):
    name = address_of(node := make_node(alias="<b>&amp;</b>").serve())
    served = view(name)
    served.wait_state("free", name)
    master = make_master(text=b"</script>\x1b[2J\xff\n\x00hidden")
    master.join(node)
    master.request(wire.START_REQUEST)
    found = served.wait_state("owned", name)
    assert found["alias"] == "<b>&amp;</b>"
    assert found["ownerText"] == "</script>?[2J??"
    metrics = served.get("/metrics")
    assert f'quelta_node_info{{node="{name}",alias="<b>&amp;</b>",version="4000000"}} 1' in metrics


@pytest.mark.linux_only("the limit of connections is the same, and Wine needs minutes for it")
def test_connections_beyond_the_limit_are_closed(view, nowhere):
    served = view(nowhere)
    connections = [
        socket.create_connection(("127.0.0.1", served.port), HANG_LIMIT) for _ in range(129)
    ]
    try:
        assert connections[-1].recv(1) == b""
    finally:
        for connection in connections:
            connection.close()
    assert served.get("/metrics")


def test_help_describes_the_command():
    text = programs.run(programs.bin_dir() / ("quelta_master" + programs.SUFFIX), "serve", "--help")
    assert "--http IP:PORT" in text
    assert "Never starts, stops or steals." in text
