"""Moving an image from its three sources onto the analyzer, beside cp, socat and curl moving the same bytes, and
writing it, beside dd.

What is moved is a DSP file: the daemon stores it and hands it to ZELApp, so that no writing to partitions is in the
way.
Everything happens in one sandbox, from and to the same file system, over the same network.
"""

from __future__ import annotations

import contextlib
import functools
import re
import shutil
import socket
import tempfile
import time
from collections.abc import Callable, Iterator, Sequence
from datetime import datetime
from pathlib import Path

from bench.analyzer import Analyzer
from bench.daemon import wait_until
from bench.image import APP, DSP, SYS, XML, file_name, make, make_release, pattern, sample_payloads, server_path
from bench.pc import DSP as DSP_BIT
from bench.pc import IMAGE_PIECE, Pc
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, UPDATE_HOST
from bench.updateserver import UpdateServer
from bench.zelapp import NothingToUpdate, UpdateComplete, UpdateFailed, UpdateRequested, ZelApp
from benchmarks.measure import BIN
from benchmarks.model import BYTES, SECONDS, Curve, Group, Row, Sweep, faster
from benchmarks.service import register

MODEL = "human"
MIB = 1 << 20
PUSH_SIZE = 64 * MIB
SERVER_SIZE = 64 * MIB  # the log of a larger one has lost its beginning by the end
LONG_SIZE = 192 * MIB  # where the times are the log's, which knows milliseconds
RELEASE_PART = 9 * MIB  # of each of seven images; the eighth is the package of four of them
SIZES = (1, 4, 16, 64, 128, 256)  # MiB
REPEATS = 3
STORED = "/tmp/zel_dsp.out"  # where the daemon puts the image's data
RAW = "/tmp/zel_app.n62.raw"
WRITTEN = f"/data/device/images/{APP}.img"
USB, SERVER, PUSH = 1, 3, 4  # methods of an update
SOCAT_PORT = 9043
LOG = "/tmp/peer.log"
COPY, COPIES = "/tmp/peer.out", "/tmp/peer.copies"


