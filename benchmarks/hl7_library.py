"""The HL7 library beside python-hl7 and two npm packages, on the same result of 30 analytes."""

from __future__ import annotations

import contextlib
import json
import statistics
import tempfile
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path

import hl7

from benchmarks.measure import BIN, MissingPeer, google_benchmark, run, seconds
from benchmarks.model import BYTES, SECONDS, Curve, Goal, Group, Row, Sweep, at_most, faster
from benchmarks.npm_packages import NoPackages, run_node

PEERS = Path(__file__).parent / "hl7_peers.cjs"
PROGRAM = BIN / "zelrm_hl7_benchmark"
ANALYTES = (1, 10, 30, 100, 300, 1000, 2000)


@dataclass
class Message:
    """The filled message, which every peer builds and reads as well."""
    path: Path
    heap: dict[str, int]

    @property
    def text(self) -> str:
        return self.path.read_bytes().decode()

    def size(self) -> int:
        return len(self.path.read_bytes())


@contextlib.contextmanager
def open_message(_quick: bool) -> Iterator[Message]:
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory) / "message.hl7"
        yield Message(path, json.loads(run(BIN / "zelrm_hl7_heap", path)))


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


def python_hl7(measure: str) -> Callable[[Message], float]:
    def timed(message: Message) -> float:
        text = message.text
        values = [line.split("|") for line in text.split("\r") if line]
        built = build(values)
        if str(built).rstrip("\r") != text.rstrip("\r"):
            raise RuntimeError(f"python-hl7 builds another message: {built}")
        work: dict[str, Callable[[], object]] = {"encode": lambda: str(built), "fill": lambda: str(build(values)),
                                                 "decode": lambda: hl7.parse(text)}
        return seconds(work[measure])
    return timed


def npm(package: str, measure: str) -> Callable[[Message], float]:
    def timed(message: Message) -> float:
        try:
            return float(run_node(PEERS, str(message.path), package, measure)) * 1e-9
        except NoPackages as error:
            raise MissingPeer(str(error)) from None
    return timed


def library(name: str) -> Callable[[Message], float]:
    return lambda _message: statistics.median(google_benchmark([PROGRAM], name))


def row(measure: str, benchmark: str, what: str, goal: Goal, floor: str = "") -> Row:
    peers = {package: npm(package, measure) for package in ("simple-hl7", "@medplum/core")}
    return Row(measure, what, SECONDS, library(f"{benchmark}/30"), peers | {"python-hl7": python_hl7(measure)}, goal,
               floor=floor, turns=5, moved=Message.size)


def by_analytes(_message: Message, count: int) -> dict[str, list[float]]:
    return {key: google_benchmark([PROGRAM], f"{name}/{count}", 5)
            for key, name in (("encode-analytes", "Encode"), ("decode-analytes", "Decode"))}


GROUP = Group(
    "hl7", open_message,
    [row("encode", "Encode", "HL7: encode a filled result of 30 analytes", faster(10)),
     row("decode", "Decode", "HL7: decode it into the typed tree", faster(10)),
     row("fill", "FillAndEncode", "HL7: fill it from plain values and encode it", faster(6),
         "Each value gets a place in a typed tree, which is made and taken down each time: memory is taken and given "
         "back for it, while the peers join texts."),
     Row("decode-limit", "HL7: decode it, beside finding its delimiters and doing nothing else", SECONDS,
         library("Decode/30"), {"a bare scan in C": library("FindDelimiters/30")}, turns=5, moved=Message.size),
     Row("heap", "HL7: heap of the filled message", BYTES, lambda message: message.heap["filled"],
         goal=at_most(200_000), turns=1),
     Row("heap-empty", "HL7: heap of an empty message", BYTES, lambda message: message.heap["empty"], turns=1)],
    [Sweep([Curve("encode-analytes", "HL7: encode a result", SECONDS, "analytes"),
            Curve("decode-analytes", "HL7: decode a result", SECONDS, "analytes")], ANALYTES, by_analytes)],
    needs=("service", "node"))
