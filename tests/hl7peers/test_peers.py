"""A parser that nobody here wrote, python-hl7, finds each value of our messages where it looks for it, and we find its.

A position is written as in zelrm_hl7_tool, PID-5.1.1 or OBX[2]-5, and may name a repetition: OBX-18~2.1.
"""

from __future__ import annotations

import re
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass

import hl7
import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import preset
from bench.pc import Pc
from bench.sandbox import PROJECT
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultSent

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


def extract(message: hl7.Message, p: Position) -> str:
    if not p.component and not p.repetition:
        return str(message.segments(p.segment)[p.occurrence - 1](p.field))
    return str(message.extract_field(p.segment, p.occurrence, p.field, p.repetition or 1, p.component or 1,
                                     p.subcomponent or 1))


def read(text: str, positions: list[str]) -> Values:
    message = hl7.parse(text)
    return {position: extract(message, Position.parse(position)) for position in positions}


def compose(values: Values) -> str:
    positions = [Position.parse(position) for position in values]
    message = hl7.parse("MSH|^~\\&|\r")
    for name, occurrence in dict.fromkeys((p.segment, p.occurrence) for p in positions):
        if (name, occurrence) != ("MSH", 1):
            message.append(message.create_segment([message.create_field([name])]))
    for p, value in zip(positions, values.values()):
        numbers = [number or 1 for number in (p.repetition, p.component, p.subcomponent)]
        message.assign_field(value, p.segment, p.occurrence, p.field, *numbers)
    return str(message)


def tool(command: str, structure: str, text: str) -> str:
    """Runs the service's HL7 library: `tool("decode", "OUL_R22", text)`."""
    program = PROJECT / "build" / preset() / "bin/zelrm_hl7_tool"
    result = subprocess.run([program, command, structure], input=text.encode(), capture_output=True, timeout=60)
    assert result.returncode == 0, result.stderr.decode()
    return result.stdout.decode()


def lines(values: Values) -> str:
    return "".join(f"{position}={value}\n" for position, value in values.items())


def decoded(text: str) -> Values:
    return dict(line.split("=", 1) for line in text.splitlines())


def header(code: str, trigger: str) -> Values:
    return {"MSH-3.1": "ORVELA", "MSH-3.2": "1.2.3", "MSH-4.1": "LAB", "MSH-6.1": "Clinic",
            "MSH-7.1": "20230517140359", "MSH-9.1": code, "MSH-9.2": trigger, "MSH-9.3": f"{code}_{trigger}",
            "MSH-10": "77", "MSH-11.1": "P", "MSH-12.1": "2.5.1", "MSH-12.2.1": "DE", "MSH-12.2.2": "Germany",
            "MSH-18": "UNICODE UTF-8", "MSH-21.1": "LAB-29", "MSH-21.2": "IHE"}


PERSON = {"PID-1": "1", "PID-3.1": "P-4711", "PID-3.4.1": "Clinic", "PID-3.4.2": "9.8", "PID-5.1.1": "Doe",
          "PID-5.1.3": "van", "PID-5.2": "Jane", "PID-5.7": "L", "PID-7.1": "19750309", "PID-8": "F",
          "PID-11.1.1": "Main Street", "PID-11.1.2": "12", "PID-11.3": "Utrecht", "PID-38.6": "last"}
SPECIMEN = {"SPM-1": "1", "SPM-2.1.1": "S-42", "SPM-2.2.1": "F-42", "SPM-4.1": "SER", "SPM-11.1": "P",
            "SPM-29.9": "last"}
QUERY = {"QPD-1.1": "WOS", "QPD-1.2": "Work Order Step", "QPD-2": "TAG-8", "QPD-3": "S-42"}

