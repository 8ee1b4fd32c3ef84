"""A render worker as a farm would write one: renders frames with POV-Ray until it is stopped.

usage: povray_worker.py SCENE FOLDER

It goes on after a frame that failed, as many tools do: only POV-Ray's messages tell. The exec slave
ends it, and with it the POV-Ray that it has just started.
"""

import subprocess
import sys
from itertools import count
from pathlib import Path

FRAMES_PER_TURN = 24
WIDTH, HEIGHT = 80, 60


def command(scene: Path, frame: int, image: Path) -> list[str]:
    """Returns the command that renders one frame, with warnings and errors only."""
    return [
        *("povray", f"+I{scene}", f"+O{image}", f"+W{WIDTH}", f"+H{HEIGHT}", "+FP8", "-D"),
        *("-GS", "-GR", "-GD", "+WT1", f"+K{frame / FRAMES_PER_TURN}"),
    ]


def main() -> None:
    scene, folder = Path(sys.argv[1]), Path(sys.argv[2])
    print("worker online", flush=True)
    for frame in count():
        image = folder / f"frame{frame:04}.ppm"
        # Under another name first, so that a frame with its own name is complete.
        unfinished = image.with_name("unfinished.ppm")
        subprocess.run(command(scene, frame, unfinished), check=False)
        if unfinished.exists():
            unfinished.rename(image)
        print(f"frame {frame} done", flush=True)


if __name__ == "__main__":
    main()
