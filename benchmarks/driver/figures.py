"""Figures: the results of several rounds, and the table row that compares two of them."""

from __future__ import annotations

import statistics
from dataclasses import dataclass
from typing import Callable, Sequence


@dataclass(frozen=True)
class Figure:
    value: float
    spread: float  # half the range of the rounds, in percent of the value

    @classmethod
    def of(
        cls, rounds: Sequence[float], pick: Callable[[Sequence[float]], float] = statistics.median
    ) -> Figure:
        value = pick(rounds)
        distance = (max(rounds) - min(rounds)) / 2
        return cls(value, 100 * distance / value if value else 0.0)


@dataclass(frozen=True)
class Goal:
    text: str
    is_reached: Callable[[float, float], bool]  # called with the value and the ratio

    @classmethod
    def ratio_at_most(cls, limit: float) -> Goal:
        return cls(f"at most {limit:.2f} x", lambda value, ratio: ratio <= limit)

    @classmethod
    def ratio_above(cls, limit: float) -> Goal:
        return cls(f"above {limit:.2f} x", lambda value, ratio: ratio > limit)

    @classmethod
    def value_below(cls, limit: float, unit: str) -> Goal:
        return cls(f"under {limit:g} {unit}", lambda value, ratio: value < limit)

    def and_also(self, other: Goal) -> Goal:
        return Goal(
            f"{self.text}, {other.text}",
            lambda value, ratio: self.is_reached(value, ratio) and other.is_reached(value, ratio),
        )


@dataclass(frozen=True)
class Row:
    figure: str
    value: Figure
    unit: str
    baseline: Figure
    goal: Goal | None = None

    @property
    def ratio(self) -> float:
        return self.value.value / self.baseline.value if self.baseline.value else 0.0

    @property
    def reached(self) -> bool | None:
        return self.goal.is_reached(self.value.value, self.ratio) if self.goal else None

    def as_json(self) -> dict[str, object]:
        return {
            "figure": self.figure,
            "value": round(self.value.value, 3),
            "unit": self.unit,
            "baseline": round(self.baseline.value, 3),
            "ratio": round(self.ratio, 3),
            "goal": self.goal.text if self.goal else None,
            "reached": self.reached,
            "spread": round(max(self.value.spread, self.baseline.spread), 1),
        }
