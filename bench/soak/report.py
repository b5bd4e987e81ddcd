"""The tables at the end of a run."""

from __future__ import annotations

from rich.console import Console
from rich.table import Table

from bench.soak.records import Life, Records, growth, percentile, smallest_leak


def milliseconds(values: list[float], part: float) -> str:
    return f"{percentile(values, part) * 1000:.1f}" if values else ""


def show(records: Records, endings: list[str], console: Console) -> None:
    console.print(operations(records))
    console.print(lives(records))
    console.print(ends(records, endings))


def operations(records: Records) -> Table:
    table = Table("operation", title="What was done, in milliseconds")
    for name in ("done", "failed", "p50", "p99", "max", "a leak shows\nfrom bytes"):
        table.add_column(name, justify="right")
    for name, kind in sorted(records.kinds.items()):
        seconds = [taken for _, taken in kind.taken]
        table.add_row(name, str(kind.done), f"[bold red]{kind.failed}" if kind.failed else "0",
                      milliseconds(seconds, 0.5), milliseconds(seconds, 0.99), milliseconds(seconds, 1),
                      str(smallest_leak(records, kind) or ""))
    return table


def lives(records: Records) -> Table:
    table = Table("life", "ended by", title="The daemon: at rest after its warm-up, at rest at the end, and its most")
    for name in ("rests", "descriptors", "threads", "resident\nKiB", "heap at rest\nbytes (growth)", "blocks\n(growth)"):
        table.add_column(name, justify="right", no_wrap=True)
    for life in records.lives:
        table.add_row(str(life.number), life.end, str(len(life.rest)),
                      *(three(life, name) for name in ("descriptors", "threads", "resident")),
                      *(grown(life, name) for name in ("heap", "blocks")))
    return table


def three(life: Life, name: str) -> str:
    """The value after the warm-up, at the end and at its most."""
    samples = [*([life.rest[0], life.rest[-1]] if life.rest else []), *([life.most] if life.most else [])]
    return " / ".join(str(getattr(sample, name)) for sample in samples)


def grown(life: Life, name: str) -> str:
    return f"{getattr(life.rest[-1], name)} ({growth(life, name):+})" if life.rest else ""


def ends(records: Records, endings: list[str]) -> Table:
    table = Table("the daemon ended by design", title="Ends by design")
    table.add_column("times", justify="right")
    for name in endings:
        table.add_row(name, str(sum(life.end == name for life in records.lives)))
    return table
