"""What a run counts: operations by kind with the time they took, failures, and the daemon's lives."""

from __future__ import annotations

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
    heap: int  # bytes in use
    blocks: int  # of the heap in use

    def most(self, other: Sample) -> Sample:
        return Sample(self.time, *(max(getattr(self, name), getattr(other, name))
                                   for name in ("descriptors", "threads", "resident", "heap", "blocks")))


@dataclass
class Life:
    """From a start of the daemon to its end."""
    number: int
    started: float
    ended: float = 0
    end: str = ""
    most: Sample | None = None
    fresh: Sample | None = None  # at rest before the warm-up
    rest: list[Sample] = field(default_factory=list)  # at rest; the first one after the warm-up

    def third(self, moment: float) -> int | None:
        """0, 1 or 2 for a moment between the first and the last sample at rest."""
        if len(self.rest) < 2 or not self.rest[0].time < moment < self.rest[-1].time:
            return None
        return min(int(3 * (moment - self.rest[0].time) / (self.rest[-1].time - self.rest[0].time)), 2)


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

# What the heap at rest may differ by: some texts that are kept have a digit more. It stays the same otherwise.
HEAP_GROWTH = 512  # bytes
BLOCK_GROWTH = 3


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


def growth(life: Life, name: str) -> int:
    """From the first rest of a life to its last."""
    return getattr(life.rest[-1], name) - getattr(life.rest[0], name) if life.rest else 0


def memory_drift(life: Life) -> list[str]:
    return [f"life {life.number}: the heap at rest grew by {growth(life, name)} {unit}"
            for name, unit, limit in (("heap", "bytes", HEAP_GROWTH), ("blocks", "blocks", BLOCK_GROWTH))
            if growth(life, name) > limit]


def smallest_leak(records: Records, kind: Kind) -> int | None:
    """Bytes that one operation of a kind must have lost for a life to be told to have grown; none when no life tells."""
    most = max((sum(life.rest[0].time < when < life.rest[-1].time for when, _ in kind.taken)
                for life in records.lives if life.rest), default=0)
    return HEAP_GROWTH // most + 1 if most else None
