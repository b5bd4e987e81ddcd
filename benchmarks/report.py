"""The measurements as one page for a browser: bars with their spread, and curves. It needs nothing from anywhere."""

from __future__ import annotations

import math
from html import escape
from pathlib import Path

from benchmarks.model import Measured, MeasuredCurve, Report
from benchmarks.stats import Spread, spread
from benchmarks.text import (VERDICTS, about, count, curve_goal, summary, told, told_goal, told_growth, told_ratio,
                             told_spread)

STYLE = """
:root { color-scheme: light dark; --page: #fff; --card: #f6f7f9; --text: #1c2128; --soft: #59636e; --line: #d0d7de;
  --ours: #0b63c4; --peer: #97a0aa; --part: #c98a1b; --good: #1a7f37; --bad: #c62a1f; }
@media (prefers-color-scheme: dark) { :root { --page: #12161b; --card: #1b2027; --text: #e6eaef; --soft: #9aa4af;
  --line: #343b44; --ours: #58a6ff; --peer: #6c7681; --part: #d9a441; --good: #4cc26a; --bad: #ff7b72; } }
body { margin: 0 auto; padding: 1rem; max-width: 72rem; background: var(--page); color: var(--text);
  font: 16px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: .2rem 0; } h2 { font-size: 1.2rem; margin: 2rem 0 .6rem; }
h3 { font-size: 1rem; margin: 0; overflow-wrap: anywhere; } p { margin: .3rem 0; } .soft { color: var(--soft); }
.cards { display: grid; gap: .8rem; grid-template-columns: repeat(auto-fill, minmax(min(100%, 21rem), 1fr)); }
.card { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; padding: .8rem; min-width: 0; }
.head { display: flex; justify-content: space-between; gap: .5rem; align-items: baseline; }
.verdict { font-size: .85rem; font-weight: 600; white-space: nowrap; color: var(--soft); }
.reached { color: var(--good); } .MISSED { color: var(--bad); }
.bar { margin-top: .45rem; font-size: .85rem; }
.name { display: flex; justify-content: space-between; gap: .5rem; flex-wrap: wrap; }
.track { position: relative; height: .8rem; background: var(--page); border-radius: .2rem; overflow: hidden; }
.fill { height: 100%; background: var(--peer); } .ours .fill { background: var(--ours); }
.part .fill { background: var(--part); }
.spread { position: absolute; top: 35%; height: 30%; background: var(--text); min-width: 2px; }
.off { position: absolute; right: 0; top: 0; height: 100%; width: 1.1rem; color: var(--text); text-align: right;
  line-height: .8rem; background: linear-gradient(90deg, transparent, var(--page) 60%); }
svg { width: 100%; height: auto; display: block; margin-top: .4rem; }
svg text { fill: var(--soft); font: 11px system-ui, sans-serif; } svg .axis { stroke: var(--line); }
svg .curve { stroke: var(--ours); fill: none; stroke-width: 2; }
svg .whisker { stroke: var(--text); stroke-width: 1.5; }
svg circle { fill: var(--ours); } details { font-size: .85rem; margin-top: .4rem; } summary { cursor: pointer; }
table { border-collapse: collapse; width: 100%; } td { padding: .1rem .3rem .1rem 0; } td + td { text-align: right; }
"""

WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 340, 190, 58, 12, 12, 28


