"""The running daemon: how soon it answers, and what it takes while it idles."""

from __future__ import annotations

import socket
import statistics
import struct
import tempfile
import threading
import time
from collections.abc import Callable

from bench.analyzer import PASSWORD, PATIENT_ID, Analyzer
from bench.pc import ANALYZER_UDP_PORT, Pc
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, PROJECT
from bench.zelapp import PATIENT, PcConnection, ResultSent
from benchmarks.measure import BIN, Row, google_benchmark, megabytes, nanoseconds

SCAN_PORT, ECHO_PORT = 9041, 9042
SCANS, TURNS = 400, 5
RESULTS = 20
IDLE_SECONDS = 6
# Its loop runs 10 times a second; the other threads wait in calls of seconds.
WAKEUPS_LIMIT = 15


def measure() -> list[Row]:
    with Analyzer() as analyzer:
        analyzer.start()
        idle = measure_idle(analyzer)
        scan = measure_scan(analyzer)
        sent = measure_results(analyzer)
        analyzer.daemon.stop()
    return [measure_encoding(), scan, sent, *idle]


def measure_encoding() -> Row:
    program = PROJECT / "tests/private-paths"
    times = google_benchmark(program, BIN.parent, BIN / "zelrm_result_benchmark", repetitions=100)
    ours, peer = times["LoadFillAndEncode"], times["SelectAndJoin"]
    return Row("Result: 30 analytes loaded, filled, encoded", nanoseconds(ours),
               f"SQLite alone, same rows: {nanoseconds(peer)}", f"{ours / peer:.1f} x the time", "< 1 ms", ours < 1e6)


def measure_scan(analyzer: Analyzer) -> Row:
    """Half the round trips must be below the limit. The peer gives back the same datagram in the same network."""
    ours: list[int] = []
    echoed: list[int] = []
    request = Packet(Command.SCAN, 1, 0, struct.pack(">H4s4x", SCAN_PORT, socket.inet_aton(PC_ADDRESS))).encode()
    sandbox = analyzer.sandbox
    with tempfile.TemporaryFile() as output, sandbox.socket(socket.SOCK_DGRAM, (PC_ADDRESS, SCAN_PORT)) as client:
        echo = sandbox.spawn([str(BIN / "zelrm_udp_echo"), ANALYZER_ADDRESS, str(ECHO_PORT)], output, output)
        client.settimeout(5)
        time.sleep(0.5)
        for _ in range(TURNS):
            ours += round_trips(client, request, ANALYZER_UDP_PORT)
            echoed += round_trips(client, request, ECHO_PORT)
        echo.signal(9)
        echo.wait(5)
    median, peer = statistics.median(ours), statistics.median(echoed)
    return Row("Service: scan answered, median", nanoseconds(median), f"bare UDP echo {nanoseconds(peer)}",
               f"{median / peer:.1f} x the time", "< 1 ms", median < 1e6)


def round_trips(client: socket.socket, request: bytes, port: int) -> list[int]:
    times = []
    for _ in range(SCANS):
        start = time.perf_counter_ns()
        client.sendto(request, (ANALYZER_ADDRESS, port))
        client.recv(2048)
        times.append(time.perf_counter_ns() - start)
    return times


def measure_results(analyzer: Analyzer) -> Row:
    """From ZELApp's request to the report that the PC has the result, the PC acknowledging at once."""
    times = []
    with Pc(analyzer.sandbox.socket) as pc:
        pc.register(PASSWORD)
        pc.start_heartbeat()
        assert analyzer.zelapp.expect(PcConnection, 10).connected
        for _ in range(RESULTS):
            thread = threading.Thread(target=pc.receive_result)
            thread.start()
            start = time.perf_counter_ns()
            analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
            analyzer.zelapp.expect(ResultSent)
            times.append(time.perf_counter_ns() - start)
            thread.join()
    median = statistics.median(times)
    return Row("Service: 0x0510 to 0x0513, median", nanoseconds(median), f"slowest of {RESULTS}: "
               f"{nanoseconds(max(times))}", "", "< 120 ms", median < 120e6)


def measure_idle(analyzer: Analyzer) -> list[Row]:
    time.sleep(2)  # start-up is over
    wakeups = change_per_second(lambda: voluntary_switches(analyzer))
    resident = analyzer.daemon.memory()
    return [Row("Service: resident memory, idle", megabytes(resident), "", "", "< 8 MB", resident < 8_000_000),
            Row("Service: wake-ups a second, idle", f"{wakeups:.1f}", "", "", f"<= {WAKEUPS_LIMIT}",
                wakeups <= WAKEUPS_LIMIT)]


def change_per_second(value: Callable[[], int]) -> float:
    start, before = time.monotonic(), value()
    time.sleep(IDLE_SECONDS)
    return (value() - before) / (time.monotonic() - start)


def voluntary_switches(analyzer: Analyzer) -> int:
    """Of all threads of the daemon so far."""
    text = analyzer.sandbox.run("sh", "-c", f"cat /proc/{analyzer.daemon.process.pid}/task/*/status")
    return sum(int(line.split()[1]) for line in text.splitlines() if line.startswith("voluntary_ctxt_switches"))
