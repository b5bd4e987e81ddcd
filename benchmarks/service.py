"""The running daemon: how soon it answers a scan, how long a result takes, how soon it is up."""

from __future__ import annotations

import contextlib
import socket
import statistics
import struct
import tempfile
import threading
import time
from collections.abc import Callable, Iterator, Sequence
from typing import Any

from bench.analyzer import PASSWORD, PATIENT, Analyzer, insert
from bench.daemon import RUNNERS, wait_until
from bench.machine import build_folder, preset
from bench.pc import ANALYZER_UDP_PORT, Pc
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS
from bench.zelapp import PATIENT as PATIENT_KIND
from bench.zelapp import PcConnection, ResultSent
from benchmarks.model import SECONDS, Curve, Group, Row, Sweep, at_most, more, within
from benchmarks.stats import percentile

SCAN_PORT, ECHO_PORT = 9041, 9042
SCANS, TRANSFERS = 400, 3
LOOK = 0.0005  # seconds between looks at whether the service is up, which must not keep it from coming up
USUAL, MANY = 30, 200  # analytes
ANALYTES = (1, 10, 30, 60, 100, 150, 200)  # more than some 220 do not fit into a packet
RESULTS = 1000  # ResultID of a result of n analytes is this and n

SCAN = Packet(Command.SCAN, 1, 0, struct.pack(">H4s4x", SCAN_PORT, socket.inet_aton(PC_ADDRESS))).encode()


class Service:
    """An analyzer with results of all sizes, its registered PC, and an echo on the analyzer's machine."""

    def __init__(self, analyzer: Analyzer, pc: Pc, client: socket.socket, scans: int):
        self.analyzer, self.pc, self.client, self.scans = analyzer, pc, client, scans
        client.settimeout(5)

    def round_trips(self, port: int) -> list[float]:
        times = []
        for _ in range(self.scans):
            start = time.perf_counter()
            self.client.sendto(SCAN, (ANALYZER_ADDRESS, port))
            self.client.recv(2048)
            times.append(time.perf_counter() - start)
        return times

    def transfer(self, result: int) -> tuple[float, float]:
        """From ZELApp's request to the PC's having the result, and to the report of it; the PC acknowledges at once."""
        arrived: list[float] = []

        def receive() -> None:
            self.pc.receive_result(30)
            arrived.append(time.perf_counter())

        thread = threading.Thread(target=receive)
        thread.start()
        start = time.perf_counter()
        self.analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {result}")
        self.analyzer.zelapp.expect(ResultSent, 30)
        reported = time.perf_counter()
        thread.join()
        return arrived[0] - start, reported - start


def add_result(analyzer: Analyzer, result: int, analytes: int) -> None:
    data: dict[str, Any] = dict(Result=12.25, Unit="mg/dL", RefRange_Min=5.5, RefRange_Max=40.5, QCFlag="0",
                                Dynamic_Min=2.5, Dynamic_Max=900.5)
    with contextlib.closing(analyzer.database()) as database, database:
        insert(database, "Tb_Result_Summary", PATIENT | {"ResultID": result})
        for index in range(analytes):
            insert(database, "Tb_Result_Data", {"ResultID": result, "AnalyteID": f"AN{index}"} | data)


def register(analyzer: Analyzer, pc: Pc) -> None:
    pc.register(PASSWORD)
    pc.start_heartbeat()
    if not analyzer.zelapp.expect(PcConnection, 20).connected:
        raise RuntimeError("the PC does not count as connected")


@contextlib.contextmanager
def echo(analyzer: Analyzer) -> Iterator[None]:
    """A bare echo of datagrams on the analyzer's machine, built for the machine that the daemon is built for."""
    program = str(build_folder() / "bin/zelrm_udp_echo")
    with tempfile.TemporaryFile("w+") as output:
        command = [*RUNNERS.get(preset(), []), program, ANALYZER_ADDRESS, str(ECHO_PORT)]
        process = analyzer.sandbox.spawn(command, output, output)

        def ready() -> bool:
            output.seek(0)
            return "ready" in output.read()

        wait_until(ready, 10, "the echo serves")
        yield
        process.signal(9)
        process.wait(5)


