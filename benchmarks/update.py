"""Moving an image from its three sources onto the analyzer, beside cp, socat and curl moving the same bytes.

The image is a DSP file: the daemon stores it and hands it to ZELApp, so that no writing to partitions is in the way.
Everything happens in one sandbox, from and to the same file system, over the same network. Each way is gone several
times in turns with its peer, and the least times are compared.
"""

from __future__ import annotations

import re
import socket
import tempfile
import time
from collections.abc import Callable
from datetime import datetime

from bench.analyzer import PASSWORD, Analyzer
from bench.daemon import wait_until
from bench.image import DSP, file_name, make, pattern, server_path
from bench.pc import DSP as DSP_BIT
from bench.pc import IMAGE_PIECE, Pc
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, UPDATE_HOST
from bench.updateserver import UpdateServer
from bench.zelapp import PcConnection, UpdateComplete, UpdateRequested
from benchmarks.measure import Row, megabytes

MODEL = "human"
FILE = file_name(DSP, MODEL)
SIZE = 64 << 20
STICK_SIZE = 192 << 20  # long enough for clocks of a millisecond
PUSH_SIZE = 100 << 20
TURNS = 8
GOAL = 0.8
MEMORY_LIMIT = 12_000_000
STORED = "/tmp/zel_dsp.out"  # where the daemon puts the image's data
COPY = "/tmp/peer.out"
SOCAT_PORT = 9043

PUSH, USB, SERVER = 4, 1, 3  # methods of an update


class Bench:
    def __init__(self, analyzer: Analyzer, pc: Pc):
        self.analyzer, self.pc = analyzer, pc
        self.payload = pattern(SIZE)
        self.stick_payload = pattern(STICK_SIZE)
        self.version = 1

    def image(self, payload: bytes) -> bytes:
        """The next update file; the analyzer takes only newer versions."""
        self.version += 1
        return make(DSP, MODEL, f"1.00.00.{self.version:04}", payload)

    def update(self, method: int) -> None:
        """Starts an update and waits for its end and for the worker to be gone."""
        self.analyzer.zelapp.start_update(method)
        self.finish()

    def finish(self) -> None:
        self.analyzer.zelapp.expect(UpdateComplete, 120)
        wait_until(self._worker_ended, 10, "the worker ends")

    def _worker_ended(self) -> bool:
        """The worker's last act is to put the status back that it found."""
        log = self.analyzer.daemon.log()
        return log.rfind("Status changed to") > log.rfind("[CUpdate::Run] Update Start")

    def check_stored(self, payload: bytes) -> None:
        stored = self.analyzer.sandbox.path(STORED)
        if stored.read_bytes() != payload:
            raise RuntimeError("the image was not stored as it was sent")

    def forget(self, *paths: str) -> None:
        """Everybody starts with a file that is not there."""
        for path in paths:
            self.analyzer.sandbox.path(path).unlink(missing_ok=True)

    def logged_seconds(self, first: str, last: str) -> float:
        """Between the last log line that holds one text and the next that holds another."""
        lines = self.analyzer.daemon.log().splitlines()
        start = max(i for i, line in enumerate(lines) if first in line)
        end = next(line for line in lines[start:] if last in line)
        return (log_time(end) - log_time(lines[start])).total_seconds()

    def timed_inside(self, command: str) -> float:
        """Seconds that a shell command takes inside the sandbox."""
        text = self.analyzer.sandbox.run("bash", "-c", f"TIMEFORMAT=%R; time {command}", timeout=120)
        return float(re.findall(r"[\d.]+", text)[-1])

    # The three ways, each beside its peer

    def from_stick(self) -> float:
        stick = self.analyzer.device / "usb"
        stick.mkdir(exist_ok=True)
        (stick / FILE).write_bytes(self.image(self.stick_payload))
        self.forget(STORED)
        self.update(USB)
        self.check_stored(self.stick_payload)
        return self.logged_seconds("[CUpdate::CopyFile] Copy file", "file copy complete")

    def by_cp(self) -> float:
        self.forget(COPY)
        return self.timed_inside(f"cp /data/device/usb/{FILE} {COPY}")

    def from_server(self) -> float:
        self.server.publish(MODEL, {DSP: self.image(self.payload)})
        self.forget(STORED)
        self.update(SERVER)
        self.check_stored(self.payload)
        return self.logged_seconds("[CUpdate::DownloadContentsFromNet] Send to update server", "file copy complete")

    def by_curl(self) -> float:
        self.forget(COPY)
        url = f"http://{UPDATE_HOST}/{server_path(DSP, MODEL)}"
        return float(self.analyzer.sandbox.run("curl", "-s", "-o", COPY, "-w", "%{time_total}", url, timeout=120))

    def packets(self, payload: bytes) -> list[bytes]:
        data = self.image(payload)
        return [Packet(Command.IMAGE_DATA, 1, ord(self.pc.peer_id), data[start:start + IMAGE_PIECE],
                       start + IMAGE_PIECE < len(data)).encode() for start in range(0, len(data), IMAGE_PIECE)]

    def from_pc(self) -> float:
        return self.push(self.payload)

    def push(self, payload: bytes) -> float:
        """Seconds from the first byte to the packet that says the image is stored."""
        packets = self.packets(payload)
        self.forget(STORED)
        self.pc.offer_update([DSP_BIT])
        self.analyzer.zelapp.expect(UpdateRequested)
        self.analyzer.zelapp.answer_update_request(possible=True)
        self.analyzer.zelapp.start_update(PUSH)
        self.pc.expect(Command.UPDATE_ACCEPTED, 10)
        start = time.perf_counter()
        for packet in packets:
            self.pc.send_raw(packet)
        self.pc.expect(Command.IMAGE_RECEIVED, 120)
        seconds = time.perf_counter() - start
        self.finish()
        self.check_stored(payload)
        return seconds

    def by_socat(self) -> float:
        """The same sender; from the first byte to the end of socat, which is when its file is written."""
        packets = self.packets(self.payload)
        self.forget(COPY)
        sandbox = self.analyzer.sandbox
        with tempfile.TemporaryFile() as output:
            socat = sandbox.spawn(["socat", "-u", f"TCP-LISTEN:{SOCAT_PORT},bind={ANALYZER_ADDRESS},reuseaddr",
                                   f"CREATE:{COPY}"], output, output)
            connection = wait_until(self._connect_to_socat, 5, "socat listens")
            start = time.perf_counter()
            for packet in packets:
                connection.sendall(packet)
            connection.close()
            status = socat.wait(120)
            seconds = time.perf_counter() - start
        if status != 0 or sandbox.path(COPY).stat().st_size != sum(map(len, packets)):
            raise RuntimeError("socat did not receive everything")
        return seconds

    def _connect_to_socat(self) -> socket.socket | None:
        connection = self.analyzer.sandbox.socket(socket.SOCK_STREAM, (PC_ADDRESS, 0))
        try:
            connection.connect((ANALYZER_ADDRESS, SOCAT_PORT))
            return connection
        except ConnectionRefusedError:
            connection.close()
            return None

    def most_memory(self) -> int:
        """The most bytes that were ever resident."""
        with self.analyzer.sandbox.open(f"/proc/{self.analyzer.daemon.process.pid}/status", "r") as file:
            return next(int(line.split()[1]) * 1024 for line in file if line.startswith("VmHWM"))

    def serve(self) -> None:
        self.server = UpdateServer(self.analyzer.sandbox)


