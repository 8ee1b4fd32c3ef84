"""The command line of the example."""

from __future__ import annotations

import argparse
from dataclasses import dataclass
from pathlib import Path

from frames import Job

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SCENES = {"povray": "wave.pov", "blender": "wave_blender.py"}
FRAMES, WIDTH, HEIGHT = 48, 240, 135
ENOUGH = 24  # frames to be busy with while a node is stolen and another one killed

DESCRIPTION = """
Renders an animation on the nodes of a render farm with Dask. Without --nodes, the farm is four
daemons on this machine: while they render, another master steals one of them, and one is killed
together with its slave. Both come back, and no frame is lost.
"""
EPILOG = """
The frames, a contact sheet, an animated picture and a timeline are written to the output folder.
Exit status: 0 if every frame equals the one rendered without a network and everything else happened
as described, 1 if not, 2 for wrong use.
"""


@dataclass(frozen=True)
class Options:
    job: Job
    nodes: Path | None
    address: str | None
    output: Path
    programs: Path


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="./run farm", description=DESCRIPTION, epilog=EPILOG, allow_abbrev=False
    )
    parser.add_argument(
        "--nodes",
        type=Path,
        metavar="FILE",
        help="render on these nodes: a file of HOST:PORT, as quelta_master reads it",
    )
    parser.add_argument(
        "--address", help="this machine's address as the nodes see it (with --nodes)"
    )
    parser.add_argument(
        "--renderer",
        choices=sorted(SCENES),
        default="povray",
        help="what renders the frames; it is installed if it is missing",
    )
    parser.add_argument(
        "--frames", type=int, default=FRAMES, metavar="N", help="frames to render: %(default)s"
    )
    parser.add_argument(
        "--output",
        type=Path,
        metavar="FOLDER",
        default=ROOT / "build/farm",
        help="where the results go; by default build/farm, beside this program's sources",
    )
    parser.add_argument(
        "--programs",
        type=Path,
        metavar="FOLDER",
        default=ROOT / "build/linux/bin",
        help="the programs of the daemons on this machine; by default those just built",
    )
    return parser


def parse_options() -> Options:
    parser = _parser()
    given = parser.parse_args()
    if given.address and not given.nodes:
        parser.error("--address goes with --nodes")
    if given.nodes and not given.nodes.is_file():
        parser.error(f"there is no file {given.nodes}")
    if given.frames < (1 if given.nodes else ENOUGH):
        parser.error(f"--frames: at least {ENOUGH}, with --nodes at least 1")
    scene = (HERE / SCENES[given.renderer]).read_text(encoding="utf-8")
    job = Job(given.renderer, scene, given.frames, WIDTH, HEIGHT)
    return Options(job, given.nodes, given.address, given.output, given.programs.resolve())


if __name__ == "__main__":  # for ./run, which installs and builds what these options need
    chosen = parse_options()
    print(chosen.job.renderer, "real" if chosen.nodes else "local")
