"""Results from JSON files, as they are put into an analyzer's database.

    {"kind": "patient", "summary": {"PatientID": "P-1", ...}, "analytes": [{"AnalyteID": "ALT", "Result": 31.5, ...}]}

`kind` is "patient" (also for an animal) or "control"; the names are those of the database's columns. `ResultID` is given
by the analyzer.
"""

from __future__ import annotations

import json
import sqlite3
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PATIENT_ID, Analyzer, insert
from bench.zelapp import CONTROL, PATIENT

SAMPLES = Path(__file__).parent / "samples"

KINDS = {"patient": ("Result", PATIENT), "control": ("Ctrl", CONTROL)}  # tables, kind in ZELApp's request


@dataclass(frozen=True)
class Result:
    """A result in an analyzer's database."""
    kind: int
    id: int

    def send(self, analyzer: Analyzer) -> None:
        analyzer.zelapp.send_result(self.kind, f"ResultID = {self.id}")


PRESENT = {"patient": Result(PATIENT, PATIENT_ID), "animal": Result(PATIENT, ANIMAL_ID),
           "control": Result(CONTROL, CONTROL_ID)}


def read(path: Path) -> dict[str, Any]:
    """A result file; what is wrong with it raises ValueError."""
    try:
        content = json.loads(path.read_text())
    except ValueError as error:
        raise ValueError(f"{path}: {error}") from None
    if not isinstance(content, dict) or content.get("kind") not in KINDS:
        raise ValueError(f'{path}: "kind" is to be one of {", ".join(KINDS)}')
    if not isinstance(content.get("summary"), dict) or not isinstance(content.get("analytes"), list):
        raise ValueError(f'{path}: "summary" is to be an object and "analytes" a list of objects')
    return content


def add(analyzer: Analyzer, path: Path) -> Result:
    """Puts the result of a file into the database."""
    content = read(path)
    table, kind = KINDS[content["kind"]]
    database = analyzer.database()
    try:
        with database:
            known = database.execute("SELECT max(ResultID) FROM "
                                     "(SELECT ResultID FROM Tb_Result_Summary UNION SELECT ResultID FROM Tb_Ctrl_Summary)")
            number = known.fetchone()[0] + 1
            insert(database, f"Tb_{table}_Summary", content["summary"] | dict(ResultID=number))
            for row in content["analytes"]:
                insert(database, f"Tb_{table}_Data", row | dict(ResultID=number))
    except (sqlite3.Error, TypeError) as error:
        raise ValueError(f"{path}: {error}") from None
    finally:
        database.close()
    return Result(kind, number)