def log_time(line: str) -> datetime:
    return datetime.strptime(line[:23], "%Y-%m-%d %H:%M:%S.%f")


def compare(what: str, ours: Callable[[], float], peer: Callable[[], float], name: str, size: int = SIZE) -> Row:
    mine, other = [], []
    for _ in range(TURNS):
        mine.append(ours())
        other.append(peer())
    ratio = min(other) / min(mine)

    def rate(seconds: float) -> str:
        return f"{size / (1 << 20) / seconds:.0f} MiB/s"

    return Row(what, rate(min(mine)), f"{name} {rate(min(other))}", f"{ratio:.2f} x", f">= {GOAL} x", ratio >= GOAL)


def measure() -> list[Row]:
    with Analyzer() as analyzer, Pc(analyzer.sandbox.socket) as pc:
        analyzer.start()
        pc.register(PASSWORD)
        pc.start_heartbeat()
        assert analyzer.zelapp.expect(PcConnection, 10).connected
        bench = Bench(analyzer, pc)
        bench.push(pattern(PUSH_SIZE))
        memory = bench.most_memory()
        bench.serve()
        rows = [Row("Update: most memory, 100 MiB pushed", megabytes(memory), "", "", "< 12 MB",
                    memory < MEMORY_LIMIT),
                compare("Update: copying from the stick", bench.from_stick, bench.by_cp, "cp", STICK_SIZE),
                compare("Update: receiving from the PC", bench.from_pc, bench.by_socat, "socat"),
                compare("Update: receiving from the server", bench.from_server, bench.by_curl, "curl")]
        analyzer.daemon.stop()
    return rows
