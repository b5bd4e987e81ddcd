"""Medians, their spread, and how a cost grows with the work."""

from __future__ import annotations

import math
import statistics
from collections.abc import Sequence
from dataclasses import dataclass

CONSTANT = 1.25  # the largest median over the smallest
WORSE = 1.3  # exponents from here on are worse than linear; leaving the processor's caches takes the rest
LESS = 0.7


@dataclass(frozen=True)
class Spread:
    """The median, and the quartiles around it."""
    median: float
    low: float
    high: float


def spread(values: Sequence[float]) -> Spread:
    if len(values) < 2:
        return Spread(values[0], values[0], values[0])
    low, median, high = statistics.quantiles(values, n=4, method="inclusive")
    return Spread(median, low, high)


def percentile(values: Sequence[float], percent: int) -> float:
    return statistics.quantiles(values, n=100, method="inclusive")[percent - 1]


@dataclass(frozen=True)
class Growth:
    """`kind` is "constant", "below linear", "linear" or "worse than linear"; `slope` is the cost of one more."""
    kind: str
    slope: float

    @property
    def worse(self) -> bool:
        return self.kind == "worse than linear"


def growth(points: Sequence[tuple[float, Sequence[float]]]) -> Growth:
    """How the medians grow over the sizes, which ascend."""
    sizes = [size for size, _ in points]
    spreads = [spread(values) for _, values in points]
    medians = [each.median for each in spreads]
    slope = (medians[-1] - medians[0]) / (sizes[-1] - sizes[0])
    noise = (spreads[-1].high - spreads[-1].low + spreads[0].high - spreads[0].low) / 2
    if max(medians) <= CONSTANT * min(medians) or medians[-1] - medians[0] <= noise:
        return Growth("constant", slope)
    least, most = exponents(sizes, spreads)
    if least > WORSE and steepening(sizes, spreads) > WORSE:
        return Growth("worse than linear", slope)
    return Growth("below linear" if most < LESS else "linear", slope)


def exponents(sizes: Sequence[float], spreads: Sequence[Spread]) -> tuple[float, float]:
    """The least and the largest power of the size that fits what is added from the middle size to the last one. What
    the smallest size costs is taken as the fixed cost."""
    first, middle, last = spreads[0], spreads[len(spreads) // 2], spreads[-1]
    power = math.log((sizes[-1] - sizes[0]) / (sizes[len(sizes) // 2] - sizes[0]))
    return power_of(last.low - first.high, middle.high - first.low, power), \
        power_of(last.high - first.low, middle.low - first.high, power)


def steepening(sizes: Sequence[float], spreads: Sequence[Spread]) -> float:
    """The least power that fits how much more one more costs between the last two sizes than between the two before. A
    step somewhere below, as where a memory block gets too large for the heap, leaves it at 1."""
    (before, middle, last), (low, mid, high) = sizes[-3:], spreads[-3:]
    power = math.log((last + middle) / (middle + before))
    return 1 + power_of((high.low - mid.high) / (last - middle), (mid.high - low.low) / (middle - before), power)


def power_of(added: float, before: float, power: float) -> float:
    if before <= 0:
        return math.inf
    return math.log(added / before) / power if added > 0 else -math.inf
