"""scripts/check_comments.py finds comments that were wrapped badly."""

import subprocess
from pathlib import Path

import pytest

SCRIPT = Path(__file__).parents[2] / "scripts" / "check_comments.py"
HANG_LIMIT = 60.0  # seconds


def faults(folder: Path, name: str, text: str) -> list[str]:
    """What it says about a file with this text, without the file's name."""
    path = folder / name
    path.write_text(text, encoding="utf-8")
    ended = subprocess.run(
        [SCRIPT, path], capture_output=True, text=True, timeout=HANG_LIMIT, check=False
    )
    lines = [line.removeprefix(f"{path}:") for line in ended.stdout.splitlines()]
    assert (ended.returncode, ended.stderr) == (1 if lines else 0, "")
    return lines


@pytest.mark.parametrize("indent", ["", "    "])
def test_closing_mark_alone(indent: str, tmp_path: Path) -> None:
    text = f"{indent}/** Listens to the slave.\n{indent}*/\nint port;\n"
    assert faults(tmp_path, "A.h", text) == ["2: */ stands alone"]


@pytest.mark.parametrize("indent", ["", "    "])
def test_continuation_indented_by_three(indent: str, tmp_path: Path) -> None:
    text = f"{indent}/** Listens to\n{indent}   the slave. */\n"
    assert faults(tmp_path, "A.cpp", text) == ["2: indented by three: wrap the comment by hand"]


@pytest.mark.parametrize(
    "text",
    [
        f"// {'x' * 98}\n",
        f"    /** {'x' * 98} */\n",
        f"/** Hears\n    {'ü' * 97} */\n",
    ],
)
def test_comment_over_100_columns(text: str, tmp_path: Path) -> None:
    line = text.count("\n")
    assert faults(tmp_path, "A.h", text) == [f"{line}: comment over 100 columns"]


@pytest.mark.parametrize("text", [f"# {'x' * 99}\n", f"x=1 # {'x' * 99}\n"])
@pytest.mark.parametrize("name", ["a.sh", "CMakeLists.txt"])
def test_comment_of_a_script_over_100_columns(name: str, text: str, tmp_path: Path) -> None:
    assert faults(tmp_path, name, text) == ["1: comment over 100 columns"]


@pytest.mark.parametrize(
    "text",
    [
        f"// {'ü' * 97}\n",
        "/** Listens to\n    the slave. */\n",
        "/** One\n\n    two. */\nint a;\n   int b;\n",
        'const char* text = "/*";\n   f();\n',
        f'const char* text = "{"x" * 100}";\n',
    ],
)
def test_good_comments_and_code_pass(text: str, tmp_path: Path) -> None:
    assert faults(tmp_path, "A.cpp", text) == []
