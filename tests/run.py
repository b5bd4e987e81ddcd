"""Runs every test against one build and closes with the line "N passed, N failed, N skipped".

Unit tests run under CTest, system tests under pytest; both tell their results as JUnit files, so that the closing line
counts what really ran. The status is 0 only when something passed and nothing failed.
"""

import importlib.util
import os
import subprocess
import sys
import tempfile
import textwrap
import xml.etree.ElementTree as ElementTree
from collections import defaultdict
from pathlib import Path

from bench.sandbox import ENGINE

ROOT = Path(__file__).resolve().parent.parent
SYSTEM_TEST_JOBS = 6  # they mostly wait


class Report:
    """The cases of a JUnit report; one that was not written is a failure."""

    def __init__(self, path: Path):
        self.passed = self.failed = 0
        self.skipped: dict[str, list[str]] = defaultdict(list)  # reason -> names
        if not path.exists():
            self.failed = 1
            return
        for case in ElementTree.parse(path).getroot().iter("testcase"):
            skipped = case.find("skipped")
            if case.find("failure") is not None or case.find("error") is not None:
                self.failed += 1
            elif skipped is not None or case.get("status") == "notrun":
                reason = skipped.get("message", "") if skipped is not None else ""
                self.skipped[reason or "not run"].append(case.get("name", ""))
            else:
                self.passed += 1


def run_unit_tests(build: Path, report: Path, environment: dict[str, str]) -> int:
    print("Unit tests", flush=True)
    # On a terminal their progress is one line; elsewhere only what went wrong is worth reading.
    progress = ["--progress"] if sys.stdout.isatty() else []
    result = subprocess.run(["ctest", "--test-dir", build, "-j", str(os.cpu_count()), "--output-on-failure", *progress,
                             "--output-junit", report], env=environment, text=True,
                            stdout=None if progress else subprocess.PIPE)
    if result.returncode and not progress:
        print(result.stdout)
    return result.returncode


def run_system_tests(suites: list[str], report: Path, environment: dict[str, str]) -> int:
    jobs = []
    if ENGINE.MOST_ANALYZERS > 1 and importlib.util.find_spec("xdist"):
        jobs = ["-n", str(SYSTEM_TEST_JOBS)]
    print("System tests" + ("" if jobs else ", one at a time, which takes ten minutes"), flush=True)
    return subprocess.run(["/usr/bin/python3", "-m", "pytest", "-q", *jobs, "-p", "no:cacheprovider", "--junit-xml",
                           report, *suites], env=environment, cwd=ROOT).returncode


def tell_skipped(reports: list[Report]) -> None:
    for report in reports:
        for reason, names in report.skipped.items():
            print(textwrap.fill(f"Skipped: {reason}", 79, subsequent_indent="   "))
            print(textwrap.fill(", ".join(names), 79, initial_indent="   ", subsequent_indent="   "))


def main() -> int:
    preset = sys.argv[1] if len(sys.argv) > 1 else "release"
    build = ROOT / "build" / preset
    # Under the emulator a few tests show that the daemon works; the others would tell nothing more about the machine.
    suites = ["-m", "arm", "tests/system"] if preset == "arm" else ["tests/system", "pc/tests/system"]
    # How the results are read elsewhere does not depend on how the service was built.
    suites += ["tests/hl7peers"] if preset in ("release", "pc", "debug") else []
    units = build
    if preset in ("pc-asan", "pc-tsan"):  # the service itself is looked at in asan and tsan
        suites, units = ["pc/tests/system"], build / "pc/tests/unit"
    environment = dict(os.environ, ZEL_PRESET=preset, PYTHONPATH=str(ROOT))
    if ENGINE.NAME != "none":
        environment["ZEL_SANDBOX"] = ENGINE.NAME  # not to be found out again for each test
    if ENGINE.NOTICE:
        print(ENGINE.NOTICE)
    with tempfile.TemporaryDirectory(prefix="zel-test-") as directory:
        unit, system = Path(directory) / "unit.xml", Path(directory) / "system.xml"
        statuses = [run_unit_tests(units, unit, environment), run_system_tests(suites, system, environment)]
        reports = [Report(unit), Report(system)]
    tell_skipped(reports)
    passed, failed = (sum(getattr(report, name) for report in reports) for name in ("passed", "failed"))
    skipped = sum(len(names) for report in reports for names in report.skipped.values())
    if any(statuses) and failed == 0:
        failed = 1  # a runner that could not do its work is a failure, whatever its report says
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 0 if passed > 0 and failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
