"""A real renderer under the daemon: POV-Ray renders frames while a master holds the node."""

import os
import signal
import subprocess
from pathlib import Path

import pytest

from support import povray_worker
from support.exec_slave import OWN
from support.limits import HANG_LIMIT
from support.node import processes_in, wait_until

pytestmark = pytest.mark.linux_only("POV-Ray is a program for Linux here")

SCENE = Path(__file__).parent / "support" / "turning.pov"
FRAMES = 3


@pytest.fixture
def frames(tmp_path):
    """The folder of the frames; no process may be left in it."""
    folder = tmp_path / "frames"
    folder.mkdir()
    yield folder
    assert processes_in(folder) == []


@pytest.fixture
def render_node(exec_node, frames):
    """Creates a node that renders a scene into `frames`."""

    def make(scene):
        return exec_node(
            command=["/usr/bin/python3", povray_worker.__file__, str(scene), str(frames)],
            folder=str(frames),
            errors=["Parse Error", "^Fatal error"],
            ready={"line": "^worker online$"},
        )

    return make


def pixels(image):
    """Returns the image without its header, which tells the time."""
    size = 3 * povray_worker.WIDTH * povray_worker.HEIGHT
    data = image.read_bytes()
    assert data.startswith(b"P6\n") and len(data) > size
    return data[-size:]


def render_here(folder, number):
    """Renders a frame without the daemon; returns its pixels."""
    image = folder / "expected.ppm"
    subprocess.run(
        povray_worker.command(SCENE, number, image),
        check=True,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        timeout=HANG_LIMIT,
    )
    return pixels(image)


def frame(folder, number):
    return folder / f"frame{number:04}.ppm"


def test_frames_are_rendered_while_the_node_is_held(render_node, hold, frames, tmp_path):
    node = render_node(SCENE)
    master = hold(node)
    master.wait("running")
    last = node.output.wait(f"frame {FRAMES - 1} done")
    master.give_back()
    assert processes_in(frames) == []
    images = [pixels(frame(frames, number)) for number in range(FRAMES)]
    assert len(set(images)) == FRAMES
    assert images == [render_here(tmp_path, number) for number in range(FRAMES)]
    rendered = len(list(frames.glob("frame*.ppm")))

    hold(node).wait("running")
    node.output.wait("frame 0 done", last)
    assert len(list(frames.glob("frame*.ppm"))) >= rendered
    node.quit()


def test_scene_with_an_error_fails_the_run(render_node, hold, frames, tmp_path):
    scene = tmp_path / "wrong.pov"
    scene.write_text("sphere { <0, 0, 0>, radius }\n")
    node = render_node(scene)
    master = hold(node)
    master.wait("failed")
    node.output.wait_match(OWN + r"failed, since a line of output matches 'Parse Error': .*")
    node.wait_no_slave()
    wait_until(lambda: not processes_in(frames), "the worker is gone")
    assert list(frames.glob("frame*.ppm")) == []


def test_killed_daemon_leaves_no_renderer(render_node, hold, frames):
    node = render_node(SCENE)
    hold(node).wait("running")
    node.output.wait("frame 0 done")
    os.kill(node.process.pid, signal.SIGKILL)
    node.wait_no_slave()
    wait_until(lambda: not processes_in(frames), "worker and renderer are gone")
