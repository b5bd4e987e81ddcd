"""The benchmarks: what `./zel bench` runs once everything is built.

Every figure stands beside a peer's that was measured in the same run, so that a slow or busy machine slows both. With
names as arguments (hl7_library, service, update) only those are measured. Status 1 when a goal is missed.
"""

from __future__ import annotations

import os
import sys

from rich.console import Console
from rich.table import Table

from benchmarks import hl7_library, service, update
from benchmarks.measure import Row

MODULES = {"hl7_library": hl7_library, "service": service, "update": update}


def show(rows: list[Row], console: Console) -> None:
    table = Table("measure", "ours", "peer", "ratio", "goal", "met", title="ZELRmUp beside its peers, one run")
    for row in rows:
        met = "" if row.met is None else "[green]yes" if row.met else "[bold red]no"
        table.add_row(row.what, row.ours, row.peer, row.ratio, row.goal, met)
    console.print(table)


def main() -> int:
    os.environ["ZEL_PRESET"] = "release"
    chosen = sys.argv[1:] or list(MODULES)
    unknown = [name for name in chosen if name not in MODULES]
    if unknown:
        print(f"no such benchmark: {', '.join(unknown)}; there are {', '.join(MODULES)}", file=sys.stderr)
        return 2
    console = Console(width=None if sys.stdout.isatty() else 150)
    rows: list[Row] = []
    for name in chosen:
        console.print(f"measuring {name} ...")
        rows += MODULES[name].measure()
    show(rows, console)
    missed = [row.what for row in rows if row.met is False]
    console.print(f"{sum(row.met is True for row in rows)} goals met, {len(missed)} missed")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