@contextlib.contextmanager
def open_service(quick: bool, analytes: Sequence[int] = ANALYTES) -> Iterator[Service]:
    with Analyzer() as analyzer, Pc(analyzer.sandbox.socket) as pc:
        for count in analytes:
            add_result(analyzer, RESULTS + count, count)
        analyzer.start()
        register(analyzer, pc)
        with echo(analyzer), analyzer.sandbox.socket(socket.SOCK_DGRAM, (PC_ADDRESS, SCAN_PORT)) as client:
            yield Service(analyzer, pc, client, SCANS // 4 if quick else SCANS)
        analyzer.daemon.stop()


def p50(port: int) -> Callable[[Service], float]:
    return lambda service: statistics.median(service.round_trips(port))


def p99(port: int) -> Callable[[Service], float]:
    return lambda service: percentile(service.round_trips(port), 99)


def transfers(analytes: int) -> Callable[[Service], float]:
    return lambda service: statistics.median(service.transfer(RESULTS + analytes)[1] for _ in range(TRANSFERS))


def marking(service: Service) -> float:
    """What the service does at the end of a transfer, by SQLite alone."""
    start = time.perf_counter()
    with contextlib.closing(service.analyzer.database()) as database, database:
        database.execute(f"UPDATE Tb_Result_Summary SET PCSync = 1 WHERE ResultID = {RESULTS + USUAL}")
    return time.perf_counter() - start


def by_analytes(service: Service, count: int) -> dict[str, list[float]]:
    return {"transfer-analytes": [service.transfer(RESULTS + count)[1] for _ in range(5)]}


# Start

@contextlib.contextmanager
def open_start(_quick: bool) -> Iterator[Analyzer]:
    with Analyzer() as analyzer:
        yield analyzer


def first_answer(analyzer: Analyzer) -> float:
    """From the start of the program to the first answer to a scan; ZELApp connects as soon as it can."""
    with analyzer.sandbox.socket(socket.SOCK_DGRAM, (PC_ADDRESS, SCAN_PORT)) as client:
        client.settimeout(LOOK)
        start = time.perf_counter()
        analyzer.daemon.start()
        while not analyzer.zelapp.socket:
            try:
                analyzer.zelapp.socket = analyzer.sandbox.connect_unix("/tmp/.rm_proc")
            except (FileNotFoundError, ConnectionRefusedError):
                time.sleep(LOOK)
        while True:
            client.sendto(SCAN, (ANALYZER_ADDRESS, ANALYZER_UDP_PORT))
            with contextlib.suppress(TimeoutError):
                client.recv(2048)
                break
        taken = time.perf_counter() - start
    analyzer.zelapp.close()
    analyzer.daemon.stop()
    return taken


def bare_start(analyzer: Analyzer) -> float:
    """What it takes to start a program there that does nothing."""
    with tempfile.TemporaryFile() as output:
        start = time.perf_counter()
        process = analyzer.sandbox.spawn(["/usr/bin/true"], output, output)
        process.wait(5)
        return time.perf_counter() - start


STEP = "After sending, the service looks for the PC's acknowledgement at once and then every 80 ms; the first look " \
       "mostly comes before the PC has answered. Then the result is marked in the database, a commit that waits for " \
       "the disk four times."

SCANNED = "Before each answer the service reads its settings, asks the device library for the model, and the system " \
          "for the route and the address, since all of them may change at any time: 32 calls of the system beside " \
          "two of the echo. Eight of them are lines of the log and of the library's, which are in their files before " \
          "the next datagram is taken."

TAIL = "What takes milliseconds waited for another program's turn on the processor. At a real-time priority " \
       "(chrt -f 20) 99 of 100 take less than 0.25 ms, also on a machine that is busy."

STARTED = "A shell makes the directory of updates, which is a third of it, and each step has its line in the log. " \
          "Nothing waits for a time. A machine that is busy doubles the figure."

GROUP = Group(
    "service", open_service,
    [Row("scan-p50", "Scan answered, half of them", SECONDS, p50(ANALYZER_UDP_PORT),
         {"bare echo in C": p50(ECHO_PORT)}, within(5), floor=SCANNED),
     Row("scan-p99", "Scan answered, 99 of 100", SECONDS, p99(ANALYZER_UDP_PORT), {"bare echo in C": p99(ECHO_PORT)},
         within(8), floor=TAIL),
     Row("transfer", "A result of 30 analytes from ZELApp's request to the report that the PC has it", SECONDS,
         transfers(USUAL), goal=at_most(0.085), parts={"marking it as sent, by SQLite alone": marking}, floor=STEP),
     Row("transfer-200", "A result of 200 analytes, more than one of 30 takes", SECONDS, transfers(MANY),
         {"30 analytes": transfers(USUAL)}, more(0.005), floor=STEP)],
    [Sweep([Curve("transfer-analytes", "A result from ZELApp's request to the report that the PC has it", SECONDS,
                  "analytes", floor=STEP)], ANALYTES, by_analytes)])

START = Group("start", open_start, [
    Row("start", "From the start of the program to the first scan answered, ZELApp connecting at once", SECONDS,
        first_answer, goal=at_most(0.020), parts={"starting a program that does nothing": bare_start}, floor=STARTED)])
