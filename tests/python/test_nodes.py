"""Names and files of nodes, as the console master takes them."""

from pathlib import Path

import pytest

from quelta import NodeNameError, parse_nodes, read_nodes
from quelta.nodes import node_list, split_node


@pytest.mark.parametrize(
    "name, host, port",
    [("10.0.0.5:5130", "10.0.0.5", 5130), ("render07:1", "render07", 1), ("a:065535", "a", 65535)],
)
def test_a_name_is_split(name: str, host: str, port: int) -> None:
    assert split_node(name) == (host, port)


@pytest.mark.parametrize(
    "name", ["", "render07", ":5130", "a:", "a:0", "a:65536", "a:1:2", "a:+1", "a: 1", "a:\u0661"]
)
def test_other_texts_are_no_names(name: str) -> None:
    with pytest.raises(NodeNameError) as caught:
        split_node(name)
    assert str(caught.value) == (
        f'"{name}" is not a node: give host:port, for example 10.0.0.5:5130'
    )


def test_a_text_of_nodes_may_have_comments() -> None:
    text = "a:1, b:2\t# the old ones: c:3\r\n\n#d:4\nd:5,,e:6 "
    assert parse_nodes(text) == ["a:1", "b:2", "d:5", "e:6"]


def test_a_repeated_node_is_an_error() -> None:
    with pytest.raises(NodeNameError, match="^node a:1 is given twice$"):
        node_list(["a:1", "b:2", "a:1"])


def test_one_node_is_a_list_of_one() -> None:
    assert node_list("a:1") == ["a:1"]


def test_errors_in_a_file_name_the_file(tmp_path: Path) -> None:
    farm = tmp_path / "farm.txt"
    farm.write_text("a:1\nb\n")
    with pytest.raises(NodeNameError) as caught:
        read_nodes(farm)
    assert str(caught.value) == (
        f'{farm}: "b" is not a node: give host:port, for example 10.0.0.5:5130'
    )


def test_a_file_of_nodes_is_read(tmp_path: Path) -> None:
    farm = tmp_path / "farm.txt"
    farm.write_bytes(b"# caf\xe9\na:1\r\nb:2")
    assert read_nodes(farm) == ["a:1", "b:2"]
