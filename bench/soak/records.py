"""What a run counts: operations by kind with the time they took, failures, and the daemon's lives."""

from __future__ import annotations

import statistics
import threading
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field


class Wrong(Exception):
    """The daemon did something else than it should."""


def check(condition: object, what: str) -> None:
    if not condition:
        raise Wrong(what)


@dataclass(frozen=True)
class Sample:
    """The daemon's use of the machine at one moment."""
    time: float
    descriptors: int
    threads: int
    resident: int  # KiB
    private: int  # KiB of the resident memory that are the daemon's own and changed: heap and stacks

    def most(self, other: Sample) -> Sample:
        return Sample(self.time, max(self.descriptors, other.descriptors), max(self.threads, other.threads),
                      max(self.resident, other.resident), max(self.private, other.private))


@dataclass
class Life:
    """From a start of the daemon to its end."""
    number: int
    started: float
    ended: float = 0
    end: str = ""
    most: Sample | None = None
    rest: list[Sample] = field(default_factory=list)  # at rest; the first one after the warm-up

    def third(self, moment: float) -> int | None:
        """0, 1 or 2 for a moment between the first and the last sample at rest."""
        if len(self.rest) < 2 or not self.rest[0].time < moment < self.rest[-1].time:
            return None
        return min(int(3 * (moment - self.rest[0].time) / (self.rest[-1].time - self.rest[0].time)), 2)

    def outer_thirds(self) -> tuple[list[Sample], list[Sample]]:
        count = max(len(self.rest) // 3, 1)
        return self.rest[:count], self.rest[-count:]


@dataclass
class Kind:
    """One kind of operation, or of calls within operations. How long an operation takes is mostly chance; how long a
    call takes is up to the daemon."""
    call: bool
    done: int = 0
    failed: int = 0
    taken: list[tuple[float, float]] = field(default_factory=list)  # (when it was over, seconds)

    def add(self, seconds: float) -> None:
        self.done += 1
        self.taken.append((time.monotonic(), seconds))


def percentile(values: list[float], part: float) -> float:
    """The least value that this part of the values does not exceed."""
    ordered = sorted(values)
    return ordered[min(int(part * len(ordered)), len(ordered) - 1)]


class Records:
    """Shared by all threads of a run."""

    def __init__(self) -> None:
        self._mutex = threading.Lock()
        self.kinds: dict[str, Kind] = {}
        self.lives: list[Life] = []
        self.failures: list[str] = []

    @property
    def life(self) -> Life:
        return self.lives[-1]

    @contextmanager
    def measure(self, kind: str, call: bool = True) -> Iterator[None]:
        """Counts and times one call or operation. Whatever leaves it by an exception has failed."""
        began = time.monotonic()
        try:
            yield
        except Exception:
            with self._mutex:
                self.kinds.setdefault(kind, Kind(call)).failed += 1
            raise
        self.add(kind, time.monotonic() - began, call)

    def add(self, kind: str, seconds: float, call: bool = True) -> None:
        with self._mutex:
            self.kinds.setdefault(kind, Kind(call)).add(seconds)

    def fail(self, text: str) -> bool:
        """Notes a failure; whether it is the first."""
        with self._mutex:
            self.failures.append(text)
            return len(self.failures) == 1

    def outer_thirds(self, kind: Kind) -> tuple[list[float], list[float]]:
        """The seconds that a kind took in the first and in the last third of the daemon's lives."""
        thirds: dict[int | None, list[float]] = {}
        for when, seconds in kind.taken:
            life = next((life for life in reversed(self.lives) if life.started <= when), None)
            thirds.setdefault(life.third(when) if life else None, []).append(seconds)
        return thirds.get(0, []), thirds.get(2, [])


@dataclass(frozen=True)
class Limit:
    """How much worse the last third of the daemon's lives may be than the first: so many times, and so many seconds
    more. The machine is shared and its pauses hit where they like, so the slowest calls are allowed the most; a median
    of many calls hardly moves on a busy machine."""
    name: str
    part: float
    fewest: int  # calls in either third; of fewer, nothing can be said
    times: float
    more: float


LIMITS = (Limit("p99", 0.99, 20, 4, 0.5), Limit("median", 0.5, 20, 2, 0.05), Limit("median", 0.5, 200, 1.5, 0.002))

MEMORY_GROWTH = 192  # KiB between the medians of the outer thirds of a life
TREND_GROWTH = 96  # KiB, when almost every sample is above those before it
TREND = 0.8  # of all pairs of samples, the part in which the later is the larger
FEWEST_RESTS = 6


def latency_drift(records: Records) -> list[str]:
    found = []
    for name, kind in records.kinds.items():
        if not kind.call:
            continue
        first, last = records.outer_thirds(kind)
        for limit in LIMITS:
            if min(len(first), len(last)) < limit.fewest:
                continue
            before, after = percentile(first, limit.part), percentile(last, limit.part)
            if after > limit.times * before + limit.more:
                found.append(f"{name}: the {limit.name} rose from {before * 1000:.1f} ms in the first third of the "
                             f"daemon's lives to {after * 1000:.1f} ms in the last")
    return found


def memory_growth(life: Life, name: str) -> float:
    """KiB between the medians of the samples at rest in the outer thirds of a life."""
    first, last = ([getattr(sample, name) for sample in third] for third in life.outer_thirds())
    return statistics.median(last) - statistics.median(first)


def rising_pairs(values: list[int]) -> float:
    """Of all pairs of values, the part in which the later is the larger."""
    pairs = [(early, late) for at, early in enumerate(values) for late in values[at + 1:]]
    return sum(early < late for early, late in pairs) / len(pairs)


def memory_drift(life: Life) -> list[str]:
    found = []
    if len(life.rest) < FEWEST_RESTS:
        return found
    for name in ("resident", "private"):
        grown = memory_growth(life, name)
        rising = rising_pairs([getattr(sample, name) for sample in life.rest])
        if grown > MEMORY_GROWTH or grown > TREND_GROWTH and rising > TREND:
            found.append(f"life {life.number}: {name} memory at rest grew by {grown:.0f} KiB from the first to the "
                         f"last third; {rising:.0%} of its steps rise")
    return found
