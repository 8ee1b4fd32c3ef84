"""A chart of who rendered what and when, as SVG: one row per node, one bar per frame."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field
from html import escape
from pathlib import Path

WIDTH, LEFT, RIGHT = 1080, 96, 28
TOP, ROW, BAR, BOTTOM = 92, 64, 26, 78
INK, FAINT, BAND, LOSS = "#1f2430", "#6b7280", "#e8ecf5", "#c2263d"
# The colours of the frames from first to last, as in the scene.
PALETTE = ("#2f4bb8", "#7a35c0", "#c23a86", "#d9642c", "#b8860b")
MARKS = {"stolen": "#b45309", "killed": LOSS, "back": "#15803d"}


@dataclass(frozen=True)
class Bar:
    """A frame on a node. It is lost if the node was lost before the frame was done."""

    node: str
    frame: int
    began: float
    ended: float
    lost: bool = False


@dataclass(frozen=True)
class Span:
    """A time during which Dask had the node as a worker."""

    node: str
    began: float
    ended: float


@dataclass(frozen=True)
class Mark:
    """Something that happened to a node: "stolen", "killed" or "back"."""

    node: str
    what: str
    time: float


@dataclass
class Timeline:
    title: str
    subtitle: str
    nodes: Sequence[str]
    frames: int
    bars: list[Bar] = field(default_factory=list)
    spans: list[Span] = field(default_factory=list)
    marks: list[Mark] = field(default_factory=list)


def colour_of(frame: int, frames: int) -> str:
    """Returns a colour between the palette's, as far along as the frame is in the animation."""
    place = frame / max(frames - 1, 1) * (len(PALETTE) - 1)
    left = min(int(place), len(PALETTE) - 2)
    pair = [[int(text[i : i + 2], 16) for i in (1, 3, 5)] for text in PALETTE[left : left + 2]]
    mixed = [round(a + (b - a) * (place - left)) for a, b in zip(*pair, strict=True)]
    return "#{:02x}{:02x}{:02x}".format(*mixed)


def tick_step(seconds: float) -> int:
    """Returns the distance of the ticks, for at most 16 of them."""
    steps = [1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600]
    return next((step for step in steps if seconds / step <= 16), 7200)


