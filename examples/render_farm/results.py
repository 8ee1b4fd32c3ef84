"""Compares the frames with those of a render without a network, and saves all results."""

from __future__ import annotations

import os
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import frames
from pictures import checksum, mean_difference, save_animation, save_contact_sheet
from progress import Progress
from recorder import Recorder
from timeline import Timeline, save_timeline


# POV-Ray's pictures are the same every time. Cycles adds up light in varying order, so that a few
# pixels differ: 0.0002 on average, where one frame differs from the next by more than 30.
TOLERANCES = {"povray": 0.0, "blender": 0.01}


def render_here(job: frames.Job) -> list[bytes]:
    """Renders all frames on this machine."""
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(lambda number: frames.render_png(number, job), range(job.frames)))


def compare(recorder: Recorder, expected: list[bytes], tolerance: float) -> list[str]:
    """Returns a line for every frame that is missing or differs."""
    faults = []
    for number, wanted in enumerate(expected):
        frame = recorder.frames.get(number)
        if frame is None:
            faults.append(f"frame {number} is missing")
        elif checksum(frame.png) != checksum(wanted):
            difference = mean_difference(frame.png, wanted)
            if difference > tolerance:
                faults.append(
                    f"frame {number}, rendered by {frame.node}, differs by {difference:.4f}"
                )
    return faults


def timeline_of(recorder: Recorder, job: frames.Job) -> Timeline:
    bars, spans = recorder.bars(), recorder.spans()
    times = [time for bar in bars for time in (bar.began, bar.ended)]
    seconds = max(times, default=0.0) - min(times, default=0.0)
    fates = [f"{mark.node} was {mark.what}" for mark in recorder.marks() if mark.what != "back"]
    fates += [f"{sum(bar.lost for bar in bars)} renders were lost and repeated elsewhere"]
    return Timeline(
        f"{job.frames} frames on {len(recorder.nodes)} nodes in {seconds:.0f} s",
        ", ".join(fates),
        recorder.nodes,
        job.frames,
        bars,
        spans,
        recorder.marks(),
    )


def save_results(recorder: Recorder, job: frames.Job, output: Path, progress: Progress) -> None:
    """Saves frames, pictures and chart, and tells about them."""
    done = [frame for _, frame in sorted(recorder.frames.items())]
    folder = output / "frames"
    folder.mkdir(exist_ok=True)
    for frame in done:
        (folder / f"{frame.number:03}.png").write_bytes(frame.png)
    pngs = [frame.png for frame in done]
    save_contact_sheet(output / "contact_sheet.jpg", pngs)
    save_animation(output / "animation.webp", pngs)
    save_timeline(output / "timeline.svg", timeline_of(recorder, job))

    shares = Counter(frame.node for frame in done)
    progress.say(
        "        " + ", ".join(f"{node}: {shares[node]} frames" for node in recorder.nodes)
    )
    for name in ("frames", "contact_sheet.jpg", "animation.webp", "timeline.svg"):
        progress.say(f"        {output / name}")
