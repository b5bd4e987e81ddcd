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
    return Growth("worse than linear" if least > WORSE else "below linear" if most < LESS else "linear", slope)


def exponents(sizes: Sequence[float], spreads: Sequence[Spread]) -> tuple[float, float]:
    """The least and the largest power of the size that fits what is added from the middle size to the last one. What
    the smallest size costs is taken as the fixed cost."""
    first, middle, last = spreads[0], spreads[len(spreads) // 2], spreads[-1]
    power = math.log((sizes[-1] - sizes[0]) / (sizes[len(sizes) // 2] - sizes[0]))

    def exponent(added: float, before: float) -> float:
        if before <= 0:
            return math.inf
        return math.log(added / before) / power if added > 0 else 0

    return exponent(last.low - first.high, middle.high - first.low), \
        exponent(last.high - first.low, middle.low - first.high)