class Updates:
    def __init__(self, analyzer: Analyzer, pc: Pc, size: int):
        self.analyzer, self.pc = analyzer, pc
        self.size = size  # of the long images, whose times are the log's
        self.version = 1
        self.server: UpdateServer | None = None
        self._files: dict[int, bytes] = {}  # by size, but for the version

    def path(self, inside: str) -> Path:
        return self.analyzer.sandbox.path(inside)

    def next_version(self) -> str:
        """The analyzer takes only newer versions."""
        self.version += 1
        return f"1.00.00.{self.version:04}"

    def image(self, size: int) -> bytes:
        """The next update file of this size."""
        if size not in self._files:
            self._files = {size: make(DSP, MODEL, "1.00.00.0001", pattern(size))}
        file = self._files[size]
        return file[:8] + self.next_version().encode().ljust(16, b"\0") + file[24:]

    def put_on_stick(self, files: dict[int, bytes]) -> None:
        stick = self.analyzer.device / "usb"
        shutil.rmtree(stick, ignore_errors=True)
        stick.mkdir()
        for image, data in files.items():
            (stick / file_name(image, MODEL)).write_bytes(data)

    def update(self, method: int) -> float:
        """From the start request to the report of the end; returns when the worker is gone, too."""
        start = time.perf_counter()
        self.analyzer.zelapp.start_update(method)
        finish(self.analyzer.zelapp)
        taken = time.perf_counter() - start
        wait_until(self._worker_ended, 10, "the worker ends")
        return taken

    def _worker_ended(self) -> bool:
        """The worker's last act is to put the status back that it found."""
        log = self.analyzer.daemon.log()
        return log.rfind("Status changed to") > log.rfind("[CUpdate::Run] Update Start")

    def check_stored(self, file: bytes) -> None:
        if self.path(STORED).read_bytes() != file[40:]:
            raise RuntimeError("the image was not stored as it was sent")

    def forget(self, *paths: str) -> None:
        """Everybody starts with a file that is not there."""
        for path in paths:
            self.path(path).unlink(missing_ok=True)

    def logged(self, first: str, last: str) -> float:
        """Seconds between the last log line that holds one text and the next that holds another."""
        lines = self.analyzer.daemon.log().splitlines()
        start = max(i for i, line in enumerate(lines) if first in line)
        end = next(line for line in lines[start:] if last in line)
        return (log_time(end) - log_time(lines[start])).total_seconds()

    def inside(self, command: str) -> float:
        """Seconds that a shell command takes on the analyzer's machine."""
        text = self.analyzer.sandbox.run("bash", "-c", f"TIMEFORMAT=%R; time {command} 2>/dev/null", timeout=120)
        return float(re.findall(r"[\d.]+", text)[-1])

    # The stick

    def from_stick(self, size: int) -> float:
        """Seconds of the whole update, which only copies."""
        file = self.image(size)
        self.put_on_stick({DSP: file})
        self.forget(STORED)
        taken = self.update(USB)
        self.check_stored(file)
        return taken

    def copying(self) -> float:
        self.from_stick(self.size)
        return self.logged("[CUpdate::CopyFile] Copy file", "file copy complete")

    def by_cp(self) -> float:
        self.forget(COPY)
        return self.inside(f"cp /data/device/usb/{file_name(DSP, MODEL)} {COPY}")

    # The server

    def from_server(self) -> float:
        """The APP file of a release; the analyzer takes no other from there that is not written to partitions."""
        self.server = self.server or UpdateServer(self.analyzer.sandbox)
        files = self.release({APP: SERVER_SIZE}, 1000)
        del files[DSP]
        self.server.publish(MODEL, files)
        self.update(SERVER)
        if self.path(WRITTEN).read_bytes() != files[APP][40:]:
            raise RuntimeError("the image was not stored as the server has it")
        return self.logged(f"Send to update server: GET /{server_path(APP, MODEL)}", f"{RAW} file copy complete")

    def by_curl(self) -> float:
        self.forget(COPY)
        url = f"http://{UPDATE_HOST}/{server_path(APP, MODEL)}"
        return float(self.analyzer.sandbox.run("curl", "-s", "-o", COPY, "-w", "%{time_total}", url, timeout=120))

    def by_log(self) -> float:
        """As many lines as the service writes meanwhile, one for each 4 KiB, into a log of their own."""
        command = f"mkdir -p {LOG} && ZEL_LOG_DIR={LOG} {BIN}/zelrm_log_lines {SERVER_SIZE // 4096}"
        return float(self.analyzer.sandbox.run("sh", "-c", command, timeout=120))

    # The PC

    def packets(self, data: bytes) -> list[bytes]:
        return [Packet(Command.IMAGE_DATA, 1, ord(self.pc.peer_id), data[start:start + IMAGE_PIECE],
                       start + IMAGE_PIECE < len(data)).encode() for start in range(0, len(data), IMAGE_PIECE)]

    def push(self, size: int = PUSH_SIZE) -> float:
        """Seconds from the first byte to the packet that says the image is stored."""
        file = self.image(size)
        packets = self.packets(file)
        self.forget(STORED)
        self.pc.offer_update([DSP_BIT])
        self.analyzer.zelapp.expect(UpdateRequested)
        self.analyzer.zelapp.answer_update_request(possible=True)
        self.analyzer.zelapp.start_update(PUSH)
        self.pc.expect(Command.UPDATE_ACCEPTED, 20)
        start = time.perf_counter()
        for packet in packets:
            self.pc.send_raw(packet)
        self.pc.expect(Command.IMAGE_RECEIVED, 120)
        taken = time.perf_counter() - start
        finish(self.analyzer.zelapp)
        wait_until(self._worker_ended, 10, "the worker ends")
        self.check_stored(file)
        return taken

    def by_socat(self, program: Sequence[str] = ("socat",), size: int = PUSH_SIZE) -> float:
        """The same sender; from the first byte to the end of socat, which is when its file is written."""
        packets = self.packets(self.image(size))
        self.forget(COPY)
        sandbox = self.analyzer.sandbox
        with tempfile.TemporaryFile() as output:
            socat = sandbox.spawn([*program, "-u", f"TCP-LISTEN:{SOCAT_PORT},bind={ANALYZER_ADDRESS},reuseaddr",
                                   f"CREATE:{COPY}"], output, output)
            connection = wait_until(self._connect_to_socat, 5, "socat listens")
            start = time.perf_counter()
            for packet in packets:
                connection.sendall(packet)
            connection.close()
            status = socat.wait(120)
            taken = time.perf_counter() - start
        if status != 0 or self.path(COPY).stat().st_size != sum(map(len, packets)):
            raise RuntimeError("socat did not receive everything")
        return taken

    def _connect_to_socat(self) -> socket.socket | None:
        connection = self.analyzer.sandbox.socket(socket.SOCK_STREAM, (PC_ADDRESS, 0))
        try:
            connection.connect((ANALYZER_ADDRESS, SOCAT_PORT))
            return connection
        except ConnectionRefusedError:
            connection.close()
            return None

    # Writing, and a whole release

    def release(self, sizes: dict[int, int], small: int) -> dict[int, bytes]:
        """The files of a release, whose images have these sizes or the small one."""
        payloads = sample_payloads(small) | {image: payload(size, image) for image, size in sizes.items()}
        return make_release(MODEL, self.next_version(), payloads)

    def writing(self) -> float:
        self.put_on_stick(self.release({APP: self.size}, 1000))
        self.forget(WRITTEN)
        self.update(USB)
        return self.logged(f"[CUpdate::WriteImage] ID({APP}) write update image start",
                           f"[CUpdate::WriteImage] ID({APP}) image update complete")

    def by_dd(self) -> float:
        self.forget(COPY)
        return self.inside(f"dd if=/data/device/usb/{file_name(APP, MODEL)} of={COPY} bs=128k")

    def by_library(self) -> float:
        """The same calls of the device library's stand-in alone, from memory."""
        self.forget(WRITTEN)
        text = self.analyzer.sandbox.run(str(BIN / "zelrm_write_blocks"), str(APP), str(self.size), timeout=120)
        return float(text)

    def whole_release(self) -> float:
        # The archive of analytes is unpacked, not copied: it stays small.
        files = self.release({image: RELEASE_PART for image in range(SYS) if image != XML}, 1000)
        self.put_on_stick(files)
        for left in (*self.path("/tmp").glob("zel_*"), *self.path("/data/device/images").glob("*")):
            left.unlink()
        return self.update(USB)

    def recording(self) -> float:
        """What of it comes after the images: the switch of partitions, histories and versions."""
        return self.logged("[CUpdate::WriteImage] ID(6) unzipped", "[CUpdate::SetNewVersion] ID:7")

    def unpacking(self) -> float:
        """What the archive takes: the bank is cleared, its calibration kept, and unzip fills it, all by the shell."""
        return self.logged("DSP update request to ZELApp", "[CUpdate::WriteImage] ID(6) unzipped")

    def by_cp_twice(self) -> float:
        for path in (COPIES + ".1", COPIES + ".2"):
            shutil.rmtree(self.path(path), ignore_errors=True)
        return self.inside(f"bash -c 'cp -r /data/device/usb {COPIES}.1 && cp -r {COPIES}.1 {COPIES}.2'")

    # Memory

    def peak(self, work: Callable[[], float]) -> tuple[float, float]:
        """What a piece of work takes, and the most bytes that were resident meanwhile."""
        process = f"/proc/{self.analyzer.daemon.process.pid}"
        with self.analyzer.sandbox.open(f"{process}/clear_refs", "wb") as file:
            file.write(b"5")
        taken = work()
        with self.analyzer.sandbox.open(f"{process}/status", "r") as file:
            return taken, next(int(line.split()[1]) * 1024 for line in file if line.startswith("VmHWM"))