# Values in all depths, first and last fields, and repeated segments; PID-5.1.1 and the like share their component with
# another subcomponent, so that nobody can mistake one for a component.
MESSAGES: dict[str, Values] = {
    "ACK": header("ACK", "R22") | {"MSA-1": "AE", "MSA-2": "0", "MSA-6.5": "alternate", "ERR-2.1": "PID",
                                   "ERR-2.6": "1", "ERR-3.1": "204", "ERR-3.2": "Unknown key", "ERR-4": "E"},
    "OML_O33": header("OML", "O33") | PERSON | {"PV1-2": "I", "PV1-19.1": "V-9"} | SPECIMEN | {
        "SAC-3.1": "T-7", "SAC-44.1": "last", "ORC-1": "NW", "ORC-2.1": "O-1", "TQ1-9.1": "S", "OBR-4.2": "Liver 6",
        "ORC[2]-1": "CA", "ORC[2]-2.1": "O-2", "OBR[2]-4.1": "RENAL2", "OBR[2]-47.1": "last"},
    "ORL_O34": header("ORL", "O34") | {"MSA-1": "AA", "ERR-4": "W", "ERR[2]-4": "E"} | PERSON | SPECIMEN | {
        "ORC-1": "OK", "ORC-3.1": "F-1", "ORC[2]-1": "UA", "ORC[2]-25.9": "last"},
    "OUL_R22": header("OUL", "R22") | PERSON | SPECIMEN | {
        "SAC-32": "1", "SAC-43.1": "3.1", "INV-1.2": "Control", "INV-12.1": "20241231", "INV-20.2.1": "ml",
        "INV-20.2.3": "UCUM", "OBR-2.1": "O-1", "OBR-4.1": "D0815", "ORC-1": "SC", "OBX-1": "1", "OBX-3.3": "LN",
        "OBX-4": "ALT", "OBX-5": "31.5", "OBX-6.1": "U/L", "OBX-7": "5.5-40.5", "OBX-13": "0,0,0,EMPTY",
        "OBX-19.1": "20230517140359", "SID-2": "L2309", "NTE-3": "first note", "NTE[2]-3": "second note",
        "OBX[2]-3.3": "LN", "OBX[2]-4": "AST", "OBX[2]-5": "52.25",
        "OBX[3]-4": "T\u00c4ST \u03bcg", "OBX[3]-5": "<0.5"},
    "QBP_Q11": header("QBP", "Q11") | {"SFT-1.1": "Maker", "SFT[2]-6.1": "2023"} | QUERY | {"RCP-1": "I"},
    "QBP_Q13": header("QBP", "Q13") | QUERY | {"RDF-1": "1", "RDF-2.1": "Order", "RDF-2.3": "20", "RCP-1": "I",
                                              "RCP-2.1": "10", "RCP-2.2.1": "RD", "RCP-2.2.2": "Records"},
    "RSP_K11": header("RSP", "K11") | {"MSA-1": "AA", "MSA-2": "Q-5", "QAK-1": "TAG-8", "QAK-2": "OK"} | QUERY,
    "RTB_K13": header("RTB", "K13") | {"MSA-1": "AA", "QAK-1": "TAG-8", "QAK-6": "1"} | QUERY | {
        "RDF-2.1": "Order", "RDT-1": "O-1", "RDT[2]-1": "O-2", "RDT[3]-1": "O-3"},
}


@pytest.mark.parametrize("structure", MESSAGES)
def test_what_we_write_is_read_by_others(structure: str) -> None:
    values = MESSAGES[structure]
    assert read(tool("encode", structure, lines(values)), list(values)) == values


@pytest.mark.parametrize("structure", MESSAGES)
def test_what_others_write_is_read_by_us(structure: str) -> None:
    values = MESSAGES[structure]
    found = decoded(tool("decode", structure, compose(values)))
    assert (found.pop("MSH-1"), found.pop("MSH-2")) == ("|", "^~\\&")
    assert found == values


def test_repetitions_of_others_reach_us_as_they_stand() -> None:
    """We know no repetition: its separator stays in the value, for the reader to cut."""
    values = header("OUL", "R22") | {"SPM-1": "1", "OBR-1": "1", "OBX-18~1.1": "D0815", "OBX-18~1.2": "Kelvora",
                                     "OBX-18~2.1": "R3.1", "OBX-18~2.2": "Kelvora"}
    found = decoded(tool("decode", "OUL_R22", compose(values)))
    assert [found[f"OBX-18.{i}"] for i in (1, 2, 3)] == ["D0815", "Kelvora~R3.1", "Kelvora"]


