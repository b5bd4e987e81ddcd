"""Three HL7 parsers of others behind one face: find values in a message, and compose one.

A position is written as in zelrm_hl7_tool, PID-5.1.1 or OBX[2]-5, and may name a repetition: OBX-18~2.1.
"""

from __future__ import annotations

import json
import re
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import hl7

from npm_packages import run_node

SCRIPT = Path(__file__).resolve().parent / "npm_peers.cjs"
POSITION = re.compile(r"(\w{3})(?:\[(\d+)\])?-(\d+)(?:~(\d+))?(?:\.(\d+))?(?:\.(\d+))?")


@dataclass(frozen=True)
class Position:
    """Numbers count from 1; 0 where the position names no repetition, component or subcomponent."""
    segment: str
    occurrence: int
    field: int
    repetition: int
    component: int
    subcomponent: int

    @classmethod
    def parse(cls, text: str) -> Position:
        found = POSITION.fullmatch(text)
        assert found, text
        name, occurrence, *rest = found.groups()
        return cls(name, int(occurrence or 1), *(int(number or 0) for number in rest))


Values = dict[str, str]
Tool = Callable[..., str]  # zelrm_hl7_tool, see the fixture


class PythonHl7:
    name = "python-hl7"

    def read(self, text: str, positions: list[str]) -> Values:
        message = hl7.parse(text)
        return {position: self._extract(message, Position.parse(position)) for position in positions}

    @staticmethod
    def _extract(message: hl7.Message, p: Position) -> str:
        if not p.component and not p.repetition:
            return str(message.segments(p.segment)[p.occurrence - 1](p.field))
        return str(message.extract_field(p.segment, p.occurrence, p.field, p.repetition or 1, p.component or 1,
                                         p.subcomponent or 1))

    def compose(self, values: Values) -> str:
        positions = [Position.parse(position) for position in values]
        message = hl7.parse("MSH|^~\\&|\r")
        for name, occurrence in dict.fromkeys((p.segment, p.occurrence) for p in positions):
            if (name, occurrence) != ("MSH", 1):
                message.append(message.create_segment([message.create_field([name])]))
        for p, value in zip(positions, values.values()):
            numbers = [number or 1 for number in (p.repetition, p.component, p.subcomponent)]
            message.assign_field(value, p.segment, p.occurrence, p.field, *numbers)
        return str(message)


class NpmPackage:
    def __init__(self, name: str):
        self.name = name

    def _ask(self, **request: Any) -> Any:
        return json.loads(run_node(SCRIPT, text=json.dumps({"package": self.name, **request})))

    def read(self, text: str, positions: list[str]) -> Values:
        return dict(zip(positions, self._ask(text=text, positions=[vars(Position.parse(p)) for p in positions])))

    def compose(self, values: Values) -> str:
        segments: dict[tuple[str, int], dict[int, list[Any]]] = {}
        for position, value in values.items():
            p = Position.parse(position)
            repetitions = segments.setdefault((p.segment, p.occurrence), {}).setdefault(p.field, [])
            self._place(repetitions, p, value)
        return self._ask(segments=[{"name": name, "fields": fields} for (name, _), fields in segments.items()])

    @staticmethod
    def _place(repetitions: list[Any], p: Position, value: str) -> None:
        def reach(parts: list[Any], number: int, empty: Any) -> None:
            parts += [empty() for _ in range(max(number, 1) - len(parts))]

        repetition, component = max(p.repetition, 1) - 1, max(p.component, 1) - 1
        reach(repetitions, repetition + 1, list)
        components = repetitions[repetition]
        reach(components, component + 1, str)
        if p.subcomponent:
            if not isinstance(components[component], list):
                components[component] = []
            reach(components[component], p.subcomponent, str)
            components[component][p.subcomponent - 1] = value
        else:
            components[component] = value


Peer = PythonHl7 | NpmPackage

PEERS: list[Peer] = [PythonHl7(), NpmPackage("simple-hl7"), NpmPackage("@medplum/core")]
