"""Measurements in words: the table on a terminal of 80 columns, and as Markdown."""

from __future__ import annotations

from collections.abc import Sequence

from benchmarks.model import BYTES, NUMBER, PER_SECOND, SECONDS, SHARE, Goal, Measured, MeasuredCurve, Report
from benchmarks.stats import Spread, spread

SCALES = {
    SECONDS: (("s", 1), ("ms", 1e-3), ("µs", 1e-6), ("ns", 1e-9)),
    BYTES: (("GiB", 1 << 30), ("MiB", 1 << 20), ("KiB", 1 << 10), ("B", 1)),
    PER_SECOND: (("/s", 1),),
    SHARE: (("%", 0.01),),
    NUMBER: (("", 1),),
}
VERDICTS = {True: "reached", False: "MISSED", None: "stated"}


def scale(value: float, unit: str) -> tuple[str, float]:
    """The name and the size of the unit in which a value is told."""
    scales = SCALES[unit]
    return next((each for each in scales if abs(value) >= each[1]), scales[-1])


def digits(value: float) -> str:
    """Three of them, without an exponent."""
    if abs(value) >= 100:
        return f"{value:.0f}"
    return f"{value:.2g}" if abs(value) < 0.01 else f"{value:.3g}"


def told(value: float, unit: str) -> str:
    name, size = scale(value, unit)
    return f"{digits(value / size)} {name}".rstrip()


def told_spread(values: Spread, unit: str) -> str:
    """The median and the quartiles, in one unit."""
    name, size = scale(values.median, unit)
    low, median, high = (digits(value / size) for value in (values.low, values.median, values.high))
    return f"{median} {name}".rstrip() + ("" if low == high else f" ({low}-{high})")


def told_goal(goal: Goal | None, unit: str) -> str:
    if goal is None:
        return ""
    number = f"{goal.value:g} x"
    return {"faster": f">= {number}", "within": f"<= {number}", "at most": f"<= {told(goal.value, unit)}",
            "more": f"<= +{told(goal.value, unit)}", "below": "below"}[goal.kind]


def told_ratio(row: Measured) -> str:
    peer, ratio = row.peer(), row.ratio()
    if row.goal and row.goal.kind == "more" and peer:
        difference = row.spread().median - peer[1].median
        return f"{'+' if difference >= 0 else '-'}{told(abs(difference), row.unit)}"
    return "" if ratio is None else f"{ratio:.3g} x"


def told_rate(row: Measured, seconds: float) -> str:
    return f"({told(row.moved / seconds, BYTES)}/s)" if row.moved and seconds else ""


def peers(row: Measured) -> str:
    others = sorted((spread(values).median, name) for name, values in row.peers.items() if values)
    text = ", ".join(" ".join(filter(None, (name, told(median, row.unit), told_rate(row, median))))
                     for median, name in others)
    if row.moved:
        text = f"ours {told_rate(row, row.spread().median)}{', ' if text else ''}{text}"
    inside = ", ".join(f"{name} {told(spread(values).median, row.unit)}"
                       for name, values in row.parts.items() if values)
    return text + (f"{'; ' if text else ''}of it: {inside}" if inside else "")


def ours(row: Measured) -> str:
    return "not measured" if row.failed else told_spread(row.spread(), row.unit)


def told_growth(curve: MeasuredCurve) -> str:
    grown = curve.growth()
    if grown is None:
        return "not measured"
    return f"{grown.kind}, {told(grown.slope, curve.unit)} each" if "worse" in grown.kind or grown.kind == "linear" \
        else grown.kind


def count(number: float) -> str:
    return f"{number:,.0f}"


def told_points(curve: MeasuredCurve) -> str:
    return ", ".join(f"{count(size)}: {told(spread(values).median, curve.unit)}" for size, values in curve.points)


def curve_goal(curve: MeasuredCurve) -> str:
    return "constant" if curve.steady else "at most linear"


def wrap(text: str, indent: str = "      ", width: int = 80) -> list[str]:
    lines, line = [], indent
    for word in text.split():
        if len(line) + len(word) >= width and line.strip():
            lines.append(line.rstrip())
            line = indent
        line += word + " "
    return [*lines, line.rstrip()] if line.strip() else lines


def row_lines(row: Measured) -> list[str]:
    head = f"  {row.key:14} {ours(row):24} {told_ratio(row):>8} {told_goal(row.goal, row.unit):>11}  " \
           f"{VERDICTS[row.reached()]}"
    return [head.rstrip(), *wrap(f"{row.what}."), *wrap(row.failed or peers(row)), *explained(row)]


def explained(row: Measured | MeasuredCurve) -> list[str]:
    return wrap(f"Why: {row.floor}") if row.floor and row.reached() is False else []


def curve_lines(curve: MeasuredCurve) -> list[str]:
    head = f"  {curve.key:22} {told_growth(curve):32} {curve_goal(curve):>12}  {VERDICTS[curve.reached()]}"
    return [head, *wrap(f"{curve.what}, by {curve.of}."), *wrap(curve.failed or told_points(curve)), *explained(curve)]


def about(report: Report) -> str:
    return ", ".join(report.about.values())


def table(report: Report) -> str:
    lines = wrap(about(report), "")
    if report.rows:
        lines += ["", f"  {'row':14} {'ours (quartiles)':24} {'beside':>8} {'goal':>11}"]
    for row in report.rows:
        lines += row_lines(row)
    if report.curves:
        lines += ["", f"  {'curve':22} {'growth':32} {'goal':>12}"]
    for curve in report.curves:
        lines += curve_lines(curve)
    return "\n".join([*lines, "", summary(report)])


def summary(report: Report) -> str:
    missed = report.missed()
    goals = sum(row.reached() is not None for row in report.rows) + len(report.curves)
    text = f"{goals - len(missed)} of {goals} goals reached"
    return "\n".join(wrap(text + (f"; missed: {', '.join(missed)}" if missed else ""), ""))


# Markdown

def markdown_table(heads: Sequence[str], rows: Sequence[Sequence[str]]) -> list[str]:
    return ["| " + " | ".join(row) + " |" for row in (heads, ["---"] * len(heads), *rows)]


def markdown(report: Report) -> str:
    """The tables for docs/performance.md."""
    rows = [(f"`{row.key}`", row.what, ours(row), row.failed or peers(row), told_ratio(row),
             told_goal(row.goal, row.unit), VERDICTS[row.reached()]) for row in report.rows]
    curves = [(f"`{curve.key}`", f"{curve.what}, by {curve.of}", curve.failed or told_points(curve),
               told_growth(curve), curve_goal(curve), VERDICTS[curve.reached()]) for curve in report.curves]
    floors = [f"- `{each.key}`: {each.floor}" for each in (*report.rows, *report.curves) if each.floor]
    return "\n".join([
        f"Measured on {about(report)}. {summary(report)}.".replace("\n", " "), "",
        *markdown_table(("row", "what", "ours (quartiles)", "beside", "ratio", "goal", ""), rows), "",
        *markdown_table(("curve", "what", "medians", "growth", "goal", ""), curves), "",
        *(["What sets the floor:", "", *floors] if floors else [])])
