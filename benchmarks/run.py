"""What `./zel bench` runs once everything is built; `--help` says how.

Ours and the peers are measured in turns, so that a slow or busy moment of the machine meets everybody, and compared by
their medians.
"""

from __future__ import annotations

import argparse
import json
import os
import platform
import subprocess
import sys
import time
from collections.abc import Callable, Mapping
from datetime import datetime
from pathlib import Path
from typing import Any

from bench.sandbox import PROJECT
from benchmarks import gateway, hl7_library, idle, machines, results, service, sessions, update
from benchmarks.compare import compare
from benchmarks.measure import MissingPeer
from benchmarks.model import Group, Measured, MeasuredCurve, Report, Row, Sweep, blank, blank_curve
from benchmarks.options import parser
from benchmarks.report import write_report
from benchmarks.text import curve_lines, markdown, row_lines, table, wrap

GROUPS = [hl7_library.GROUP, service.GROUP, service.START, results.GROUP, update.GROUP, sessions.GROUP, idle.GROUP,
          gateway.GROUP, machines.SIZES, machines.EMULATED]

FOLDER = PROJECT / "build/bench"
LAST = FOLDER / "last.json"
REPORT = FOLDER / "report.html"
PAGE = PROJECT / "docs/performance.md"
BEGIN, END = "<!-- measured -->\n", "<!-- /measured -->\n"
QUICK_TURNS = 3

def chosen_keys(names: list[str]) -> set[str]:
    """The rows and curves that are named, alone or by their group. Ends the program at an unknown name."""
    groups = {group.name: group.keys() for group in GROUPS}
    single = {key for keys in groups.values() for key in keys}
    unknown = [name for name in names if name not in groups and name not in single]
    if unknown:
        print(f"zel: bench does not know '{unknown[0]}'; see ./zel bench --list", file=sys.stderr)
        sys.exit(2)
    return {key for name in names for key in groups.get(name, [name])} if names else single


def list_names() -> None:
    for group in GROUPS:
        print(group.name)
        told = [(row.key, row.what) for row in group.rows]
        told += [(curve.key, f"{curve.what}, by {curve.of}") for sweep in group.sweeps for curve in sweep.curves]
        for key, what in told:
            print(f"   {key:22}" + "\n".join(wrap(what, " " * 26))[25:])


def needs(names: list[str]) -> list[str]:
    """What `./zel` provides for what is named."""
    keys = chosen_keys(names)
    return sorted({need for group in GROUPS if keys & set(group.keys()) for need in group.needs})


class Progress:
    """One line that is rewritten on a terminal, else nothing until a row is done."""

    def __init__(self, total: int):
        self._total, self._done = total, 0

    def tell(self, key: str, doing: str) -> None:
        if sys.stdout.isatty():
            print(f"\r\033[K[{self._done + 1:2}/{self._total}] {key}: {doing}"[:83], end="", flush=True)

    def done(self, lines: list[str]) -> None:
        self._done += 1
        cleared = "\r\033[K" if sys.stdout.isatty() else ""
        line = f"[{self._done:2}/{self._total}] {lines[0].strip()}"
        print(cleared + (line if len(line) < 80 else " ".join(line.split())), flush=True)


