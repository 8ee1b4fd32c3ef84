"""The table, the JSON file and the chart."""

import json
import math
from html import escape
from pathlib import Path
from typing import Sequence

from figures import Figure, Row

NOISY = 20  # percent of spread above which a figure is uncertain


def number(value: float) -> str:
    """Formats a number with about three significant digits."""
    if value == 0:
        return "0"
    digits = max(0, 2 - math.floor(math.log10(abs(value))))
    return f"{value:,.{digits}f}"


def with_spread(figure: Figure) -> str:
    return f"{number(figure.value)} ±{figure.spread:.0f}%"


def reached(row: Row) -> str:
    return {True: "yes", False: "NO", None: "-"}[row.reached]


def table(rows: Sequence[Row]) -> str:
    head = ("figure", "value", "unit", "baseline", "ratio", "goal", "reached")
    lines = [head] + [
        (
            row.figure,
            with_spread(row.value),
            row.unit,
            with_spread(row.baseline),
            f"{row.ratio:.2f}",
            row.goal.text if row.goal else "-",
            reached(row),
        )
        for row in rows
    ]
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    right = {1, 3, 4}
    return "\n".join(
        "  ".join(
            cell.rjust(width) if i in right else cell.ljust(width)
            for i, (cell, width) in enumerate(zip(line, widths))
        ).rstrip()
        for line in lines
    )


def noisy(rows: Sequence[Row]) -> list[Row]:
    extremes = ("(longest)", "(best round)")  # a spread is expected of these
    return [
        row
        for row in rows
        if not any(each in row.figure for each in extremes)
        and max(row.value.spread, row.baseline.spread) > NOISY
    ]


def write_json(path: Path, rows: Sequence[Row]) -> None:
    path.write_text(json.dumps([row.as_json() for row in rows], indent=2) + "\n")


LINE_HEIGHT, TEXT_WIDTH, BAR_WIDTH, RIGHT_WIDTH = 22, 600, 460, 330
MIN_RATIO, MAX_RATIO = 0.1, 10.0  # ratios at the ends of the scale


def x_of(ratio: float) -> float:
    share = math.log(min(max(ratio, MIN_RATIO), MAX_RATIO) / MIN_RATIO) / math.log(
        MAX_RATIO / MIN_RATIO
    )
    return TEXT_WIDTH + share * BAR_WIDTH


def bar(row: Row, y: int) -> str:
    left, right = sorted((x_of(1), x_of(row.ratio)))
    colour = {True: "#3a7d44", False: "#b3261e", None: "#6b7280"}[row.reached]
    figures = f"{with_spread(row.value)} against {with_spread(row.baseline)} {row.unit}"
    label = f"{row.ratio:.2f} x: {figures}"
    width = max(right - left, 2)
    return (
        f'<text x="{TEXT_WIDTH - 10}" y="{y + 15}" text-anchor="end">{escape(row.figure)}</text>'
        f'<rect x="{left:.1f}" y="{y + 4}" width="{width:.1f}" height="14" fill="{colour}"/>'
        f'<text x="{TEXT_WIDTH + BAR_WIDTH + 10}" y="{y + 15}">{escape(label)}</text>'
    )


def write_chart(path: Path, rows: Sequence[Row], machine: str) -> None:
    """Draws one bar per row, from the baseline (1) to the ratio, on a logarithmic scale."""
    width, top = TEXT_WIDTH + BAR_WIDTH + RIGHT_WIDTH, 60
    height = top + LINE_HEIGHT * len(rows) + 20
    grid = "".join(
        f'<line x1="{x_of(r):.1f}" x2="{x_of(r):.1f}" y1="{top - 6}" y2="{height - 16}" '
        f'stroke="{"#111827" if r == 1 else "#d1d5db"}"/>'
        f'<text x="{x_of(r):.1f}" y="{top - 12}" text-anchor="middle">{r:g} x</text>'
        for r in (0.1, 0.2, 0.5, 1, 2, 5, 10)
    )
    bars = "".join(bar(row, top + LINE_HEIGHT * i) for i, row in enumerate(rows))
    path.write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'font-family="sans-serif" font-size="12"><rect width="100%" height="100%" fill="white"/>'
        f'<text x="10" y="20" font-size="14">Quelta slave daemon against its baselines (1 x); '
        f"green: goal reached, red: missed, grey: no goal</text>"
        f'<text x="10" y="38" fill="#6b7280">{escape(machine)}</text>'
        f"{grid}{bars}</svg>\n"
    )
