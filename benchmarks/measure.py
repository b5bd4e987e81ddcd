"""How programs are run and timed."""

from __future__ import annotations

import json
import statistics
import subprocess
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

from bench.sandbox import PROJECT

BIN = PROJECT / "build/release/bin"
SCALE = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}


class MissingPeer(RuntimeError):
    """A peer is not there and cannot be had; its row goes on without it."""


def run(*command: str | Path, timeout: float = 300) -> str:
    """What a program prints; a status other than 0 raises."""
    result = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with status {result.returncode}: {result.stdout}{result.stderr}")
    return result.stdout


def google_benchmark(command: Sequence[str | Path], name: str, repetitions: int = 9) -> list[float]:
    """The seconds of one benchmark of a program, a value for each repetition."""
    output = run(*command, f"--benchmark_filter=^{name}$", "--benchmark_format=json", "--benchmark_min_time=0.02",
                 f"--benchmark_repetitions={repetitions}")
    runs: list[dict[str, Any]] = json.loads(output)["benchmarks"]
    found = []
    for measured in runs:
        if measured.get("error_occurred"):
            raise RuntimeError(f"{measured['name']}: {measured['error_message']}")
        if measured["run_type"] == "iteration":
            found.append(measured["real_time"] * SCALE[measured["time_unit"]])
    if not found:
        raise RuntimeError(f"{command[-1]} has no benchmark {name}")
    return found


def seconds(work: Callable[[], Any], least: float = 0.1) -> float:
    """The median time of one call, over as many calls as take `least` seconds."""
    times: list[float] = []
    while sum(times) < least or len(times) < 3:
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return statistics.median(times)
