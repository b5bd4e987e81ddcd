"""Runs the fuzz targets of one build, two at a time, each for as many seconds as are asked for.

    /usr/bin/python3 tests/fuzz/run.py BUILD SECONDS [TARGET ...]

What a target has learnt stays in BUILD/corpus/<target>; what makes it fail is kept in BUILD/found/<target>, and what it
wrote in BUILD/found/<target>.log. The corpora in the source tree are only read. Status 1 when anything was found or a
target did not run.
"""

from __future__ import annotations

import argparse
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

from rich.console import Console
from rich.table import Table

HERE = Path(__file__).resolve().parent
CORPORA = [HERE / "corpus", HERE.parent.parent / "pc/tests/fuzz/corpus"]
JOBS = 2
MEGABYTES = 1024
TIMEOUT = 10  # seconds for one input; the longest take milliseconds
GRACE = 120  # seconds that a target may take beside its time, to start and to end


@dataclass(frozen=True)
class Target:
    name: str
    longest: int  # bytes of an input: what lets it reach every branch, and no more, because small inputs run faster
    dictionary: str | None = None
    pc: bool = False  # needs what zelpc is built with


TARGETS = [
    Target("hl7_message", 8192, "hl7"),
    Target("gateway_config", 2048, "toml", pc=True),
    Target("http_response", 4096, "http"),
    Target("lab_result", 8192, "hl7"),
    Target("loinc_table", 512, pc=True),
    Target("mllp_answer", 1024, "hl7", pc=True),
    Target("pc_datagram", 4200, "pc"),
    Target("pc_packets", 4096, "pc"),
    Target("pc_session", 2048, "pc"),
    Target("settings", 2048, "settings"),
    Target("standard_text", 8192, "hl7", pc=True),
    Target("system_package", 2048, "update"),
    Target("update_info_xml", 4096, "xml"),
    Target("web_request", 2048, "web", pc=True),
]


@dataclass
class Outcome:
    executions: str = ""
    coverage: str = ""
    found: list[str] | None = None  # none: the target did not run


def last(pattern: str, text: str) -> str:
    found = re.findall(pattern, text)
    return found[-1] if found else ""


def fuzz(target: Target, build: Path, seconds: int) -> Outcome:
    learnt = build / "corpus" / target.name
    found = build / "found" / target.name
    for directory in (learnt, found):
        directory.mkdir(parents=True, exist_ok=True)
    before = {path: path.stat().st_mtime_ns for path in found.iterdir()}
    command = ["nice", HERE.parent / "private-paths", build, build / "bin" / f"fuzz_{target.name}",
               f"-max_total_time={seconds}", f"-max_len={target.longest}", f"-rss_limit_mb={MEGABYTES}",
               f"-timeout={TIMEOUT}", "-print_final_stats=1", f"-artifact_prefix={found}/"]
    if target.dictionary:
        command.append(f"-dict={HERE / 'dictionaries' / target.dictionary}.dict")
    command += [learnt, *(folder / target.name for folder in CORPORA if (folder / target.name).exists())]
    log = build / "found" / f"{target.name}.log"
    with log.open("wb") as output:
        try:
            status = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                    timeout=seconds + GRACE).returncode
        except subprocess.TimeoutExpired:
            return Outcome()
    text = log.read_text(errors="replace")
    executions = last(r"stat::number_of_executed_units: (\d+)", text)
    inputs = sorted(path.name for path in found.iterdir()
                    if not path.name.startswith("slow-unit-") and before.get(path) != path.stat().st_mtime_ns)
    if status != 0 and not inputs or status == 0 and not executions:
        return Outcome(executions)
    return Outcome(executions, last(r"\bcov: (\d+)", text), inputs)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=Path, metavar="BUILD", help="folder of a build with ZELRM_FUZZ")
    parser.add_argument("seconds", type=int, metavar="SECONDS", help="for each target")
    parser.add_argument("target", nargs="*", metavar="TARGET", help="only these")
    options = parser.parse_args()
    known = {target.name: target for target in TARGETS}
    unknown = [name for name in options.target if name not in known]
    if unknown or options.seconds < 1:
        parser.error(f"no such target: {', '.join(unknown)}; there are {', '.join(known)}" if unknown
                     else "a target needs a second at least")
    build = options.build.resolve()
    with_pc = build.name.startswith("pc")
    chosen = [known[name] for name in options.target or known if options.target or known[name].pc == with_pc]
    console = Console(width=None if sys.stdout.isatty() else 120)
    console.print(f"{len(chosen)} targets, {options.seconds} s each, {JOBS} at a time ...")
    with ThreadPoolExecutor(JOBS) as pool:
        outcomes = dict(zip(chosen, pool.map(lambda target: fuzz(target, build, options.seconds), chosen)))
    table = Table("target", "executions", "coverage", "found", title="Fuzz targets of ZELRmUp")
    for target, outcome in outcomes.items():
        found = "did not run" if outcome.found is None else "\n".join(outcome.found) or "nothing"
        table.add_row(target.name, outcome.executions, outcome.coverage, found)
    console.print(table)
    failed = [target.name for target, outcome in outcomes.items() if outcome.found is None or outcome.found]
    if failed:
        console.print(f"look into {build / 'found'} for {', '.join(failed)}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
