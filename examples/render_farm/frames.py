"""Renders one frame. This file is sent to the nodes, which need Python and the renderer only."""

from __future__ import annotations

import os
import subprocess
import tempfile
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

STARTED = "frames"  # the topic under which a worker tells that it begins a frame
TIME_LIMIT = 600  # seconds for one frame


@dataclass(frozen=True)
class Job:
    """An animation. The nodes get the scene's text with it, so they need no shared folder."""

    renderer: str
    scene: str
    frames: int
    width: int
    height: int


@dataclass(frozen=True)
class Frame:
    """A frame that has been rendered. Times are those of the node's clock."""

    number: int
    node: str
    began: float
    ended: float
    png: bytes


def render(number: int, job: Job) -> Frame:
    """Renders a frame inside a Dask worker."""
    from distributed import get_worker

    worker = get_worker()
    began = time.time()
    worker.log_event(STARTED, {"frame": number, "node": worker.name, "time": began})
    png = render_png(number, job)
    return Frame(number, str(worker.name), began, time.time(), png)


def render_png(number: int, job: Job) -> bytes:
    """Renders a frame in this process, wherever that is."""
    with tempfile.TemporaryDirectory(prefix="frame-") as folder:
        command = COMMANDS[job.renderer](number, job)
        (Path(folder) / "scene").write_text(job.scene)
        done = subprocess.run(
            command,
            cwd=folder,
            env={**os.environ, "PWD": folder},  # Blender believes this rather than the system
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            errors="replace",
            timeout=TIME_LIMIT,
        )
        picture = Path(folder) / "frame.png"
        # Renderers that report success without a picture exist.
        if done.returncode != 0 or not picture.is_file():
            raise RuntimeError(f"frame {number}: {command[0]} failed: {done.stdout[-2000:]}")
        return picture.read_bytes()


def povray(number: int, job: Job) -> list[str]:
    return [
        "povray",
        "+Iscene",
        "+Oframe.png",
        f"+W{job.width}",
        f"+H{job.height}",
        f"+K{number / job.frames:.6f}",
        *("+A0.15", "+AM2", "+R2"),
        "-J",  # no jitter: the same picture every time
        "-D",  # no window
        "+WT1",  # one thread, since a node runs one worker per core
    ]


def blender(number: int, job: Job) -> list[str]:
    return [
        *("blender", "--background", "--factory-startup", "--threads", "1"),
        *("--python-exit-code", "1", "--python", "scene", "--"),
        *(str(value) for value in (number, job.frames, job.width, job.height, "frame.png")),
    ]


COMMANDS: dict[str, Callable[[int, Job], list[str]]] = {"povray": povray, "blender": blender}
