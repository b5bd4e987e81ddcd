"""What the benchmarks have in common: one row of the closing table, and how programs are run and timed."""

from __future__ import annotations

import json
import subprocess
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from bench.sandbox import PROJECT

BIN = PROJECT / "build/release/bin"


@dataclass(frozen=True)
class Row:
    """One measure. `met` is None where there is no goal."""
    what: str
    ours: str
    peer: str = ""
    ratio: str = ""
    goal: str = ""
    met: bool | None = None


def nanoseconds(value: float) -> str:
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value:.3g} ns"


def megabytes(count: float) -> str:
    return f"{count / (1 << 20):.1f} MiB"


def run(*command: str | Path, timeout: float = 300) -> str:
    """What a program prints; a status other than 0 raises."""
    result = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with status {result.returncode}: {result.stdout}{result.stderr}")
    return result.stdout


def google_benchmark(*command: str | Path, repetitions: int) -> dict[str, float]:
    """The least nanoseconds of each benchmark of a program over its repetitions."""
    output = run(*command, "--benchmark_filter=(/30|^[^/]*)$", "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
                 "--benchmark_min_time=0.002")
    least: dict[str, float] = {}
    scale = {"ns": 1, "us": 1e3, "ms": 1e6}
    runs: list[dict[str, Any]] = json.loads(output)["benchmarks"]
    for measured in runs:
        if measured.get("error_occurred"):
            raise RuntimeError(f"{measured['name']}: {measured['error_message']}")
        if measured["run_type"] == "iteration":
            value = measured["real_time"] * scale[measured["time_unit"]]
            name = measured["run_name"].removesuffix("/30")
            least[name] = min(value, least.get(name, value))
    return least


def best(work: Callable[[], Any], rounds: int, count: int = 5) -> float:
    """The least nanoseconds of one call over many rounds."""
    least = float("inf")
    for _ in range(rounds):
        start = time.perf_counter_ns()
        for _ in range(count):
            work()
        least = min(least, (time.perf_counter_ns() - start) / count)
    return least
