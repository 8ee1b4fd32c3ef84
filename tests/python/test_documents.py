"""The examples in the documents run, and print what the documents say."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest
from helpers import MakeNode, name_of
from support.limits import HANG_LIMIT
from support.node import Node

ROOT = Path(__file__).resolve().parents[2]
EXAMPLE = re.compile(r"```python\n(.*?)```\n(?:\n```\n(.*?)```)?", re.DOTALL)
MASTER = re.compile(r"\b10\.0\.0\.2:\d+|127\.0\.0\.1:\d+(?= *$)", re.MULTILINE)


def examples(document: str) -> list[tuple[str, str]]:
    """Returns the programs in a document, each with the output that follows it."""
    return EXAMPLE.findall((ROOT / document).read_text())


ALL = [
    pytest.param(program, output, id=f"{document}-{number}")
    for document in ("docs/python.md", "README.md")
    for number, (program, output) in enumerate(examples(document), 1)
]


def in_this_farm(text: str, first: Node, second: Node) -> str:
    """Replaces the nodes of the documents by those of the test."""
    for written, real in (
        ("10.0.0.5:5130", name_of(first)),
        ("10.0.0.6:5130", name_of(second)),
        ("10.0.0.255:5130", f"127.255.255.255:{first.port}"),
    ):
        text = text.replace(written, real)
    return text


@pytest.mark.parametrize("program, output", ALL)
def test_an_example_prints_what_the_document_says(
    program: str, output: str, make_node: MakeNode, tmp_path: Path
) -> None:
    nodes = make_node(alias="render05"), make_node(alias="render06")
    (tmp_path / "farm.txt").write_text(in_this_farm("10.0.0.5:5130\n10.0.0.6:5130\n", *nodes))
    ended = subprocess.run(
        [sys.executable, "-W", "error", "-c", in_this_farm(program, *nodes)],
        cwd=tmp_path,
        env={**os.environ, "PYTHONPATH": str(ROOT / "python")},
        capture_output=True,
        text=True,
        timeout=HANG_LIMIT,
    )
    assert ended.stderr == ""
    assert ended.returncode == 0
    expected = in_this_farm(output, *nodes)
    assert MASTER.sub("MASTER", ended.stdout) == MASTER.sub("MASTER", expected)
    for node in nodes:
        node.assert_no_slave()


def test_the_documents_have_examples() -> None:
    assert len(examples("docs/python.md")) == 5
    assert len(examples("README.md")) == 1
