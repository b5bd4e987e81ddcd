"""Watches the daemon from outside: its log, what it uses of the machine, and the files that it leaves."""

from __future__ import annotations

import os
import re
import struct
import threading
import time
from collections import deque
from collections.abc import Callable
from pathlib import Path
from typing import IO

from bench.analyzer import Analyzer
from bench.daemon import LOG, wait_until
from bench.sandbox import PROJECT
from bench.soak.records import Records, Sample

KEPT_LINES = 100_000
POLL, SAMPLE = 0.05, 1.0

HEAP_COUNT = "/tmp/.heap_count"

TMP_FILES = re.compile(r"\.rm_proc|\.heap_count|sendtopc\.data|rm_send_result_success|zel_dsp\.out|"
                       r"zel_(boot|kernel|rootfs|app|qte|sys)\.n62\.raw")
DATA_FILES = re.compile(r"zel_xml\.zip|config/config_(zelrm|zel|zelapp|webbase)\.cfg|db/analyzer\.db|"
                        r"log/ZELRmUp(\.[1-3])?\.log|(device|xml_bank)/.*")
# Four log files of 1 MiB, each with a line over.
LOG_LIMIT = (4 << 20) + (64 << 10)


class LogFollower:
    """The lines of the daemon's log as they come, across its rotations and restarts."""

    def __init__(self, path: Path):
        self._path = path
        self._file: IO[bytes] | None = None
        self._rest = b""
        self._mutex = threading.Lock()
        self._lines: deque[str] = deque(maxlen=KEPT_LINES)
        self._count = 0
        self.status = ""  # the device's status as the log told it last

    def poll(self) -> None:
        with self._mutex:
            if self._file:
                self._take(self._file)
            try:
                current = self._path.stat().st_ino
            except FileNotFoundError:  # just between two files
                return
            if self._file and current == self._inode():
                return
            if self._file:
                self._take(self._file)  # what came between the look into the file and the look at its name
                self._file.close()
            self._file = open(self._path, "rb")
            self._take(self._file)

    def _inode(self) -> int:
        assert self._file
        return os.fstat(self._file.fileno()).st_ino

    def _take(self, file: IO[bytes]) -> None:
        *lines, self._rest = (self._rest + file.read()).split(b"\n")
        for line in lines:
            self._lines.append(line.decode(errors="replace"))
            if b"[CDeviceInfo::SetStatus]" in line:
                self.status = self._lines[-1].split('"')[1]
        self._count += len(lines)

    def mark(self) -> int:
        """Stands for now in `wait`."""
        self.poll()
        return self._count

    def wait(self, texts: tuple[str, ...], since: int, timeout: float) -> str:
        """Waits for a line after the mark that holds one of the texts, and returns that text."""
        def find() -> str | None:
            self.poll()
            with self._mutex:
                new = min(self._count - since, len(self._lines))
                lines = [self._lines[-i] for i in range(new, 0, -1)]
            return next((text for line in lines for text in texts if text in line), None)
        return wait_until(find, timeout, f"a log line with {' or '.join(map(repr, texts))}") or ""

    def since(self, mark: int, before: int) -> list[str]:
        """The lines after the mark, and some before it."""
        self.poll()
        with self._mutex:
            return list(self._lines)[-(self._count - mark + before):]


class Watcher:
    """Follows the log and samples the daemon in a thread of its own."""

    def __init__(self, analyzer: Analyzer, records: Records):
        self.analyzer, self.records = analyzer, records
        self.log = LogFollower(analyzer.sandbox.path(LOG))
        self._stopped = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def close(self) -> None:
        self._stopped.set()
        self._thread.join()

    def _run(self) -> None:
        next_sample = 0.0
        while not self._stopped.wait(POLL):
            self.log.poll()
            if time.monotonic() >= next_sample and self.records.lives:
                next_sample = time.monotonic() + SAMPLE
                try:
                    sample = self.sample()
                except (OSError, KeyError, RuntimeError):  # between two lives
                    continue
                life = self.records.life
                life.most = sample.most(life.most or sample)

    def sample(self) -> Sample:
        daemon = self.analyzer.daemon
        heap, blocks = self._heap_counts()
        return Sample(time.monotonic(), daemon.descriptors(), daemon.threads(), daemon.memory() >> 10, heap, blocks)

    def _heap_counts(self) -> tuple[int, int]:
        """Bytes and blocks on the daemon's heap; none where a sanitizer keeps it."""
        path = self.analyzer.sandbox.path(HEAP_COUNT)
        return struct.unpack("=qq", path.read_bytes()) if path.exists() else (0, 0)

    def settled(self, hold: float, timeout: float, condition: Callable[[Sample], bool] = lambda sample: True) -> Sample:
        """The sample once descriptors and threads have stayed the same, and as wanted, for `hold` seconds."""
        deadline = time.monotonic() + timeout
        first = self.sample()
        while True:
            sample = self.sample()
            if (sample.descriptors, sample.threads) != (first.descriptors, first.threads) or not condition(sample):
                first = sample
            elif sample.time - first.time >= hold:
                return sample
            if time.monotonic() > deadline:
                raise TimeoutError(f"the daemon does not come to rest: {sample.descriptors} descriptors, "
                                   f"{sample.threads} threads; {self.descriptors()}")
            time.sleep(0.05)

    def descriptors(self) -> str:
        """What the daemon's descriptors stand for."""
        listing = self.analyzer.sandbox.run("ls", "-l", f"/proc/{self.analyzer.daemon.process.pid}/fd")
        return ", ".join(line.split(" -> ", 1)[1] for line in listing.splitlines() if " -> " in line)

    def leftovers(self, tmp_limit: int) -> list[str]:
        """What is wrong with the files on the analyzer: unknown ones, or too many bytes."""
        sandbox = self.analyzer.sandbox
        tmp, data = (files_under(sandbox.path(path)) for path in ("/tmp", "/data"))
        if PROJECT.is_relative_to("/tmp"):  # the project itself is seen in there
            tmp = {name: size for name, size in tmp.items() if not name.startswith(PROJECT.parts[2] + "/")}
        found = [f"/tmp/{name} was left behind" for name in tmp if not TMP_FILES.fullmatch(name)]
        found += [f"/data/{name} was left behind" for name in data if not DATA_FILES.fullmatch(name)]
        log = sum(size for name, size in data.items() if name.startswith("log/"))
        for what, size, limit in (("/data/log", log, LOG_LIMIT), ("/tmp", sum(tmp.values()), tmp_limit)):
            if size > limit:
                found.append(f"{what} takes {size} bytes, more than {limit}")
        return found


def files_under(directory: Path) -> dict[str, int]:
    """The sizes of all files below a directory by their path in it."""
    sizes = {}
    for path in directory.rglob("*"):
        try:
            status = path.lstat()
        except FileNotFoundError:
            continue
        if not path.is_dir():
            sizes[str(path.relative_to(directory))] = status.st_size
    return sizes
