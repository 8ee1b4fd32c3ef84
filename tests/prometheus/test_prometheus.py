"""The files in integrations/prometheus: rules by their cases, and all of it with a real Prometheus
that scrapes a farm view of real daemons."""

import json
import os
import re
import signal
import subprocess

import pytest

from prometheus_server import FILES, PrometheusServer
from support.farm_view import FarmView, address_of
from support.limits import HANG_LIMIT
from support.node import Node, wait_until
from support.ports import Ports

DASHBOARD = json.loads((FILES / "quelta_dashboard.json").read_text())


@pytest.fixture(scope="module")
def ports(tmp_path_factory):
    return Ports(tmp_path_factory.mktemp("ports"))


@pytest.fixture(scope="module")
def nodes(tmp_path_factory, ports):
    """Two serving daemons."""
    folder = tmp_path_factory.mktemp("nodes")
    started = [
        Node(folder / name, ports.free_block(), alias=name).serve() for name in ("left", "right")
    ]
    yield started
    for node in started:
        node.close()


@pytest.fixture(scope="module")
def view(nodes):
    """The farm view of both."""
    started = FarmView(*(address_of(node) for node in nodes))
    for node in nodes:
        started.wait_state("free", address_of(node))
    yield started
    started.close()


@pytest.fixture(scope="module")
def prometheus(tmp_path_factory, ports, view):
    """A Prometheus that scrapes the farm view."""
    server = PrometheusServer(
        tmp_path_factory.mktemp("prometheus"), ports.free_block(), f"127.0.0.1:{view.port}"
    )
    yield server
    server.close()


def promtool(*arguments):
    return subprocess.run(
        ["promtool", *arguments],
        cwd=FILES,
        capture_output=True,
        text=True,
        timeout=HANG_LIMIT,
    )


def test_alert_rules_pass_their_cases():
    done = promtool("test", "rules", "quelta_alerts_test.yml")
    assert done.returncode == 0, done.stdout + done.stderr


def test_every_alert_has_a_case_in_which_it_fires_and_one_in_which_it_does_not():
    rules = (FILES / "quelta_alerts.yml").read_text()
    cases = (FILES / "quelta_alerts_test.yml").read_text()
    for name in re.findall(r"- alert: (\w+)", rules):
        fires = rf"alertname: {name}\n +eval_time: \w+\n +exp_alerts:\n +- exp_labels"
        stays_quiet = rf"\{{alertname: {name}, eval_time: \w+\}}"
        assert re.search(fires, cases) and re.search(stays_quiet, cases), name


def test_the_configuration_is_valid():
    done = promtool("check", "config", "prometheus.yml")
    assert done.returncode == 0, done.stdout + done.stderr


def expressions():
    """The expressions of the dashboard's panels, each with the title of its panel."""
    return [
        pytest.param(target["expr"], id=f"{panel['title']} {target['refId']}")
        for panel in DASHBOARD["panels"]
        for target in panel["targets"]
    ]


def variables():
    return [
        pytest.param(variable["query"]["query"], id=variable["name"])
        for variable in DASHBOARD["templating"]["list"]
        if variable["type"] == "query"
    ]


def filled_in(text, view):
    """Replaces Grafana's variables as Grafana does."""
    values = {
        "job": "quelta",
        "instance": f"127.0.0.1:{view.port}",
        "node": ".*",
        "__rate_interval": "5s",
    }
    return re.sub(r"\$(\w+)", lambda found: values[found.group(1)], text)


@pytest.mark.parametrize("expression", expressions())
def test_dashboard_expressions_have_data(prometheus, view, expression):
    whole = filled_in(expression, view)
    wait_until(lambda: prometheus.query(whole), f"{whole} has data")


@pytest.mark.parametrize("query", variables())
def test_dashboard_variables_have_values(prometheus, view, query):
    parts = re.fullmatch(r"label_values\((.+), (\w+)\)", query)
    assert parts, query
    match, label = filled_in(parts.group(1), view), parts.group(2)
    wait_until(
        lambda: prometheus.ask(f"label/{label}/values", **{"match[]": match}), f"{match} has values"
    )


def test_an_alert_fires_when_a_daemon_is_killed_and_ends_with_its_return(prometheus, nodes):
    wait_until(lambda: len(prometheus.query("quelta_node_up == 1")) == 2, "both nodes are scraped")
    assert prometheus.firing() == []
    left, right = nodes
    os.kill(left.process.pid, signal.SIGKILL)
    left.wait_exit()
    fired = [("QueltaNodeDown", address_of(left))]
    wait_until(lambda: prometheus.firing() == fired, "the alert of the killed node fires")
    os.kill(right.process.pid, signal.SIGKILL)
    right.wait_exit()
    all_fired = [("QueltaNothingAnswers", None)]
    wait_until(lambda: prometheus.firing() == all_fired, "one alert fires for all nodes")
    left.serve()
    right.serve()
    wait_until(lambda: prometheus.firing() == [], "no alert fires any more")


def test_an_alert_fires_when_the_farm_view_is_gone(prometheus, view):
    view.close()
    fired = [("QueltaFarmViewDown", None)]
    wait_until(lambda: prometheus.firing() == fired, "the alert of the farm view fires")
