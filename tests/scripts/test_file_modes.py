"""A file is executable if, and only if, it says what runs it."""

import os
from pathlib import Path

ROOT = Path(__file__).parents[2]
SKIPPED = {"build", ".git", "corpus", "__pycache__"}


def test_modes() -> None:
    wrong = []
    for folder, names, files in os.walk(ROOT):
        names[:] = sorted(set(names) - SKIPPED)
        for path in (Path(folder) / name for name in sorted(files)):
            has_interpreter = path.read_bytes().startswith(b"#!")
            if has_interpreter != bool(path.stat().st_mode & 0o111):
                wrong.append(path.relative_to(ROOT))
    assert wrong == []
