"""The HL7 library beside python-hl7 and two npm packages, on the same result of 30 analytes."""

from __future__ import annotations

import json
import tempfile
from pathlib import Path

import hl7

from benchmarks.measure import BIN, Row, best, google_benchmark, nanoseconds, run
from benchmarks.npm_packages import NoPackages, run_node

GOAL = 10
HEAP_LIMIT = 200_000
ROUNDS = 100
MEASURES = {"encode": "Encode", "fill": "FillAndEncode", "decode": "Decode"}

Times = dict[str, dict[str, float]]


def build(values: list[list[str]]) -> hl7.Message:
    """The message from plain values with the constructors of python-hl7."""
    message = hl7.Message("\r")
    for name, *fields in values:
        # The header's separators are fields of their own here.
        head = ["|", fields.pop(0)] if name == "MSH" else []
        made = [message.create_field([text]) for text in (name, *head)]
        made += [message.create_field([message.create_repetition(field.split("^"))]) for field in fields]
        message.append(message.create_segment(made))
    return message


def python_times(text: str) -> dict[str, float]:
    values = [line.split("|") for line in text.split("\r") if line]
    built = build(values)
    if str(built).rstrip("\r") != text.rstrip("\r"):
        raise RuntimeError(f"python-hl7 builds another message: {built}")
    return {"encode": best(lambda: str(built), ROUNDS), "fill": best(lambda: str(build(values)), ROUNDS),
            "decode": best(lambda: hl7.parse(text), ROUNDS)}


def merge(into: Times, new: Times) -> None:
    for name, times in new.items():
        known = into.setdefault(name, times)
        into[name] = {measure: min(value, known[measure]) for measure, value in times.items()}


def node_times(message: Path) -> Times:
    try:
        return json.loads(run_node(Path(__file__).parent / "hl7_peers.cjs", str(message), str(ROUNDS)))
    except NoPackages as error:
        print(f"   going on without the npm packages: {error}")
        return {}


def measure() -> list[Row]:
    ours: dict[str, float] = {}
    peers: Times = {}
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory) / "message.hl7"
        heap = json.loads(run(BIN / "zelrm_hl7_heap", path))
        text = path.read_bytes().decode()
        # In turns, so that a busy moment of the machine meets everybody.
        for _ in range(3):
            for name, value in google_benchmark(BIN / "zelrm_hl7_benchmark", repetitions=ROUNDS).items():
                ours[name] = min(value, ours.get(name, value))
            merge(peers, node_times(path))
            merge(peers, {"python-hl7": python_times(text)})
    rows = [row(what, ours[MEASURES[measure]], {name: times[measure] for name, times in peers.items()}, goal)
            for what, measure, goal in (("HL7: encode a filled result of 30 analytes", "encode", GOAL),
                                        ("HL7: fill and encode it", "fill", None),
                                        ("HL7: decode it into the typed tree", "decode", GOAL))]
    return rows + [Row("HL7: heap of the filled message", f"{heap['filled'] / 1000:.1f} kB", "", "", "< 200 kB",
                       heap["filled"] < HEAP_LIMIT),
                   Row("HL7: heap of an empty message", f"{heap['empty']} bytes")]


def row(what: str, ours: float, peers: dict[str, float], goal: int | None) -> Row:
    fastest = min(peers, key=lambda name: peers[name])
    ratio = peers[fastest] / ours
    others = ", ".join(f"{name} {nanoseconds(peers[name])}" for name in sorted(peers, key=lambda name: peers[name]))
    return Row(what, nanoseconds(ours), others, f"{ratio:.1f} x", f">= {goal} x" if goal else "",
               ratio >= goal if goal else None)
