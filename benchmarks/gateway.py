"""The gateway: acknowledgements, delivery and rest, beside the least that each can take.

Everything runs on loopback addresses of a network of its own, the stores on the disk of the build folder. A program
there obeys the names of measures.
"""

from __future__ import annotations

import json
import os
import select
import shutil
import sqlite3
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import closing, contextmanager
from functools import partial
from pathlib import Path
from typing import Any

from bench.sandbox import PROJECT
from benchmarks.measure import BIN, MissingPeer, run
from benchmarks.model import BELOW, BYTES, SECONDS, SHARE, Group, Row, at_most, within
from benchmarks.npm_packages import DIRECTORY, NoPackages, install

ZELPC = PROJECT / "build/pc/bin/zelpc"
WORK = PROJECT / "build/gateway-bench"
PEERS = str(BIN / "zelrm_gateway_peers")
HERE = Path(__file__).resolve().parent
TEXT = WORK / "result.hl7"

ACKNOWLEDGED = 200  # results, or bare commits, a turn
BEFORE = 1000  # of either, until the journal does not grow any more and everything is in its place
ANALYZERS, RATE, LASTING = 50, 2000, 30
IDLE, IDLE_SECONDS = 1000, 20
SETTLED = 10  # seconds after which what registering took is over
LIS_PORT = 2575
PATIENCE = 180  # seconds for one order, or for the gateway to have all its analyzers

CONFIG = """
[gateway]
log = "warn"
[store]
path = "{folder}/store.db"
min_free_mb = 0
[pc]
address = "127.0.0.20"
[scan]
enabled = false
[web]
address = "127.0.0.1"
"""
ANALYZER = """
[[analyzer]]
address = "127.20.{}.{}"
password_file = "{folder}/password"
"""
DESTINATION = """
[[destination]]
name = "lis"
type = "mllp"
host = "127.0.0.1"
port = {port}
format = "as-is"
first_pause_s = 0.1
longest_pause_s = 0.2
"""


class Peer:
    """A program that obeys lines, see gateway/Main.cpp. `ready`: wait until it can."""

    def __init__(self, *command: str | Path, ready: bool = True):
        self.process = subprocess.Popen(list(map(str, command)), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, env=dict(os.environ, NODE_PATH=str(DIRECTORY / "node_modules")))
        if ready:
            self.wait_ready()

    def wait_ready(self) -> None:
        if self._line() != "ready":
            raise RuntimeError(f"{self.process.args} does not begin")

    def begin(self, order: str) -> None:
        print(order, file=self.process.stdin, flush=True)

    def end(self) -> dict[str, Any]:
        return json.loads(self._line())

    def obey(self, order: str) -> dict[str, Any]:
        self.begin(order)
        return self.end()

    def _line(self) -> str:
        told, _, _ = select.select([self.process.stdout], [], [], PATIENCE)
        line = self.process.stdout.readline() if told else ""
        if not line:
            raise RuntimeError(f"{self.process.args} ended or says nothing for {PATIENCE} s")
        return line.strip()

    def __enter__(self) -> Peer:
        return self

    def __exit__(self, *_: object) -> None:
        self.process.kill()
        self.process.wait()


@contextmanager
def gateway(analyzers: int, port: int = LIS_PORT) -> Iterator[tuple[subprocess.Popen[bytes], Peer]]:
    """A gateway with a new store, and the analyzers that it holds."""
    folder = WORK / "gateway"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    (folder / "password").write_text("zel1234\n")
    config = folder / "gateway.toml"
    config.write_text(CONFIG.format(folder=folder) + DESTINATION.format(port=port) + "".join(
        ANALYZER.format((number + 1) >> 8, (number + 1) & 255, folder=folder) for number in range(analyzers)))
    run(ZELPC, "gateway", "--config", config, "--check")
    with Peer(PEERS, "analyzers", str(analyzers), TEXT, ready=False) as held:
        with open(folder / "log", "wb") as log:
            process = subprocess.Popen([ZELPC, "gateway", "--config", config], stdout=log, stderr=log)
        try:
            held.wait_ready()
            yield process, held
        finally:
            process.kill()
            process.wait()


