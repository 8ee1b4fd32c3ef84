"""The example as a whole: `./run farm`."""

import os
import re
import signal
import subprocess
from pathlib import Path

import frames
import options
import pytest
from helpers import LIMIT, wait_until
from PIL import Image
from pictures import checksum

ROOT = options.ROOT
SCENE = (options.HERE / "wave.pov").read_text()
STEPS = [
    "farm: 1. 48 frames are rendered without a network, to compare with",
    "farm: 2. 4 daemons start on this machine",
    "farm: 3. each node starts a Dask worker, and the frames are rendered",
    "farm: 4. another master steals node2",
    "farm: 5. node3 loses its power: its daemon and its slave are killed",
    "farm: 6. node3 is switched on again",
    "farm: 7. the other master gives node2 back",
]


def start(*arguments: str, **popen) -> subprocess.Popen:
    return subprocess.Popen(
        [ROOT / "run", "farm", *arguments],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        **popen,
    )


def run(*arguments: str, **popen) -> tuple[int, str]:
    with start(*arguments, **popen) as process:
        try:
            output, _ = process.communicate(timeout=LIMIT)
        finally:
            process.terminate()
    return process.returncode, output


@pytest.fixture(scope="module")
def render(tmp_path_factory):
    output = tmp_path_factory.mktemp("render")
    status, text = run("--output", str(output))
    return status, text.splitlines(), output


def test_everything_happens(render):
    status, lines, _ = render
    assert status == 0, "\n".join(lines)
    assert [line for line in lines if re.match(r"farm: \d", line)] == STEPS
    assert re.fullmatch(r"farm: all of it happened, in \d+ s", lines[-1])


def test_every_frame_is_there_and_equals_a_local_render(render):
    _, _, output = render
    job = frames.Job("povray", SCENE, options.FRAMES, options.WIDTH, options.HEIGHT)
    pictures = sorted((output / "frames").iterdir())
    assert [picture.name for picture in pictures] == [f"{n:03}.png" for n in range(48)]
    assert len({checksum(picture.read_bytes()) for picture in pictures}) == 48
    for number in range(0, 48, 6):
        local = checksum(frames.render_png(number, job))
        assert checksum(pictures[number].read_bytes()) == local, f"frame {number}"


def test_the_pictures_hold_all_frames(render):
    _, _, output = render
    with Image.open(output / "animation.webp") as animation:
        assert (animation.n_frames, animation.size) == (48, (240, 135))
    with Image.open(output / "contact_sheet.jpg") as sheet:
        assert sheet.size == (8 * 135 + 3, 6 * 77 + 3)


def test_the_chart_shows_every_frame_and_what_went_wrong(render):
    _, _, output = render
    chart = (output / "timeline.svg").read_text()
    texts = re.findall(r"<text[^>]*>([^<]*)</text>", chart)
    assert set(map(str, range(48))) <= set(texts)
    assert [texts.count(what) for what in ("stolen", "killed", "back")] == [1, 1, 2]
    assert [text for text in texts if text.startswith("node")][1:] == [
        "node1",
        "node2",
        "node3",
        "node4",
    ]


def processes_in(folder: Path) -> list[str]:
    """Returns the command lines of the processes whose current folder is in this one."""
    found = []
    for entry in Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and Path(os.readlink(entry / "cwd")).is_relative_to(folder):
                found.append((entry / "cmdline").read_text())
        except OSError:
            continue  # it has just ended
    return found


def test_nothing_is_left_running(render):
    _, _, output = render
    assert processes_in(output) == []


def test_ctrl_c_ends_daemons_and_workers(tmp_path):
    with start("--output", str(tmp_path), "--frames", "24", start_new_session=True) as process:
        try:
            for line in process.stdout or ():
                if line.startswith("farm: 3."):
                    break
            wait_until(lambda: len(processes_in(tmp_path)) > 4, "workers start")
            os.killpg(process.pid, signal.SIGINT)
            output, _ = process.communicate(timeout=LIMIT)
        finally:
            process.terminate()
    assert process.returncode == 1
    assert "farm: FAILED: it was interrupted" in output
    assert processes_in(tmp_path) == []


def test_renders_on_the_nodes_in_a_file(farm, tmp_path):
    file = tmp_path / "nodes.txt"
    file.write_text("# the farm\n" + "\n".join(node.name for node in farm.nodes))
    where = ["--nodes", str(file), "--address", "127.0.0.1", "--output", str(tmp_path / "out")]
    status, text = run(*where, "--frames", "6")
    assert status == 0, text
    lines = text.splitlines()
    assert "farm: 2. the farm has 3 nodes" in lines
    assert not [line for line in lines if re.match("farm: [4-9]", line)]
    assert len(list((tmp_path / "out/frames").iterdir())) == 6


def test_help_names_the_options():
    status, text = run("--help")
    assert status == 0
    for option in ("--nodes", "--address", "--renderer", "--frames", "--output"):
        assert option in text


@pytest.mark.parametrize(
    "arguments, fault",
    [
        (["--nodes", "no_such_file"], "there is no file no_such_file"),
        (["--address", "10.0.0.1"], "--address goes with --nodes"),
        (["--frames", "23"], "--frames: at least 24, with --nodes at least 1"),
        (["--renderer", "crayon"], "invalid choice: 'crayon'"),
    ],
)
def test_wrong_use_ends_with_status_2(arguments, fault):
    status, text = run(*arguments)
    assert status == 2
    assert fault in text
