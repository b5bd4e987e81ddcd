"""The command line of `./zel bench`, apart from what measures: it is looked at before that is installed."""

from __future__ import annotations

import argparse
from pathlib import Path

USAGE = """./zel bench [OPTION...] [NAME...]
       ./zel bench compare A B
       ./zel bench show [FILE]"""
HELP = """\
Measures the service and the HL7 library beside what people would use instead,
in turns, and prints medians, quartiles and ratios; status 1 when a goal is
missed. A NAME is a row, a curve or a group of --list; without names everything
is measured. Figures mean something on a machine that does nothing else.

compare tells what got worse between two files of --json, beyond the spread;
status 1 when anything did. show prints the table of the last run, or of a file.
"""


def parser() -> argparse.ArgumentParser:
    made = argparse.ArgumentParser(
        "./zel bench", usage=USAGE, formatter_class=argparse.RawDescriptionHelpFormatter,
        description=HELP,
        epilog="The report is in build/bench/report.html.")
    made.add_argument("words", nargs="*", metavar="NAME", help=argparse.SUPPRESS)
    made.add_argument("--list", action="store_true", help="tell the names, and measure nothing")
    made.add_argument("--quick", action="store_true", help="fewer turns and smaller sizes: does everything work?")
    made.add_argument("--json", type=Path, metavar="FILE", help="keep all values in a file")
    made.add_argument("--markdown", action="store_true", help="put the tables into docs/performance.md")
    made.add_argument("--needs", action="store_true", help=argparse.SUPPRESS)
    return made


if __name__ == "__main__":
    parser().print_help()