def finish(zelapp: ZelApp) -> None:
    """Waits for the end of an update, which must be a good one."""
    while not isinstance(report := zelapp.receive(120), UpdateComplete):
        if isinstance(report, (UpdateFailed, NothingToUpdate)):
            raise RuntimeError(f"the update ended with {report}")


@functools.cache
def payload(size: int, image: int) -> bytes:
    return pattern(size, image << 28)


def log_time(line: str) -> datetime:
    return datetime.strptime(line[:23], "%Y-%m-%d %H:%M:%S.%f")


@contextlib.contextmanager
def open_updates(quick: bool) -> Iterator[Updates]:
    with Analyzer() as analyzer, Pc(analyzer.sandbox.socket) as pc:
        analyzer.start()
        register(analyzer, pc)
        yield Updates(analyzer, pc, LONG_SIZE // 4 if quick else LONG_SIZE)
        analyzer.daemon.stop()


def by_size(updates: Updates, mebibytes: int) -> dict[str, list[float]]:
    size = mebibytes * MIB
    pushed = [updates.peak(lambda: updates.push(size)) for _ in range(REPEATS)]
    copied = [updates.peak(lambda: updates.from_stick(size)) for _ in range(REPEATS)]
    return {"push-size": [taken for taken, _ in pushed], "push-memory": [peak for _, peak in pushed],
            "stick-size": [taken for taken, _ in copied], "stick-memory": [peak for _, peak in copied]}


GROUP = Group(
    "update", open_updates,
    [Row("stick", "Copying an image of 192 MiB from the stick", SECONDS, Updates.copying, {"cp": Updates.by_cp},
         faster(0.95), floor="cp has the kernel copy from file to file; the service sees the data, and reports its "
         "progress on the way. Of its time 93 of 100 parts are the system's reading and writing.",
         moved=lambda updates: updates.size),
     Row("push", "Receiving a push of 64 MiB from the PC", SECONDS, Updates.push, {"socat": Updates.by_socat},
         faster(1.5), floor="Three quarters are the system's receiving and storing, which socat needs as well. Each "
         "packet of 32 KB is waited for, received whole, and has its line in the log before it is stored.",
         moved=lambda _updates: PUSH_SIZE),
     Row("server", "Receiving an image of 64 MiB from the update server", SECONDS, Updates.from_server,
         {"curl": Updates.by_curl}, faster(1.0), {"its lines in the log": Updates.by_log},
         "A line goes to the log for each 4 KiB received, and each is in the file before the next piece is taken. Such "
         "lines are part of the service's interface. Their time alone is given beside.",
         moved=lambda _updates: SERVER_SIZE),
     Row("write", "Writing an image of 192 MiB to its partition", SECONDS, Updates.writing,
         {"dd bs=128k": Updates.by_dd}, faster(0.95), {"the device library's stand-in": Updates.by_library},
         "Each block goes through the device library, whose stand-in opens and closes the image, looks for faults "
         "to play, and writes a line to a file for each call: eight calls of the system beside dd's one. Its time "
         "alone is given beside; the rest is reading.", moved=lambda updates: updates.size),
     Row("release", "A whole release of 63 MiB from the stick, eight images, from the start request to the end",
         SECONDS, Updates.whole_release, {"cp twice": Updates.by_cp_twice}, faster(0.8),
         {"unpacking the archive": Updates.unpacking, "recording versions and history": Updates.recording},
         "It is a copy to /tmp and the writing from there, with the floors of stick and write. One image is an archive "
         "that is unpacked by the shell. Then the version and the history of each image are recorded so that they "
         "outlive a power cut, a row of the history by four syncs of the disk and a version by two; cp has none.")],
    [Sweep([Curve("push-size", "Receiving a push", SECONDS, "MiB"),
            Curve("push-memory", "Most memory resident during a push", BYTES, "MiB", steady=True),
            Curve("stick-size", "An update from the stick, from the start request to the end", SECONDS, "MiB"),
            Curve("stick-memory", "Most memory resident during an update from the stick", BYTES, "MiB", steady=True)],
           SIZES, by_size)],
    needs=("service", "nginx"))
