"""The daemon inside a sandbox: start it, watch it, end it."""

from __future__ import annotations

import os
import re
import signal
import time
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

from bench.machine import Process, build_folder, preset
from bench.sandbox import PROJECT, Sandbox

LOG = "/data/log/ZELRmUp.log"
SANITIZER_REPORT = re.compile(r"(ERROR: (Address|Leak)Sanitizer|WARNING: ThreadSanitizer|runtime error:)")

# What runs the daemon of a preset. ThreadSanitizer needs a memory layout that is not shuffled; programs for ARM need an
# emulator, and the libraries that they were built against.
RUNNERS = {
    "tsan": ["setarch", "-R"],
    "pc-tsan": ["setarch", "-R"],
    "arm": ["qemu-arm-static", "-L", str(PROJECT / "build/arm-sysroot")],
}

T = TypeVar("T")


def daemon_path() -> Path:
    return build_folder() / "bin/ZELRmUp"


def wait_until(condition: Callable[[], T], timeout: float, what: str) -> T:
    """Waits until the condition gives something true, and returns that."""
    deadline = time.monotonic() + timeout
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"not within {timeout:g} s: {what}")
        time.sleep(0.005)
    return result


class Daemon:
    """One run of ZELRmUp. Its standard output and error go to files in the sandbox's directory."""

    def __init__(self, sandbox: Sandbox):
        self.sandbox = sandbox
        self._process: Process | None = None
        self.running = False  # as far as its owner knows: started, and not yet waited for
        for name in ("stdout", "stderr"):
            (sandbox.root / name).touch()

    def start(self, env: dict[str, str] | None = None) -> None:
        path = daemon_path()
        if not path.exists():
            raise FileNotFoundError(f"{path} is not built")
        # A report must come out on standard error, where `sanitizer_report` looks.
        options = {f"{name}_OPTIONS": os.environ.get(f"{name}_OPTIONS", "") + ":log_path=stderr"
                   for name in ("ASAN", "TSAN", "UBSAN")}
        options["TSAN_OPTIONS"] += f":suppressions={PROJECT}/tests/tsan.supp"
        command = [*RUNNERS.get(preset(), []), str(path)]
        with open(self.sandbox.root / "stdout", "ab") as output, open(self.sandbox.root / "stderr", "ab") as error:
            self._process = self.sandbox.spawn(command, output, error, options | (env or {}))
        self.running = True

    @property
    def process(self) -> Process:
        assert self._process is not None, "the daemon was not started"
        return self._process

    @property
    def status(self) -> int | None:
        """The exit status, None while it runs."""
        return self.process.poll()

    def wait(self, timeout: float) -> int:
        status = self.process.wait(timeout)
        self.running = False
        return status

    def signal(self, number: int) -> None:
        self.process.signal(number)

    def stop(self, timeout: float = 20) -> int:
        """Ends the daemon as an init system would, so that leak checks run; a status already there is returned."""
        if self.status is None:
            self.signal(signal.SIGTERM)
        return self.wait(timeout)

    def kill(self) -> None:
        self.signal(signal.SIGKILL)
        self.wait(5)

    def stdout(self) -> str:
        return (self.sandbox.root / "stdout").read_text(errors="replace")

    def stderr(self) -> str:
        return (self.sandbox.root / "stderr").read_text(errors="replace")

    def sanitizer_report(self) -> str:
        """What a sanitizer had to say about the daemon, or the empty text."""
        text = self.stderr()
        return text if SANITIZER_REPORT.search(text) else ""

    def log(self) -> str:
        """The whole log, the oldest rotated file first."""
        directory = self.sandbox.path(LOG).parent
        while True:
            try:
                files = sorted(directory.glob("ZELRmUp*.log"), key=lambda path: path.stat().st_mtime_ns)
                return "".join(path.read_text(errors="replace") for path in files)
            except FileNotFoundError:
                continue  # renamed meanwhile, by the rotation

    def wait_for_log(self, text: str, timeout: float = 20, count: int = 1) -> None:
        wait_until(lambda: self.log().count(text) >= count, timeout, f"log line \"{text}\"")

    def memory(self) -> int:
        """Resident bytes."""
        return int(self._status_field("VmRSS")) * 1024

    def memory_detail(self) -> tuple[int, int]:
        """Resident bytes, and those of them that are the daemon's own and changed; counted exactly, page by page."""
        with self.sandbox.open(f"/proc/{self.process.pid}/smaps_rollup", "r") as file:
            fields = dict(line.split(":", 1) for line in file if line.endswith("kB\n"))
        return int(fields["Rss"].split()[0]) << 10, int(fields["Private_Dirty"].split()[0]) << 10

    def threads(self) -> int:
        return int(self._status_field("Threads"))

    def descriptors(self) -> int:
        return len(self.sandbox.run("ls", f"/proc/{self.process.pid}/fd").split())

    def _status_field(self, name: str) -> str:
        with self.sandbox.open(f"/proc/{self.process.pid}/status", "r") as file:
            fields = dict(line.split(":", 1) for line in file)
        return fields[name].split()[0]
