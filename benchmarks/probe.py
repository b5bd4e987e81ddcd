"""What processes and all that they started use of the machine: `probe.py PID...` prints a line of JSON for each.

`cpu` is the processor time since their start, that of threads which have ended included; `switches` how often their
threads have waited so far. Standard library only: it also runs on the simulated analyzer's machine.
"""

import json
import sys
import time
from pathlib import Path


def tree(pid):
    """The process and its descendants."""
    found = [pid]
    for task in Path(f"/proc/{pid}/task").iterdir():
        for child in (task / "children").read_text().split():
            found += tree(int(child))
    return found


def fields(path):
    lines = (line.split(":", 1) for line in path.read_text().splitlines() if ":" in line)
    return {name: value.split()[0] for name, value in lines if value.split()}


def cpu(pid):
    """Seconds by the clock of the process, which counts nanoseconds; its number is made from that of the process."""
    return time.clock_gettime(~pid << 3 | 2)


def switches(pid):
    return sum(int(fields(task / "status")["voluntary_ctxt_switches"]) for task in Path(f"/proc/{pid}/task").iterdir())


def use(pid):
    pids = tree(pid)
    maps = [fields(Path(f"/proc/{each}/smaps_rollup")) for each in pids]
    return {"cpu": sum(map(cpu, pids)), "switches": sum(map(switches, pids)),
            "resident": sum(int(each["Rss"]) for each in maps) << 10,
            "private": sum(int(each["Private_Dirty"]) for each in maps) << 10}


for argument in sys.argv[1:]:
    print(json.dumps(use(int(argument))))
