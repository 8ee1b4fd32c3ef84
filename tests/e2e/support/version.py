"""The version of the project. CMakeLists.txt is its only source."""

import re
from pathlib import Path

LISTS = Path(__file__).parents[3] / "CMakeLists.txt"
FOUND = re.search(r"^project\(\w+ VERSION (\d+\.\d+\.\d+) ", LISTS.read_text(), re.MULTILINE)
assert FOUND
VERSION = FOUND.group(1)
