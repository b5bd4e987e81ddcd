"""What is measured: rows beside their peers, and curves; and what a measurement says."""

from __future__ import annotations

import dataclasses
from collections.abc import Callable, Mapping, Sequence
from contextlib import AbstractContextManager
from dataclasses import dataclass, field
from typing import Any

from benchmarks.stats import Growth, Spread, growth, spread

# Units; of everything less is better.
SECONDS, BYTES, PER_SECOND, SHARE, NUMBER = "s", "B", "/s", "of a core", "number"

Measure = Callable[[Any], float]  # one measurement, of what the group has opened


@dataclass(frozen=True)
class Goal:
    """`kind` says what `value` limits."""
    kind: str
    value: float


def faster(times: float) -> Goal:
    """So many times as fast as the fastest peer."""
    return Goal("faster", times)


def within(times: float) -> Goal:
    """At most so many times what the least peer takes."""
    return Goal("within", times)


def at_most(value: float) -> Goal:
    return Goal("at most", value)


def more(value: float) -> Goal:
    """At most so much more than the peer."""
    return Goal("more", value)


BELOW = Goal("below", 1)  # less than every peer


@dataclass(frozen=True)
class Row:
    """A row of the table. Ours and the peers are measured in turns; `parts` are measured beside them to tell where our
    time goes, and are no peers. `floor` says what keeps the figure from being less."""
    key: str
    what: str
    unit: str
    ours: Measure
    peers: Mapping[str, Measure] = field(default_factory=dict)
    goal: Goal | None = None
    parts: Mapping[str, Measure] = field(default_factory=dict)
    floor: str = ""
    turns: int = 7
    moved: Callable[[Any], int] | None = None  # the bytes that are moved meanwhile, for telling bytes a second


@dataclass(frozen=True)
class Curve:
    """A cost over sizes. `steady` fails it when it grows at all; growing worse than linear fails every curve."""
    key: str
    what: str
    unit: str
    of: str
    steady: bool = False
    floor: str = ""


@dataclass(frozen=True)
class Sweep:
    """Curves that are measured together. `at` gives for a size some measurements of each of them, by their keys."""
    curves: Sequence[Curve]
    sizes: Sequence[int]
    at: Callable[[Any, int], Mapping[str, Sequence[float]]]


@dataclass(frozen=True)
class Group:
    """Rows and sweeps that share what `open` makes. `needs` are words for `./zel`, which provides them first."""
    name: str
    open: Callable[[bool], AbstractContextManager[Any]]
    rows: Sequence[Row] = ()
    sweeps: Sequence[Sweep] = ()
    needs: Sequence[str] = ("service",)

    def keys(self) -> list[str]:
        return [row.key for row in self.rows] + [curve.key for sweep in self.sweeps for curve in sweep.curves]


@dataclass
class Measured:
    """A row as it was measured: all its values."""
    key: str
    what: str
    unit: str
    ours: list[float] = field(default_factory=list)
    peers: dict[str, list[float]] = field(default_factory=dict)
    parts: dict[str, list[float]] = field(default_factory=dict)
    goal: Goal | None = None
    floor: str = ""
    failed: str = ""  # why it could not be measured
    moved: int = 0  # bytes

    def spread(self) -> Spread:
        return spread(self.ours)

    def peer(self) -> tuple[str, Spread] | None:
        """The peer that takes least."""
        spreads = {name: spread(values) for name, values in self.peers.items() if values}
        return min(spreads.items(), key=lambda item: item[1].median) if spreads else None

    def ratio(self) -> float | None:
        """What is compared with the goal: peer over ours where we have to be faster, else ours over the peer."""
        peer = self.peer()
        if self.failed or peer is None or peer[1].median == 0 or self.spread().median == 0:
            return None
        faster_than = peer[1].median / self.spread().median
        return faster_than if self.goal and self.goal.kind == "faster" else 1 / faster_than

    def reached(self) -> bool | None:
        """None without a goal."""
        if self.failed:
            return False
        if self.goal is None:
            return None
        median, peer, ratio = self.spread().median, self.peer(), self.ratio()
        if self.goal.kind == "at most":
            return median <= self.goal.value
        if peer is None:
            return False
        if self.goal.kind == "more":
            return median - peer[1].median <= self.goal.value
        if self.goal.kind == "below":
            return median < peer[1].median
        if ratio is None:
            return False
        return ratio >= self.goal.value if self.goal.kind == "faster" else ratio <= self.goal.value


@dataclass
class MeasuredCurve:
    key: str
    what: str
    unit: str
    of: str
    steady: bool = False
    floor: str = ""
    points: list[tuple[int, list[float]]] = field(default_factory=list)
    failed: str = ""

    def growth(self) -> Growth | None:
        return None if self.failed or len(self.points) < 3 else growth(self.points)

    def reached(self) -> bool:
        grown = self.growth()
        return grown is not None and (grown.kind == "constant" if self.steady else not grown.worse)


@dataclass
class Report:
    """One run of the benchmarks."""
    about: dict[str, str]  # date, machine, sources
    rows: list[Measured] = field(default_factory=list)
    curves: list[MeasuredCurve] = field(default_factory=list)

    def missed(self) -> list[str]:
        every: list[Measured | MeasuredCurve] = [*self.rows, *self.curves]
        return [each.key for each in every if each.reached() is False]

    def as_json(self) -> dict[str, Any]:
        return dataclasses.asdict(self)

    @classmethod
    def from_json(cls, values: dict[str, Any]) -> Report:
        rows = [Measured(**row | {"goal": Goal(**row["goal"]) if row["goal"] else None}) for row in values["rows"]]
        curves = [MeasuredCurve(**curve | {"points": [(size, values) for size, values in curve["points"]]})
                  for curve in values["curves"]]
        return cls(values["about"], rows, curves)


def blank(row: Row) -> Measured:
    return Measured(row.key, row.what, row.unit, goal=row.goal, floor=row.floor,
                    peers={name: [] for name in row.peers}, parts={name: [] for name in row.parts})


def blank_curve(curve: Curve) -> MeasuredCurve:
    return MeasuredCurve(curve.key, curve.what, curve.unit, curve.of, curve.steady, curve.floor)
