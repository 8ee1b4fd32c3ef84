"""What the cluster does next, as pure functions: which nodes to take and which to give back."""

from __future__ import annotations

from collections.abc import Collection, Hashable, Iterable, Sequence
from dataclasses import dataclass
from typing import TypeVar

Name = TypeVar("Name", bound=Hashable)

FIRST_PAUSE = 2.0  # seconds
LONGEST_PAUSE = 60.0  # seconds


@dataclass
class NodeRecord:
    """What the cluster remembers of a node. Times are those of one monotonic clock."""

    node: str
    failures: int = 0  # in a row
    not_before: float = 0.0

    def failed(self, now: float) -> None:
        """Notes a failure: the node is left alone for a while, longer each time."""
        self.not_before = now + pause_after(self.failures)
        self.failures += 1

    def worked(self) -> None:
        self.failures = 0
        self.not_before = 0.0


def pause_after(failures: int) -> float:
    """Returns how long a node is left alone that fails again after this many failures."""
    return min(FIRST_PAUSE * 2.0 ** min(failures, 16), LONGEST_PAUSE)


def worth_asking(records: Iterable[NodeRecord], busy: Collection[str], now: float) -> list[str]:
    """Returns the nodes that may be asked whether they are free."""
    return [r.node for r in records if r.node not in busy and r.not_before <= now]


def nodes_to_take(records: Iterable[NodeRecord], free: Collection[str], count: int) -> list[str]:
    """Chooses among the free nodes: those that failed least, in the order of the records."""
    ranked = sorted((r for r in records if r.node in free), key=lambda r: r.failures)
    return [r.node for r in ranked[: max(count, 0)]]


def workers_to_drop(held: Sequence[Name], registered: Collection[Name], count: int) -> list[Name]:
    """Chooses whom a smaller cluster can best do without.

    `held` has the oldest worker first. A worker that Dask does not know yet has done nothing; after
    these come the youngest.
    """
    ranked = sorted(reversed(held), key=lambda name: name in registered)
    return ranked[: max(count, 0)]


def dask_name(alias: str) -> str | int:
    """Returns the name under which `dask worker --name ALIAS` registers: digits become a number."""
    try:
        return int(alias)
    except ValueError:
        return alias
