"""The version number has one source: the command project() in CMakeLists.txt."""

import re
from pathlib import Path

ROOT = Path(__file__).parents[2]
LISTS = ROOT / "CMakeLists.txt"
FOLDERS = ("cmake", "packaging", "scripts", "src", "tests", "tools", "benchmarks")
BINARY_FOLDER = ROOT / "tests" / "fuzz" / "corpus"


def test_no_other_file_has_the_version() -> None:
    found = re.search(r"^project\(\w+ VERSION ([\d.]+) ", LISTS.read_text(), re.MULTILINE)
    assert found
    number = re.compile(rf"(?<![\d.]){re.escape(found.group(1))}(?!\d)")
    files = [path for folder in FOLDERS for path in (ROOT / folder).rglob("*") if path.is_file()]
    texts = [
        path
        for path in files
        if BINARY_FOLDER not in path.parents and "__pycache__" not in path.parts
    ]
    assert LISTS.read_text().count(found.group(1)) == 1
    assert [path for path in texts if number.search(path.read_text(encoding="utf-8"))] == []
