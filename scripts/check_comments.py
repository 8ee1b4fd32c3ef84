#!/usr/bin/env python3
"""Finds badly wrapped comments, which clang-format leaves alone: .clang-format turns reflow off.

usage: check_comments.py [FILE...]      without files: those of the whole project

Finds comment lines over 100 columns in C++, CMake and shell files. In C++ it also finds block
comments that were torn: a line that holds only the closing mark, and lines indented by three
columns, where a reflowed comment continues. Exit status: 1 if there are any.
"""

import re
import sys
from pathlib import Path
from typing import Iterator

ROOT = Path(__file__).resolve().parent.parent
CPP_FOLDERS = ("src", "tests", "tools", "benchmarks")
CPP_SUFFIXES = (".h", ".cpp")
COLUMNS = 100
CLOSING_ALONE = "*/ stands alone"
TORN = "indented by three: wrap the comment by hand"
TOO_LONG = f"comment over {COLUMNS} columns"


def check_cpp(lines: list[str]) -> Iterator[tuple[int, str]]:
    opening: int | None = None  # the column of the open block comment
    for number, line in enumerate(lines, 1):
        text = line.strip()
        in_block = opening is not None
        if text == "*/":
            yield number, CLOSING_ALONE
        elif opening is not None and text and len(line) - len(line.lstrip()) == opening + 3:
            yield number, TORN
        if len(line) > COLUMNS and (in_block or text.startswith(("//", "/*"))):
            yield number, TOO_LONG
        if not in_block and text.startswith("/*"):
            opening = line.index("/*")
        if "*/" in line:
            opening = None


def check_hash_comments(lines: list[str]) -> Iterator[tuple[int, str]]:
    for number, line in enumerate(lines, 1):
        if len(line) > COLUMNS and re.search(r"^\s*#|\s# ", line):
            yield number, TOO_LONG


def project_files() -> Iterator[Path]:
    for folder in CPP_FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in CPP_SUFFIXES or path.name == "CMakeLists.txt":
                yield path
    yield from (ROOT / name for name in ("CMakeLists.txt", "test", "run", "bench", ".ci/run"))
    yield from sorted((ROOT / "cmake").glob("*.cmake"))
    yield from sorted((ROOT / "scripts").glob("*.sh"))


def main(arguments: list[str]) -> int:
    found = False
    for path in [Path(name) for name in arguments] or project_files():
        lines = path.read_text(encoding="utf-8").split("\n")
        check = check_cpp if path.suffix in CPP_SUFFIXES else check_hash_comments
        for number, fault in check(lines):
            found = True
            print(f"{path.relative_to(ROOT) if ROOT in path.parents else path}:{number}: {fault}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
