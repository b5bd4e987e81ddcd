"""Results in the analyzer's database, and what their HL7 texts must say."""

from __future__ import annotations

import random
import struct
from contextlib import closing
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from itertools import zip_longest
from typing import Any

from bench.analyzer import (ANIMAL, ANIMAL_DATA, ANIMAL_ID, CONTROL, CONTROL_DATA, CONTROL_ID, PATIENT, PATIENT_DATA,
                            PATIENT_ID, Analyzer, insert)
from bench.soak.records import check
from bench.zelapp import CONTROL as CONTROL_KIND
from bench.zelapp import PATIENT as PATIENT_KIND

GENERATED = 40  # of patients, and as many of controls


@dataclass(frozen=True)
class Result:
    kind: int
    number: int
    summary: dict[str, Any]
    rows: list[dict[str, Any]]

    @property
    def table(self) -> str:
        return "Result" if self.kind == PATIENT_KIND else "Ctrl"


SAMPLES = [Result(PATIENT_KIND, PATIENT_ID, PATIENT, PATIENT_DATA),
           Result(PATIENT_KIND, ANIMAL_ID, ANIMAL, ANIMAL_DATA),
           Result(CONTROL_KIND, CONTROL_ID, CONTROL, CONTROL_DATA)]


def eighths(chance: random.Random, most: int) -> float:
    """A number that decimal texts and single precision hold exactly, and that is not whole."""
    return chance.randrange(most) + chance.randrange(1, 8) / 8


def make_result(chance: random.Random, kind: int, number: int) -> Result:
    date = datetime(2023, 1, 1) + timedelta(seconds=chance.randrange(30_000_000))
    summary = {"ResultID": number, "ReagentVersion": "3.1", "SerialNumber": f"D{number:04d}",
               "PanelID": f"Panel {number}", "LOTNumber": f"L{chance.randrange(10000)}",
               "Date": f"{date:%Y-%m-%d %H:%M:%S}", "OperatorID": chance.choice(["miller", "vet", "admin"]),
               "ErrorCode": "0", "ErrorLevel": "0"}
    rows = [{"AnalyteID": f"A{number}-{index}", "Result": eighths(chance, 900), "QCFlag": "0"}
            for index in range(chance.randrange(1, 41))]
    if kind == PATIENT_KIND:
        summary |= {"PatientID": f"P-{number}", "Birth": "1975-03-09", "Sex": "M", "SpecimenType": "SER", "Age": "48Y"}
        for row in rows:
            row |= {"Unit": "U/L", "RefRange_Min": eighths(chance, 10), "RefRange_Max": eighths(chance, 90)}
    else:
        summary |= {"ControlID": f"QC-{number}", "QCMaterialName": "Orvela Control", "QCMaterialLevel": "Level 1"}
        for row in rows:
            row |= {"TargetMean": eighths(chance, 90), "TargetSD": eighths(chance, 3), "SelectedRule": "1-2s",
                    "RuleFlag": "0", "Min": 1.5, "Max": 99.5}
    return Result(kind, number, summary, rows)


class Results:
    """The database's results, and which of them must be marked as sent."""

    def __init__(self, analyzer: Analyzer, chance: random.Random):
        self.analyzer, self._chance = analyzer, chance
        self._marked: set[tuple[str, int]] = set()
        made = [make_result(chance, kind, number) for kind, first in ((PATIENT_KIND, 100), (CONTROL_KIND, 500))
                for number in range(first, first + GENERATED)]
        with closing(analyzer.database()) as database, database:
            for result in made:
                insert(database, f"Tb_{result.table}_Summary", result.summary)
                for row in result.rows:
                    insert(database, f"Tb_{result.table}_Data", {"ResultID": result.number} | row)
        self._all = SAMPLES + made

    def pick(self) -> Result:
        """One that is not marked as sent any more."""
        result = self._chance.choice(self._all)
        self._change(f"UPDATE Tb_{result.table}_Summary SET PCSync = 0 WHERE ResultID = {result.number}")
        self._marked.discard((result.table, result.number))
        return result

    def acknowledged(self, result: Result) -> None:
        self._marked.add((result.table, result.number))

    def check_marks(self, when: str) -> None:
        marked = self._stored()
        check(marked == self._marked, f"marked as sent {when}: too many {sorted(marked - self._marked)}, missing "
                                      f"{sorted(self._marked - marked)}")

    def _stored(self) -> set[tuple[str, int]]:
        return {(table, number) for table in ("Result", "Ctrl") for number, in
                self.analyzer.rows(f"SELECT ResultID FROM Tb_{table}_Summary WHERE PCSync = 1")}

    def take_marks(self) -> None:
        """After a failure: what is marked now counts as right, so that it is told once."""
        self._marked = self._stored()

    def _change(self, statement: str) -> None:
        with closing(self.analyzer.database()) as database, database:
            database.execute(statement)

    def forget_history(self) -> None:
        self._change("DELETE FROM Tb_Update_History")


def single(value: float) -> float:
    return struct.unpack("f", struct.pack("f", value))[0]


def digits(date: str) -> str:
    return "".join(character for character in date if character.isdigit())


def check_header(segment: str) -> None:
    fields = segment.split("|")
    check(len(fields) > 8 and fields[:4] == ["MSH", "^~\\&", "ORVELA", "LAB"] and fields[8] == "OUL^R22^OUL_R22",
          f"the header is {segment}")
    sent = datetime.strptime(fields[6], "%Y%m%d%H%M%S").replace(tzinfo=timezone.utc)  # the sandbox knows no time zone
    check(abs(datetime.now(timezone.utc) - sent) < timedelta(minutes=2), f"the time of sending is {fields[6]}")


def check_text(text: str, result: Result) -> None:
    """Whether a text is this result's: whose it is, and every measured value in its order."""
    check(text.endswith("\r"), f"the text of {result.number} ends with {text[-20:]!r}")
    segments = text.split("\r")[:-1]
    check_header(segments[0])
    first: dict[str, list[str]] = {}
    observations = []
    for segment in segments:
        fields = segment.split("|")
        first.setdefault(fields[0], fields)
        if fields[0] == "OBX":
            observations.append(tuple(fields[i] for i in (1, 4, 6, 7, 16, 19)) + (float(fields[5]),))
    patient = result.kind == PATIENT_KIND
    summary = result.summary
    found = (first["PID"][3], first["SPM"][11], first["OBR"][4], first["SID"][2])
    expected = (summary["PatientID" if patient else "ControlID"], "P" if patient else "Q",
                f"{summary['SerialNumber']}^{summary['PanelID']}^ORVELA", summary["LOTNumber"])
    check(found == expected, f"the text of {result.number} says {found} instead of {expected}")
    measured = [(str(number), row["AnalyteID"], row.get("Unit", ""), limits(row, patient), summary["OperatorID"],
                 digits(summary["Date"]), row["Result"]) for number, row in enumerate(result.rows, 1)]
    wrong = [pair for pair in zip_longest(observations, measured) if pair[0] != pair[1]]
    check(not wrong, f"the text of {result.number} tells, instead of: {wrong[:3]}")


def limits(row: dict[str, Any], patient: bool) -> str:
    if patient:
        return f"{row['RefRange_Min']}-{row['RefRange_Max']}"
    mean, deviation = single(row["TargetMean"]), single(row["TargetSD"])
    return f"{single(mean - deviation):f}-{single(mean + deviation):f}"
