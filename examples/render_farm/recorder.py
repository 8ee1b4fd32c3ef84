"""What happened during the render: which node rendered which frame, and when each was a worker."""

from __future__ import annotations

import threading
import time
from dataclasses import replace
from typing import Any

from frames import Frame
from quelta.dask import QueltaCluster
from timeline import Bar, Mark, Span

PERIOD = 0.05  # seconds


class Recorder:
    """Collects what Dask tells. Any thread may call it; the lock guards all members.

    While it is entered, a thread asks the cluster several times a second which workers it has.
    """

    def __init__(self, cluster: QueltaCluster) -> None:
        self._cluster = cluster
        self._lock = threading.Lock()
        self._frames: dict[int, Frame] = {}
        self._starts: list[Bar] = []
        self._open: dict[str, float] = {}
        self._spans: list[Span] = []
        self._marks: list[Mark] = []
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._watch, name="recorder")

    def __enter__(self) -> Recorder:
        self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        self._stop.set()
        self._thread.join()

    def frame_started(self, event: tuple[float, dict[str, Any]]) -> None:
        """Takes an event of the topic `frames.STARTED`."""
        _, about = event
        with self._lock:
            start = about["time"]
            self._starts.append(Bar(str(about["node"]), about["frame"], start, start, lost=True))

    def frame_done(self, frame: Frame) -> int:
        """Returns the number of frames that are done."""
        with self._lock:
            self._frames[frame.number] = frame
            return len(self._frames)

    def mark(self, node: str, what: str) -> None:
        with self._lock:
            self._marks.append(Mark(node, what, time.time()))

    @property
    def frames(self) -> dict[int, Frame]:
        with self._lock:
            return dict(self._frames)

    @property
    def nodes(self) -> list[str]:
        """All nodes that have been workers."""
        with self._lock:
            return sorted({*self._open, *(span.node for span in self._spans)})

    @property
    def present(self) -> set[str]:
        """The nodes that are workers now."""
        with self._lock:
            return set(self._open)

    def is_half_way(self, node: str, now: float) -> bool:
        """Whether the node is busy with a frame, for half as long as its last one has taken."""
        with self._lock:
            done = [f for f in self._frames.values() if f.node == node]
            began = max((start.began for start in self._starts if start.node == node), default=now)
        if not done or began in {frame.began for frame in done}:
            return False
        last = max(done, key=lambda frame: frame.ended)
        return now - began >= (last.ended - last.began) / 2

    def marks(self) -> list[Mark]:
        with self._lock:
            return list(self._marks)

    def spans(self) -> list[Span]:
        now = time.time()
        with self._lock:
            return self._spans + [Span(node, began, now) for node, began in self._open.items()]

    def bars(self) -> list[Bar]:
        """Returns the frames that were rendered, and those that were lost with their node."""
        with self._lock:
            done = [Bar(f.node, f.number, f.began, f.ended) for f in self._frames.values()]
            return done + [bar for start in self._starts for bar in self._losses(start)]

    def _losses(self, start: Bar) -> list[Bar]:
        """Returns the bar of a frame that had begun when its node stopped being a worker."""
        frame = self._frames.get(start.frame)
        if frame and (frame.node, frame.began) == (start.node, start.began):
            return []
        ends = [s.ended for s in self._spans if s.node == start.node and s.ended >= start.began]
        return [replace(start, ended=min(ends))] if ends else []

    def _watch(self) -> None:
        while not self._stop.wait(PERIOD):
            names = {str(name) for name in self._cluster.observed}
            now = time.time()
            with self._lock:
                for name in names - self._open.keys():
                    if any(span.node == name for span in self._spans):
                        self._marks.append(Mark(name, "back", now))
                    self._open[name] = now
                for name in self._open.keys() - names:
                    self._spans.append(Span(name, self._open.pop(name), now))