PYTHON_HL7 = ["/usr/bin/python3", HERE / "gateway_peers.py"]
RECEIVERS: dict[str, tuple[list[str | Path], int]] = {  # and how many messages they get a turn
    "instant": ([PEERS, "receive"], 4000),
    "python-hl7": ([*PYTHON_HL7, "receive"], 200),
}
SENDERS: dict[str, list[str | Path]] = {
    "bare": [PEERS, "send"],
    "python-hl7": [*PYTHON_HL7, "send"],
    "simple-hl7": ["node", HERE / "gateway_peers.cjs", "send"],
}


def acknowledged() -> float:
    """Seconds from a result to its acknowledgement, of one analyzer that sends as fast as it gets them; median."""
    with gateway(1) as (_, analyzers):
        analyzers.obey(f"count {BEFORE}")
        return analyzers.obey(f"count {ACKNOWLEDGED}")["p50"]


def committed() -> float:
    for file in WORK.glob("bare.db*"):
        file.unlink()
    with Peer(PEERS, "commit", WORK / "bare.db", TEXT) as commits:
        commits.obey(f"count {BEFORE}")
        return commits.obey(f"count {ACKNOWLEDGED}")["p50"]


def loaded() -> float:
    """The same with many analyzers at a fixed rate, of which no result may stay without; 99 of 100 take less."""
    with gateway(ANALYZERS) as (_, analyzers):
        told = analyzers.obey(f"rate {RATE} {LASTING}")
        if told["lost"]:
            raise RuntimeError(f"{told['lost']:.0f} of {told['count']:.0f} results were not acknowledged")
        return told["p99"]


def delivered(receiver: str) -> float:
    """Seconds a message of the gateway to one receiver, which looks at the clock."""
    command, count = RECEIVERS[receiver]
    with gateway(10) as (_, analyzers):
        analyzers.obey(f"count {count}")
        wait_until_queued(count)
        with Peer(*command, LIS_PORT) as taker:
            return taker.obey(f"count {count}")["seconds"] / count


def wait_until_queued(count: int) -> None:
    end = time.monotonic() + PATIENCE
    with closing(sqlite3.connect(WORK / "gateway/store.db")) as store:
        while store.execute("SELECT count(*) FROM delivery").fetchone()[0] < count:
            if time.monotonic() > end:
                raise RuntimeError("results are kept and not queued")
            time.sleep(0.05)


def sent(receiver: str, sender: str) -> float:
    """The same of a client that has nothing else to do and sends one message over and over."""
    command, count = RECEIVERS[receiver]
    with Peer(*command, LIS_PORT) as taker, Peer(*SENDERS[sender], LIS_PORT, TEXT) as client:
        taker.begin(f"count {count}")
        client.begin(f"count {count}")
        return taker.end()["seconds"] / count


def idle_memory() -> float:
    with gateway(IDLE) as (process, _):
        time.sleep(SETTLED)
        return float(Path(f"/proc/{process.pid}/status").read_text().split("VmRSS:")[1].split()[0]) * 1024


def idle_processor() -> float:
    with gateway(IDLE) as (process, _):
        time.sleep(SETTLED)
        before = processor_time(process.pid)
        time.sleep(IDLE_SECONDS)
        return (processor_time(process.pid) - before) / IDLE_SECONDS


def processor_time(pid: int) -> float:
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


MEASURES: dict[str, Callable[[], float]] = {
    "acknowledged": acknowledged, "committed": committed, "loaded": loaded,
    **{f"delivered-{receiver}": partial(delivered, receiver) for receiver in RECEIVERS},
    **{f"sent-{receiver}-{sender}": partial(sent, receiver, sender) for receiver in RECEIVERS for sender in SENDERS},
    "idle-memory": idle_memory, "idle-processor": idle_processor}


