"""Names of nodes, as `host:port`, and files of them. The console master reads the same files."""

from __future__ import annotations

import os
import re
from pathlib import Path
from typing import Iterable

from .errors import NodeNameError

_NAME = re.compile(r"([^:]+):0*([0-9]{1,5})", re.DOTALL)
_COMMENT = re.compile(r"#[^\n]*")
_SEPARATORS = re.compile(r"[ \t\r\n,]+")


def split_node(node: str) -> tuple[str, int]:
    """Returns host and port. Raises NodeNameError."""
    match = _NAME.fullmatch(node)
    port = int(match.group(2)) if match else 0
    if match is None or not 0 < port <= 65535:
        raise NodeNameError(f'"{node}" is not a node: give host:port, for example 10.0.0.5:5130')
    return match.group(1), port


def node_list(nodes: str | Iterable[str]) -> list[str]:
    """Returns the nodes as a list, checked. One node may be given as a plain text."""
    found: list[str] = []
    for node in [nodes] if isinstance(nodes, str) else nodes:
        split_node(node)
        if node in found:
            raise NodeNameError(f"node {node} is given twice")
        found.append(node)
    return found


def parse_nodes(text: str) -> list[str]:
    """Returns the nodes in a text: separated by blanks, commas or line ends; # begins a comment."""
    return node_list(word for word in _SEPARATORS.split(_COMMENT.sub("", text)) if word)


def read_nodes(path: str | os.PathLike[str]) -> list[str]:
    """Returns the nodes in a file, which is parsed as by parse_nodes.

    Raises OSError if the file cannot be read, and NodeNameError if it contains anything else.
    """
    text = Path(path).read_bytes().decode(errors="surrogateescape")
    try:
        return parse_nodes(text)
    except NodeNameError as error:
        raise NodeNameError(f"{os.fspath(path)}: {error}") from None
