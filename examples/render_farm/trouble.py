"""What goes wrong during the render: one node is stolen, another one loses its power."""

from __future__ import annotations

import threading
import time
from collections.abc import Callable
from functools import partial

from local_farm import FarmError, LocalFarm, Thief
from options import Options
from progress import Progress
from recorder import Recorder

STOLEN, KILLED = "node2", "node3"
LIMIT = 90.0  # seconds for any of the steps; only guards against a hang
POLL = 0.05


class Trouble:
    """Steals a node, kills another one, and lets both come back; each after so many frames.

    Runs in a thread of its own while the frames are rendered. `finish` waits for it and raises
    what went wrong.
    """

    def __init__(
        self, farm: LocalFarm, options: Options, recorder: Recorder, progress: Progress
    ) -> None:
        self._nodes = {node.alias: node for node in farm.nodes}
        self._frames = options.job.frames
        self._recorder = recorder
        self._progress = progress
        self._programs = options.programs
        self._stop = threading.Event()
        self._failure: Exception | None = None
        self._thread = threading.Thread(target=self._run, name="trouble")

    def __enter__(self) -> Trouble:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._stop.set()
        self._thread.join()

    def finish(self) -> None:
        self._thread.join()
        if self._failure:
            raise self._failure

    def _run(self) -> None:
        try:
            self._play()
        except Exception as failure:  # belongs to the thread that calls finish()
            self._failure = failure

    def _play(self) -> None:
        self._wait_for_frames(self._frames // 4)
        self._wait_until_half_way(STOLEN)
        self._progress.say(f"farm: 4. another master steals {STOLEN}")
        stolen = self._nodes[STOLEN]
        thief = Thief(self._programs, stolen.name, stolen.folder / "thief.log")
        try:
            self._wait_for_worker(STOLEN, False)
            self._recorder.mark(STOLEN, "stolen")
            self._wait(thief.has_stolen, "the steal")
            self._kill_and_restart()
            self._wait_for_frames(self._frames // 2)
            self._progress.say(f"farm: 7. the other master gives {STOLEN} back")
        finally:
            thief.give_back()
        for alias in (STOLEN, KILLED):
            self._wait_for_worker(alias, True)

    def _kill_and_restart(self) -> None:
        self._wait_for_frames(self._frames * 3 // 8)
        self._wait_until_half_way(KILLED)
        self._progress.say(
            f"farm: 5. {KILLED} loses its power: its daemon and its slave are killed"
        )
        self._recorder.mark(KILLED, "killed")
        self._nodes[KILLED].kill()
        self._wait_for_worker(KILLED, False)
        self._progress.say(f"farm: 6. {KILLED} is switched on again")
        self._nodes[KILLED].start()
        self._nodes[KILLED].wait_until_listening()

    def _wait_for_frames(self, count: int) -> None:
        self._wait(lambda: len(self._recorder.frames) >= count, f"{count} frames")

    def _wait_until_half_way(self, alias: str) -> None:
        """Waits until there is something to lose."""
        half_way = partial(self._recorder.is_half_way, alias)
        self._wait(lambda: half_way(time.time()), f"{alias} to be busy")

    def _wait_for_worker(self, alias: str, there: bool) -> None:
        what = f"{alias} to {'come back' if there else 'be missed'}"
        self._wait(lambda: (alias in self._recorder.present) == there, what)

    def _wait(self, condition: Callable[[], bool], what: str) -> None:
        deadline = time.monotonic() + LIMIT
        while not condition():
            if self._stop.is_set():
                raise FarmError(f"the render ended before {what}")
            if time.monotonic() > deadline:
                raise FarmError(f"waited {LIMIT:g} s in vain for {what}")
            time.sleep(POLL)
