"""Results and histories in the database: loading one, and what the size of the tables does to it."""

from __future__ import annotations

import contextlib
import itertools
import shutil
import statistics
import time
from collections.abc import Callable, Iterator
from pathlib import Path

from bench.analyzer import Analyzer
from bench.image import DSP, file_name, make, pattern
from bench.sandbox import PROJECT
from bench.zelapp import UpdateComplete
from benchmarks.measure import BIN, google_benchmark
from benchmarks.model import SECONDS, Curve, Group, Row, Sweep, within
from benchmarks.service import RESULTS, Service, open_service

USUAL = 30
ROWS = (10, 100, 1000, 10_000, 100_000, 300_000, 1_000_000)
REPEATS = 5
FIRST_OTHER = 1_000_000  # ResultID of the first of the other results
USB = 1

# Other results, of 30 analytes each as well.
FILL = """
DELETE FROM Tb_Result_Data WHERE ResultID >= {first};
DELETE FROM Tb_Result_Summary WHERE ResultID >= {first};
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < {rows})
    INSERT INTO Tb_Result_Data SELECT {first} + i / 30, 'AN' || i % 30, i + 0.25, 'mg/dL', 5.5, 40.5, '0', 2.5, 900.5
    FROM n;
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < {results})
    INSERT INTO Tb_Result_Summary (ResultID, PatientID, Date, OperatorID, PCSync)
    SELECT {first} + i, 'P-' || i, '2023-05-17 14:03:59', 'miller', 1 FROM n;
"""
HISTORY = """
DELETE FROM Tb_Update_History;
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < {rows})
    INSERT INTO Tb_Update_History SELECT 'APP', '2023-05-17 14:03:59', '30', '1.00.00.0001', '1.00.00.0002', 'USB'
    FROM n;
"""
INDEXES = """
CREATE INDEX Result_Data_ByResult ON Tb_Result_Data (ResultID);
CREATE INDEX Result_Summary_ByResult ON Tb_Result_Summary (ResultID);
"""
NO_INDEXES = "DROP INDEX Result_Data_ByResult; DROP INDEX Result_Summary_ByResult;"


def change(analyzer: Analyzer, script: str) -> None:
    with contextlib.closing(analyzer.database()) as database:
        database.executescript(script)


def loads(service: Service) -> list[float]:
    """From the request to the PC's having the result, several times."""
    return [service.transfer(RESULTS + USUAL)[0] for _ in range(REPEATS)]


def by_result_rows(service: Service, rows: int) -> dict[str, list[float]]:
    change(service.analyzer, FILL.format(first=FIRST_OTHER, rows=rows, results=max(rows // USUAL, 1)))
    plain = loads(service)
    change(service.analyzer, INDEXES)
    indexed = loads(service)
    change(service.analyzer, NO_INDEXES)
    return {"result-rows": plain, "result-rows-indexed": indexed}


VERSIONS = itertools.count(2)  # each update is newer than the one before


def update(analyzer: Analyzer) -> float:
    """From the start request to the end of an update from a stick that holds one small image."""
    stick: Path = analyzer.device / "usb"
    stick.mkdir()
    version = f"1.00.00.{next(VERSIONS):04}"
    (stick / file_name(DSP, "human")).write_bytes(make(DSP, "human", version, pattern(1 << 20)))
    start = time.perf_counter()
    analyzer.zelapp.start_update(USB)
    analyzer.zelapp.expect(UpdateComplete, 30)
    taken = time.perf_counter() - start
    shutil.rmtree(stick)
    return taken


def by_history_rows(service: Service, rows: int) -> dict[str, list[float]]:
    change(service.analyzer, HISTORY.format(rows=rows))
    return {"history-rows": [update(service.analyzer) for _ in range(REPEATS)]}


@contextlib.contextmanager
def open_results(quick: bool) -> Iterator[Service]:
    with open_service(quick, (USUAL,)) as service:
        yield service


def program(name: str) -> Callable[[Service], float]:
    command = [PROJECT / "tests/private-paths", BIN.parent, BIN / "zelrm_result_benchmark"]
    return lambda _service: statistics.median(google_benchmark(command, name))


INDEX = "No table of the database has an index, so that each query reads the whole table. With an index on " \
        "Tb_Result_Data (ResultID), and one on Tb_Result_Summary (ResultID), the time stays the same: see " \
        "result-rows-indexed. The database is ZELApp's; the controls' tables need the same."

GROUP = Group(
    "database", open_results,
    [Row("result", "A result of 30 analytes loaded, filled and encoded", SECONDS, program("LoadFillAndEncode"),
         {"the same rows by SQLite alone": program("SelectAndJoin")}, within(1.5), floor="Two thirds of the "
         "instructions are SQLite's, as many as the peer's. The rest are 31 lines of the log, each in the file before "
         "the next, the message, and the table that the framework's interface hands out, whose cells are copies.")],
    [Sweep([Curve("result-rows", "A result of 30 analytes from the request to the PC, no index", SECONDS,
                  "rows of results", steady=True, floor=INDEX),
            Curve("result-rows-indexed", "A result of 30 analytes from the request to the PC, indexed", SECONDS,
                  "rows of results", steady=True)], ROWS, by_result_rows),
     Sweep([Curve("history-rows", "An update of one small image from a stick", SECONDS, "rows of the history",
                  steady=True)], ROWS, by_history_rows)])