class Chart:
    """Draws one timeline, from the first frame's begin to the last one's end."""

    def __init__(self, timeline: Timeline) -> None:
        self.timeline = timeline
        self.first = min((bar.began for bar in timeline.bars), default=0.0)
        last = max((bar.ended for bar in timeline.bars), default=self.first)
        self.seconds = max(last - self.first, 0.1)
        self.height = TOP + ROW * len(timeline.nodes) + BOTTOM
        self.parts: list[str] = []

    def x(self, time: float) -> float:
        share = min(max((time - self.first) / self.seconds, 0.0), 1.0)
        return LEFT + share * (WIDTH - LEFT - RIGHT)

    def y(self, node: str) -> float:
        """Returns the middle of the node's row."""
        return TOP + ROW * (self.timeline.nodes.index(node) + 0.5)

    def add(self, tag: str, content: str = "", /, **attributes: object) -> None:
        pairs = "".join(
            f' {name.strip("_").replace("_", "-")}="{escape(_short(value))}"'
            for name, value in attributes.items()
        )
        self.parts.append(f"<{tag}{pairs}>{content}</{tag}>" if content else f"<{tag}{pairs}/>")

    def text(self, x: float, y: float, text: str, /, **attributes: object) -> None:
        attributes.setdefault("fill", INK)
        self.add("text", escape(text), x=x, y=y, **attributes)

    def draw(self) -> str:
        self.add("rect", width=WIDTH, height=self.height, rx=10, fill="#ffffff", stroke="#d5dae3")
        self.text(24, 36, self.timeline.title, font_size=20, font_weight="bold")
        self.text(24, 60, self.timeline.subtitle, fill=FAINT, font_size=14)
        self._axis()
        for node in self.timeline.nodes:
            self.text(24, self.y(node) + 5, node, font_weight="bold")
        for span in self.timeline.spans:
            self._box(span.node, span.began, span.ended, ROW - 16, fill=BAND)
        for bar in self.timeline.bars:
            self._bar(bar)
        for mark in self.timeline.marks:
            self._mark(mark)
        self._legend()
        size = f'width="{WIDTH}" height="{self.height}" viewBox="0 0 {WIDTH} {self.height}"'
        font = 'font-family="DejaVu Sans, Segoe UI, Helvetica, Arial, sans-serif" font-size="13"'
        head = f'<svg xmlns="http://www.w3.org/2000/svg" {size} {font}>'
        return "\n".join([head, HATCHING, *self.parts, "</svg>", ""])

    def _axis(self) -> None:
        bottom = TOP + ROW * len(self.timeline.nodes)
        step = tick_step(self.seconds)
        for second in range(0, int(self.seconds) + 1, step):
            x = self.x(self.first + second)
            self.add("line", x1=x, x2=x, y1=TOP, y2=bottom, stroke="#e5e7eb")
            self.text(x, bottom + 18, f"{second} s", fill=FAINT, text_anchor="middle", font_size=12)

    def _box(
        self, node: str, began: float, ended: float, height: float, **attributes: object
    ) -> None:
        x = self.x(began)
        top = self.y(node) - height / 2
        width = max(self.x(ended) - x - 1, 1)
        self.add("rect", x=x, y=top, width=width, height=height, rx=4, **attributes)

    def _bar(self, bar: Bar) -> None:
        colour = colour_of(bar.frame, self.timeline.frames)
        look = {"fill": "url(#lost)", "stroke": LOSS} if bar.lost else {"fill": colour}
        self._box(bar.node, bar.began, bar.ended, BAR, **look)
        x = (self.x(bar.began) + self.x(bar.ended)) / 2
        if self.x(bar.ended) - self.x(bar.began) > 18:
            ink = LOSS if bar.lost else "#ffffff"
            y = self.y(bar.node) + 4
            self.text(x, y, str(bar.frame), fill=ink, text_anchor="middle", font_size=11)

    def _mark(self, mark: Mark) -> None:
        x, y = self.x(mark.time), self.y(mark.node)
        colour = MARKS[mark.what]
        self.add("line", x1=x, x2=x, y1=y - 24, y2=y + 24, stroke=colour, stroke_width=2)
        self.add("circle", cx=x, cy=y - 25, r=4, fill=colour)
        self.text(x + 8, y - 21, mark.what, fill=colour, font_size=12, font_weight="bold")

    def _legend(self) -> None:
        y = TOP + ROW * len(self.timeline.nodes) + 48
        entries = [
            (PALETTE[1], "none", "frame, with its number"),
            ("url(#lost)", LOSS, "frame lost, rendered again elsewhere"),
            (BAND, "none", "the node is a worker"),
        ]
        for x, (fill, stroke, text) in zip((LEFT, LEFT + 230, LEFT + 540), entries, strict=True):
            self.add("rect", x=x, y=y, width=26, height=14, rx=4, fill=fill, stroke=stroke)
            self.text(x + 34, y + 12, text, fill=FAINT)


HATCHING = (
    '<defs><pattern id="lost" width="6" height="6" patternUnits="userSpaceOnUse"'
    ' patternTransform="rotate(45)"><rect width="6" height="6" fill="#ffffff"/>'
    f'<rect width="2" height="6" fill="{LOSS}" opacity="0.35"/></pattern></defs>'
)


def _short(value: object) -> str:
    return f"{value:.1f}" if isinstance(value, float) else str(value)


def save_timeline(path: Path, timeline: Timeline) -> None:
    path.write_text(Chart(timeline).draw(), encoding="utf-8")