class Run:
    def __init__(self, keys: set[str], quick: bool):
        self._keys, self._quick = keys, quick
        self._progress = Progress(len(keys))
        self.report = Report(surroundings(quick))

    def group(self, group: Group) -> None:
        rows = [row for row in group.rows if row.key in self._keys]
        sweeps = [sweep for sweep in group.sweeps if any(curve.key in self._keys for curve in sweep.curves)]
        if not rows and not sweeps:
            return
        self._progress.tell(group.name, "is made ready")
        try:
            with group.open(self._quick) as opened:
                for row in rows:
                    self._row(row, opened)
                for sweep in sweeps:
                    self._sweep(sweep, opened)
        except Exception as error:
            self._not_opened(rows, sweeps, told_error(error))

    def _not_opened(self, rows: list[Row], sweeps: list[Sweep], reason: str) -> None:
        told = {each.key for each in (*self.report.rows, *self.report.curves)}
        for row in rows:
            if row.key not in told:
                self._keep(blank(row), reason)
        for sweep in sweeps:
            for curve in sweep.curves:
                if curve.key in self._keys and curve.key not in told:
                    self._keep_curve(blank_curve(curve), reason)

    def _row(self, row: Row, opened: Any) -> None:
        result, reason = blank(row), ""
        turns = min(row.turns, QUICK_TURNS) if self._quick else row.turns
        try:
            result.moved = row.moved(opened) if row.moved else 0
            for turn in range(turns):
                self._progress.tell(row.key, f"turn {turn + 1} of {turns}")
                result.ours.append(row.ours(opened))
                self._others(row.peers, result.peers, opened)
                self._others(row.parts, result.parts, opened)
        except Exception as error:  # whatever it is, the others are still measured
            reason = told_error(error)
        self._keep(result, reason)

    def _others(self, measures: Mapping[str, Callable[[Any], float]], values: dict[str, list[float]],
                opened: Any) -> None:
        for name in [name for name in measures if name in values]:
            try:
                values[name].append(measures[name](opened))
            except MissingPeer as error:
                print("\n".join(wrap(f"going on without {name}: {error}", "   ")))
                del values[name]

    def _sweep(self, sweep: Sweep, opened: Any) -> None:
        results = {curve.key: blank_curve(curve) for curve in sweep.curves if curve.key in self._keys}
        sizes, reason = sweep.sizes[:-2] if self._quick else sweep.sizes, ""
        try:
            for size in sizes:
                self._progress.tell(", ".join(results), f"{size:,} {sweep.curves[0].of}")
                for key, values in sweep.at(opened, size).items():
                    if key in results:
                        results[key].points.append((size, list(values)))
        except Exception as error:  # whatever it is, the others are still measured
            reason = told_error(error)
        for result in results.values():
            self._keep_curve(result, reason)

    def _keep(self, row: Measured, reason: str) -> None:
        row.failed = " ".join(reason.split())
        self.report.rows.append(row)
        self._progress.done(row_lines(row))

    def _keep_curve(self, curve: MeasuredCurve, reason: str) -> None:
        curve.failed = " ".join(reason.split())
        self.report.curves.append(curve)
        self._progress.done(curve_lines(curve))


def told_error(error: Exception) -> str:
    return f"{type(error).__name__}: {error}"


def surroundings(quick: bool) -> dict[str, str]:
    cpu = next((line.split(":", 1)[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                if line.startswith("model name")), platform.machine())
    git = subprocess.run(["git", "describe", "--always", "--dirty"], cwd=PROJECT, capture_output=True, text=True)
    about = {"date": f"{datetime.now():%Y-%m-%d %H:%M}", "cpu": f"{cpu} ({os.cpu_count()} cores)",
             "system": f"Linux {platform.release()}", "sources": f"sources {git.stdout.strip() or 'without git'}"}
    return about | ({"quick": "quick run, figures are rough"} if quick else {})


def load(path: Path) -> Report:
    try:
        return Report.from_json(json.loads(path.read_text()))
    except (OSError, ValueError, KeyError, TypeError) as error:
        print("\n".join(wrap(f"zel: {path} is no file of ./zel bench --json: {error}", "")), file=sys.stderr)
        sys.exit(2)


def save(report: Report, path: Path) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps(report.as_json(), indent=1) + "\n")


def put_into_page(report: Report) -> None:
    before, rest = PAGE.read_text().split(BEGIN)
    PAGE.write_text(f"{before}{BEGIN}{markdown(report)}\n{END}{rest.split(END)[1]}")


def measure(arguments: argparse.Namespace) -> int:
    os.environ["ZEL_PRESET"] = "release"
    started = time.monotonic()
    run = Run(chosen_keys(arguments.words), arguments.quick)
    report, interrupted = run.report, False
    try:
        for group in GROUPS:
            run.group(group)
    except KeyboardInterrupt:
        interrupted = True
    report.about["took"] = f"{'interrupted after' if interrupted else 'took'} {time.monotonic() - started:.0f} s"
    for path in filter(None, (LAST, arguments.json)):
        save(report, path)
    show(report)
    if arguments.markdown and not interrupted:
        put_into_page(report)
    return 130 if interrupted else 1 if report.missed() else 0


def show(report: Report) -> None:
    print("\n" + table(report))
    write_report(report, REPORT)
    print(f"Report: {os.path.relpath(REPORT)}")


def main() -> int:
    arguments = parser().parse_args()
    words = arguments.words
    if arguments.needs:
        print(" ".join([] if arguments.list or words[:1] in (["show"], ["compare"]) else needs(words)))
        return 0
    if arguments.list:
        list_names()
        return 0
    if words[:1] == ["show"] and len(words) <= 2:
        show(load(Path(words[1]) if len(words) == 2 else LAST))
        return 0
    if words[:1] == ["compare"] and len(words) == 3:
        text, worse = compare(load(Path(words[1])), load(Path(words[2])))
        print(text)
        return 1 if worse else 0
    return measure(arguments)


if __name__ == "__main__":
    sys.exit(main())
