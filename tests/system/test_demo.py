"""What a newcomer sees first: the demo, and that it does not hide a failure."""

from __future__ import annotations

import io

from rich.console import Console

from bench import demo
from bench.demo import Demo, Failed


def run(steps: list[demo.Step]) -> tuple[int, str]:
    output = io.StringIO()
    status = demo.run(steps, Console(file=output, width=80))
    return status, output.getvalue()


def test_the_demo_shows_every_step() -> None:
    status, text = run(demo.STEPS)
    assert status == 0, text
    assert max(map(len, text.splitlines())) <= 80
    for title, _ in demo.STEPS:
        assert title in text
    for shown in ("P-4711", "QC-1", "38.250000-42.750000", "ResultID 5 has PCSync 1", "All of it happened."):
        assert shown in text


def test_a_step_that_does_not_happen_ends_the_demo() -> None:
    def fail(_: Demo) -> None:
        raise Failed("for the test")

    def never(_: Demo) -> None:
        raise AssertionError("the demo went on")

    status, text = run([*demo.STEPS[:1], ("The impossible", fail), ("More", never)])
    assert status == 1
    assert "Failed: The impossible: Failed: for the test" in text
    assert "[CTCPListener::Run] Accept start" in text, "the end of the log"
    assert "More" not in text
