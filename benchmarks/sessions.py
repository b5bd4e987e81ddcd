"""What sessions cost while they are idle and while they talk: memory, threads, and the time of a scan beside them."""

from __future__ import annotations

import contextlib
import select
import socket
import statistics
import subprocess
import time
from collections.abc import Callable, Iterator
from pathlib import Path

from bench.daemon import wait_until
from bench.pc import ANALYZER_TCP_PORT, ANALYZER_UDP_PORT
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, PROJECT
from benchmarks.model import BYTES, NUMBER, SECONDS, Curve, Group, Sweep
from benchmarks.service import Service, open_service

SIZES = (0, 50, 100, 150, 200, 350, 500)
REPEATS = 5
OTHERS = 200  # sessions that the service takes from addresses that are not the registered PC's


def connect(service: Service, count: int) -> list[socket.socket]:
    made = []
    for _ in range(count):
        session = service.analyzer.sandbox.socket(socket.SOCK_STREAM, (PC_ADDRESS, 0))
        session.settimeout(5)
        made.append(session)
        session.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
    return made


def settle(read: Callable[[], int], hold: float = 0.5) -> None:
    """Waits until a number has stayed the same for a while."""
    value, since = read(), time.monotonic()
    deadline = since + 20
    while time.monotonic() < min(since + hold, deadline):
        time.sleep(0.05)
        if read() != value:
            value, since = read(), time.monotonic()


@contextlib.contextmanager
def talking(sessions: list[socket.socket]) -> Iterator[None]:
    if not sessions:
        yield
        return
    fds = [session.fileno() for session in sessions]
    process = subprocess.Popen(["/usr/bin/python3", str(Path(__file__).parent / "talk.py"), *map(str, fds)],
                               pass_fds=fds, stdout=subprocess.PIPE, env={"PYTHONPATH": str(PROJECT)})
    assert process.stdout
    try:
        if not select.select([process.stdout], [], [], 20)[0]:
            raise RuntimeError("nobody talks")
        time.sleep(1)  # everybody has asked
        yield
    finally:
        process.kill()
        process.wait()
        process.stdout.close()


def figures(service: Service, kind: str) -> dict[str, list[float]]:
    daemon = service.analyzer.daemon
    latencies, memory, threads = [], [], []
    for _ in range(REPEATS):
        latencies.append(statistics.median(service.round_trips(ANALYZER_UDP_PORT)))
        memory.append(float(daemon.memory_detail()[0]))
        threads.append(float(daemon.threads()))
    return {f"{kind}-latency": latencies, f"{kind}-memory": memory, f"{kind}-threads": threads}


def by_sessions(service: Service, count: int) -> dict[str, list[float]]:
    threads = service.analyzer.daemon.threads
    before = threads()
    sessions = connect(service, count)
    try:
        settle(threads)
        found = figures(service, "idle")
        kept = [session for session in sessions if not closed(session)]
        with talking(kept):
            found |= figures(service, "talking")
    finally:
        for session in sessions:
            session.close()
    wait_until(lambda: threads() <= before, 30, "the sessions end")
    return found


def closed(session: socket.socket) -> bool:
    """Whether the service has closed it; it sends nothing by itself."""
    return bool(select.select([session], [], [], 0)[0])


def curves(kind: str, what: str) -> list[Curve]:
    return [Curve(f"{kind}-latency", f"Scan answered beside {what} sessions", SECONDS, "sessions"),
            Curve(f"{kind}-memory", f"Resident memory with {what} sessions", BYTES, "sessions", floor=THREAD),
            Curve(f"{kind}-threads", f"Threads with {what} sessions", NUMBER, "sessions", floor=THREAD)]


THREAD = "A session is a thread, and its memory that of a thread's stack and buffers. These come from the registered " \
         f"PC's address, which always gets in; of anybody else's there are at most {OTHERS}."

GROUP = Group("sessions", open_service,
              sweeps=[Sweep(curves("idle", "idle") + curves("talking", "talking"), SIZES, by_sessions)])