# Results as the daemon sends them

@pytest.fixture(scope="module")
def sent() -> Iterator[dict[str, str]]:
    """The texts of a patient's, an animal's and a control result, received over the daemon's real sockets."""
    with Analyzer() as analyzer, Pc(analyzer.sandbox.socket) as pc:
        analyzer.start()
        pc.register(PASSWORD)
        pc.start_heartbeat()
        assert analyzer.zelapp.expect(PcConnection, 10).connected
        texts = {}
        for name, kind, result in (("patient", PATIENT, PATIENT_ID), ("animal", PATIENT, ANIMAL_ID),
                                   ("control", CONTROL, CONTROL_ID)):
            analyzer.zelapp.send_result(kind, f"ResultID = {result}")
            texts[name] = pc.receive_result()
            analyzer.zelapp.expect(ResultSent)
        yield texts
        assert analyzer.daemon.stop() == 1
        assert not analyzer.daemon.sanitizer_report()


EQUIPMENT = {"OBX-18~1.1": "", "OBX-18~1.2": "Kelvora", "OBX-18~2.1": "", "OBX-18~2.2": "Kelvora"}
SENT: dict[str, Values] = {
    "patient": {"MSH-9.1": "OUL", "PID-3.1": "P-4711", "PID-7": "19750309", "PID-8": "F", "PID-21": "W-3",
                "SPM-4": "SER", "SPM-11": "P", "SAC-32": "1", "SAC-43.1": "3.1", "OBR-4.1": "D0815",
                "OBR-4.2": "Liver 6", "OBX-3.1": "", "OBX-3.2": "", "OBX-3.3": "LN", "OBX-4": "ALT", "OBX-5": "31.5",
                "OBX-6": "U/L", "OBX-7": "5.5-40.5", "OBX-13": "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y,2.5,900.5",
                "OBX-16": "miller", "OBX-19": "20230517140359", "SID-2": "L2309", "OBX[3]-4": "TBIL"} | EQUIPMENT,
    "animal": {"PID-3.1": "Rex", "PID-35.1": "CANINE", "PID-35.2": "CANINE", "PID-35.3": "ORVELA", "PID-35.5": "Dog",
               "OBX[2]-3.3": "LN", "OBX[2]-4": "CREA", "OBX[2]-5": "1.125"} | EQUIPMENT,
    "control": {"PID-3.1": "QC-1", "SPM-4": "BLD", "SPM-11": "Q", "INV-1.2": "Orvela Control", "INV-1.5": "Level 1",
                "INV-12": "2024-12-31", "INV-16": "QL77", "OBX-4": "ALT", "OBX-7": "38.250000-42.750000",
                "OBX-13": "0,0,0,1-2s,0,35.5,45.5,EMPTY,2.5,900.5"} | EQUIPMENT,
}


@pytest.mark.parametrize("result", SENT)
def test_results_of_the_daemon_are_read_by_others(sent: dict[str, str], result: str) -> None:
    assert read(sent[result], list(SENT[result])) == SENT[result]


def test_results_of_the_daemon_are_read_by_us(sent: dict[str, str]) -> None:
    found = decoded(tool("decode", "OUL_R22", sent["patient"]))
    assert (found["PID-3.1"], found["OBX-3.3"], found["OBX[3]-5"]) == ("P-4711", "LN", "0.75")


def test_the_results_that_the_document_shows_are_real(sent: dict[str, str]) -> None:
    def untimed(text: str) -> str:
        return re.sub(r"^((?:[^|]*\|){6})\d{14}", r"\1TIME", text)

    indented = re.findall(r"((?:^    .*\n)+)", (PROJECT / "docs/hl7.md").read_text(), re.MULTILINE)
    shown = [untimed(re.sub(r"^    ", "", block, flags=re.MULTILINE)) for block in indented if "    MSH|" in block]
    daemons = [block for block in shown if "OUL^R22" in block]
    assert daemons == [untimed(sent[name].replace("\r", "\n")) for name in ("animal", "control")]
