"""Two runs beside each other: what got slower or larger beyond the spread."""

from __future__ import annotations

from collections.abc import Iterator

from benchmarks.model import Report
from benchmarks.stats import Spread, spread
from benchmarks.text import count, digits, told_spread


def figures(report: Report) -> Iterator[tuple[str, str, Spread]]:
    """Name, unit and spread of everything of ours in a report."""
    for row in report.rows:
        if not row.failed:
            yield row.key, row.unit, row.spread()
    for curve in report.curves:
        for size, values in curve.points:
            yield f"{curve.key}, {count(size)} {curve.of}", curve.unit, spread(values)


def machine_change(before: Report, after: Report, key: str) -> str:
    """What the row's peer, which did not change, says about the two machines."""
    rows = {each.key: each for each in before.rows}, {each.key: each for each in after.rows}
    pair = tuple(side[key].peer() if key in side else None for side in rows)
    if pair[0] is None or pair[1] is None or pair[0][1].median == 0:
        return ""
    return f"; its peer {digits(pair[1][1].median / pair[0][1].median)} x"


def compare(before: Report, after: Report) -> tuple[str, bool]:
    """The lines to print, and whether anything got worse: even its lower quartile is above the upper one of before."""
    known = {name: (unit, values) for name, unit, values in figures(before)}
    worse, better, same = [], [], 0
    for name, unit, now in figures(after):
        if name not in known:
            continue
        then = known[name][1]
        if then.median == 0:
            same += 1
            continue
        line = (f"  {name}: {told_spread(then, unit)} -> {told_spread(now, unit)}, {digits(now.median / then.median)} x"
                f"{machine_change(before, after, name)}")
        if now.low > then.high:
            worse.append(line)
        elif now.high < then.low:
            better.append(line)
        else:
            same += 1
    lines = [f"{len(worse)} worse beyond the spread", *worse, f"{len(better)} better beyond the spread", *better,
             f"{same} within the spread"]
    return "\n".join(lines), bool(worse)