def serve(quick: bool) -> None:
    global LASTING, IDLE_SECONDS
    if quick:
        LASTING, IDLE_SECONDS = 5, 5
    run(BIN / "zelrm_hl7_heap", TEXT)
    print("ready", flush=True)
    for line in sys.stdin:
        try:
            told = {"value": MEASURES[line.strip()]()}
        except (OSError, RuntimeError, ValueError) as error:
            told = {"failed": f"{error}"}
        print(json.dumps(told), flush=True)


@contextmanager
def inside(quick: bool) -> Iterator[Peer]:
    WORK.mkdir(parents=True, exist_ok=True)
    with Peer(PROJECT / "tests/private-paths", PROJECT / "build", "/usr/bin/env", f"PYTHONPATH={PROJECT}",
              "PYTHONDONTWRITEBYTECODE=1", "/usr/bin/python3", "-m", "benchmarks.gateway",
              "quick" if quick else "whole") as measures:
        yield measures


def measure(name: str) -> Callable[[Peer], float]:
    def ask(measures: Peer) -> float:
        if name.endswith("simple-hl7"):
            try:
                install()
            except NoPackages as error:
                raise MissingPeer(str(error)) from None
        told = measures.obey(name)
        if "failed" in told:
            raise RuntimeError(told["failed"])
        return told["value"]
    return ask


ACKNOWLEDGE_FLOOR = (
    "The text is committed as the bare one is, and filed later. Around the commit a packet comes and one goes, each "
    "waking a program.")
DELIVERY_FLOOR = (
    "For each message the gateway also takes it from the store, looks at its answer, and notes it there, on two threads "
    "that share two processors with the sending one and the receiver; it looks whether the other side has closed before "
    "it sends. The others send one text over and over. Where the receiver takes longer than a tenth of a millisecond, "
    "as python-hl7's, nothing of this shows.")


def delivery_rows(key: str, receiver: str, what: str) -> list[Row]:
    """Nobody can be quicker than who sends ready-made frames; of who makes messages, nobody shall be."""
    def senders(*names: str) -> dict[str, Callable[[Peer], float]]:
        return {f"{name} client": measure(f"sent-{receiver}-{name}") for name in names}

    ours = measure(f"delivered-{receiver}")
    return [Row(key, f"A result by MLLP to {what}, beside bare frames", SECONDS, ours, senders("bare"), within(1.1),
                turns=5, floor=DELIVERY_FLOOR),
            Row(f"{key}-others", f"A result by MLLP to {what}, beside others", SECONDS, ours,
                senders("python-hl7", "simple-hl7"), BELOW, turns=5, floor=DELIVERY_FLOOR)]


GROUP = Group("gateway", inside, [
    Row("gateway-acknowledge", "A result stored and acknowledged, beside a bare commit", SECONDS,
        measure("acknowledged"), {"SQLite": measure("committed")}, within(2), floor=ACKNOWLEDGE_FLOOR),
    Row("gateway-load", f"The same, {RATE} a second from {ANALYZERS} analyzers, 99 of 100", SECONDS, measure("loaded"),
        goal=at_most(0.05), turns=1),
    *delivery_rows("gateway-mllp", "instant", "an instant receiver"),
    *delivery_rows("gateway-python", "python-hl7", "python-hl7's server"),
    Row("gateway-idle-memory", f"{IDLE} analyzers at rest: resident memory", BYTES, measure("idle-memory"),
        goal=at_most(64 << 20), turns=1),
    Row("gateway-idle-cpu", f"{IDLE} analyzers at rest: processor", SHARE, measure("idle-processor"),
        goal=at_most(0.05), turns=1)], needs=("service", "node", "pc"))


if __name__ == "__main__":
    serve(sys.argv[1] == "quick")