def page(report: Report) -> str:
    rows = "\n".join(map(row_card, report.rows))
    curves = "\n".join(map(curve_card, report.curves))
    sections = [f"<h2>{title}</h2>\n<p class=\"soft\">{text}</p>\n<div class=\"cards\">\n{cards}\n</div>"
                for title, text, cards in (
                    ("Beside others", "Less is better. A bar is the median, the mark on it spans the quartiles; a bar "
                     "that ends in » is longer than its place.", rows),
                    ("How the cost grows", "A dot is the median, the mark on it spans the quartiles.", curves))
                if cards]
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>ZELRmUp, measured</title>
<style>{STYLE}</style>
</head>
<body>
<h1>ZELRmUp, measured</h1>
<p class="soft">{escape(about(report))}</p>
<p>{escape(summary(report))}</p>
{''.join(sections)}
</body>
</html>
"""


def head(each: Measured | MeasuredCurve, what: str) -> str:
    verdict = VERDICTS[each.reached()]
    return f"<div class=\"head\"><h3>{escape(each.key)}</h3><span class=\"verdict {verdict}\">{verdict}</span></div>" \
           f"<p class=\"soft\">{escape(what)}</p>"


def floor(each: Measured | MeasuredCurve) -> str:
    return f"<details><summary>What sets the floor</summary>{escape(each.floor)}</details>" if each.floor else ""


def row_card(row: Measured) -> str:
    if row.failed:
        return f"<article class=\"card\">{head(row, row.what)}<p>Not measured: {escape(row.failed)}</p></article>"
    bars = [("ours", "ours", row.spread())]
    bars += sorted((("peer", name, spread(values)) for name, values in row.peers.items() if values),
                   key=lambda bar: bar[2].median)
    bars += [("part", f"of it: {name}", spread(values)) for name, values in row.parts.items() if values]
    # Our nearest peer fills the place; others may be hundreds of times longer.
    longest = 1.25 * max(each.high for _, _, each in bars[:2]) or 1
    texts = [told_ratio(row), f"goal {told_goal(row.goal, row.unit)}" if row.goal else ""]
    return f"<article class=\"card\">{head(row, row.what)}{''.join(bar(*each, longest, row.unit) for each in bars)}" \
           f"<p>{escape(', '.join(filter(None, texts)))}</p>{floor(row)}</article>"


def bar(kind: str, name: str, values: Spread, longest: float, unit: str) -> str:
    def percent(value: float) -> float:
        return min(100 * value / longest, 100)

    off = "<span class=\"off\">»</span>" if values.median > longest else \
        f"<div class=\"spread\" style=\"left:{percent(values.low):.1f}%;" \
        f"width:{percent(values.high) - percent(values.low):.1f}%\"></div>"
    return f"<div class=\"bar {kind}\"><div class=\"name\"><span>{escape(name)}</span>" \
           f"<span>{escape(told_spread(values, unit))}</span></div><div class=\"track\">" \
           f"<div class=\"fill\" style=\"width:{percent(values.median):.1f}%\"></div>{off}</div></div>"


def curve_card(curve: MeasuredCurve) -> str:
    what = f"{curve.what}, by {curve.of}"
    if curve.failed or not curve.points:
        return f"<article class=\"card\">{head(curve, what)}<p>Not measured: {escape(curve.failed)}</p></article>"
    cells = "".join(f"<tr><td>{count(size)}</td><td>{escape(told_spread(spread(values), curve.unit))}</td></tr>"
                    for size, values in curve.points)
    return f"<article class=\"card\">{head(curve, what)}{chart(curve)}<p>{escape(told_growth(curve))}; goal " \
           f"{curve_goal(curve)}</p><details><summary>Values</summary><table>{cells}</table></details>{floor(curve)}" \
           "</article>"


class Axis:
    """Where a value stands, on a linear axis from 0 or, when the values are far apart, on a logarithmic one."""

    def __init__(self, values: list[float], start: float, end: float):
        self.values, self._start, self._end = values, start, end
        self._least, self._most = min(values), max(values) or 1
        self.logarithmic = self._least > 0 and self._most / self._least > 20

    def place(self, value: float) -> float:
        share = value / self._most
        if self.logarithmic:
            share = math.log(value / self._least) / math.log(self._most / self._least)
        return self._start + (self._end - self._start) * share

    def marks(self, distance: float) -> list[float]:
        """Values to write at the axis, of those that it was made for, from the largest down; they do not touch."""
        chosen: list[float] = []
        for value in sorted(set(self.values) | (set() if self.logarithmic else {0.0}), reverse=True):
            if not chosen or abs(self.place(value) - self.place(chosen[-1])) >= distance:
                chosen.append(value)
        return chosen


def chart(curve: MeasuredCurve) -> str:
    sizes = [float(size) for size, _ in curve.points]
    spreads = [spread(values) for _, values in curve.points]
    across = Axis(sizes, LEFT, WIDTH - RIGHT)
    up = Axis([each.median for each in spreads], HEIGHT - BOTTOM, TOP)
    places = [(across.place(size), up.place(each.median)) for size, each in zip(sizes, spreads)]
    lines = [f"<text x=\"{LEFT - 5}\" y=\"{up.place(mark) + 4:.0f}\" text-anchor=\"end\">"
             f"{escape(told(mark, curve.unit))}</text>"
             f"<line class=\"axis\" x1=\"{LEFT}\" x2=\"{WIDTH - RIGHT}\" y1=\"{up.place(mark):.1f}\" "
             f"y2=\"{up.place(mark):.1f}\"/>" for mark in up.marks(16)]
    lines += [f"<text x=\"{min(across.place(mark), WIDTH - 22):.0f}\" y=\"{HEIGHT - 10}\" text-anchor=\"middle\">"
              f"{count(mark)}</text>" for mark in across.marks(52)]
    lines.append(f"<polyline class=\"curve\" points=\"{' '.join(f'{x:.1f},{y:.1f}' for x, y in places)}\"/>")
    for (x, y), each in zip(places, spreads):
        low, high = (min(max(up.place(max(value, 1e-12)), TOP - 8), HEIGHT - BOTTOM) for value in (each.low, each.high))
        lines.append(f"<line class=\"whisker\" x1=\"{x:.1f}\" x2=\"{x:.1f}\" y1=\"{low:.1f}\" y2=\"{high:.1f}\"/>"
                     f"<circle cx=\"{x:.1f}\" cy=\"{y:.1f}\" r=\"3\"/>")
    logarithmic = " and ".join(name for name, axis in (("across", across), ("up", up)) if axis.logarithmic)
    scales = f"<p class=\"soft\">Logarithmic {logarithmic}.</p>" if logarithmic else ""
    return f"<svg viewBox=\"0 0 {WIDTH} {HEIGHT}\" role=\"img\" aria-label=\"{escape(curve.what)} by " \
           f"{escape(curve.of)}: {escape(told_growth(curve))}\">{''.join(lines)}</svg>{scales}"


def write_report(report: Report, path: Path) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(page(report))
