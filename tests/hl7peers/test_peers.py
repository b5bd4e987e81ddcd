"""A parser that nobody here wrote, python-hl7, finds each value of the daemon's results where it looks for it."""

from __future__ import annotations

import re
from collections.abc import Iterator

import hl7
import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.pc import Pc
from bench.sandbox import PROJECT
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultSent

# PID-5.1.1 or OBX[2]-5, perhaps with a repetition: OBX-18~2.1.
POSITION = re.compile(r"(\w{3})(?:\[(\d+)\])?-(\d+)(?:~(\d+))?(?:\.(\d+))?(?:\.(\d+))?")
Values = dict[str, str]


def extract(message: hl7.Message, position: str) -> str:
    name, occurrence, *rest = POSITION.fullmatch(position).groups()
    field, *numbers = (int(number or 0) for number in rest)
    if not any(numbers):
        return str(message.segments(name)[int(occurrence or 1) - 1](field))
    return str(message.extract_field(name, int(occurrence or 1), field, *(number or 1 for number in numbers)))


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
    "animal": {"MSH-9.3": "OUL_R22", "PID-7": "20191130", "PID-21": "Doe", "SPM-4": "PLA", "SAC-43.1": "3.2", "OBR-4.2": "Renal 2",
               "PID-3.1": "Rex", "PID-35.1": "CANINE", "PID-35.2": "CANINE", "PID-35.3": "ORVELA", "PID-35.5": "Dog",
               "OBX[2]-3.3": "LN", "OBX[2]-4": "CREA", "OBX[2]-5": "1.125"} | EQUIPMENT,
    "control": {"PID-3.1": "QC-1", "SPM-4": "BLD", "SPM-11": "Q", "INV-1.2": "Orvela Control", "INV-1.5": "Level 1",
                "INV-12": "2024-12-31", "INV-16": "QL77", "OBX-4": "ALT", "OBX-7": "38.250000-42.750000",
                "OBX-13": "0,0,0,1-2s,0,35.5,45.5,EMPTY,2.5,900.5"} | EQUIPMENT,
}


@pytest.mark.parametrize("result", SENT)
def test_results_of_the_daemon_are_read_by_others(sent: dict[str, str], result: str) -> None:
    message = hl7.parse(sent[result])
    assert {position: extract(message, position) for position in SENT[result]} == SENT[result]


def test_the_results_that_the_document_shows_are_real(sent: dict[str, str]) -> None:
    def untimed(text: str) -> str:
        return re.sub(r"^((?:[^|]*\|){6})\d{14}", r"\1TIME", text)

    indented = re.findall(r"((?:^    .*\n)+)", (PROJECT / "docs/hl7.md").read_text(), re.MULTILINE)
    shown = [untimed(re.sub(r"^    ", "", block, flags=re.MULTILINE)) for block in indented if "    MSH|" in block]
    daemons = [block for block in shown if "OUL^R22" in block]
    assert daemons == [untimed(sent[name].replace("\r", "\n")) for name in ("animal", "control")]
