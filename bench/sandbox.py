"""A simulated analyzer's machine, and the PC beside it.

On the analyzer's machine "/data", "/tmp" and "/mnt" are private. It is 192.168.40.10 and the PC 192.168.40.20; over the
USB network link they are 1.1.40.1 and 1.1.40.2. Works for root and for an ordinary user; any number run side by side.
Where namespaces are refused there is one at a time, on the loopback interface: see `bench/engine`. A sandbox dies with
the process that made it.
"""

from __future__ import annotations

import fcntl
import os
import shutil
import tempfile
import time
from pathlib import Path
from typing import IO, Any

from bench.engine import Laboratory, Unsupported, choose
from bench.machine import PROJECT, Machine, Process, SandboxError

ENGINE = choose()

ANALYZER_ADDRESS = ENGINE.ANALYZER
PC_ADDRESS = ENGINE.PC
SERVER_ADDRESS = ENGINE.SERVER
USB_ANALYZER_ADDRESS = ENGINE.USB_ANALYZER
USB_PC_ADDRESS = ENGINE.USB_PC
UPDATE_HOST = "update.zel.example"

__all__ = ["ANALYZER_ADDRESS", "ENGINE", "PC_ADDRESS", "PROJECT", "Process", "SERVER_ADDRESS", "Sandbox",
           "SandboxError", "UPDATE_HOST", "USB_ANALYZER_ADDRESS", "USB_PC_ADDRESS", "Unsupported", "lab_address"]

ETC = {
    "hosts": f"127.0.0.1 localhost\n{SERVER_ADDRESS} {UPDATE_HOST}\n",
    "passwd": "root:x:0:0:root:/tmp:/bin/sh\n",
    "group": "root:x:0:\n",
    "nsswitch.conf": "hosts: files\n",
}


def lab_address(number: int) -> str:
    """An address of the laboratory's network; those from 21 on are for more PCs."""
    return f"{ENGINE.NETWORK}{number}"


class Sandbox:
    """Files and programs are the analyzer's, sockets the PC's; `pc` and `analyzer` are the two machines."""

    def __init__(self, tmp_size: int | None = None, data_size: int | None = None,
                 laboratory: Laboratory | None = None, number: int = 0):
        """With `tmp_size` or `data_size`, "/tmp" or "/data" is a memory file system of that many bytes, to be filled up.

        In a `laboratory` of several analyzers each has its `number`, from 0 on; the laboratory is closed by its maker.
        """
        remove_leftovers()
        self.root = Path(tempfile.mkdtemp(prefix="zel-sandbox-"))
        # Held for the sandbox's life: a directory whose lock is free belongs to nobody any more.
        self._lock = os.open(self.root, os.O_RDONLY | os.O_CLOEXEC)
        fcntl.flock(self._lock, fcntl.LOCK_EX)
        self._sizes = {name: size for name, size in (("tmp", tmp_size), ("data", data_size)) if size}
        self._own_laboratory: Laboratory | None = None
        self.address = lab_address(10 + number)
        try:
            self._make_files()
            if laboratory is None:
                laboratory = self._own_laboratory = ENGINE.laboratory(1)
            self.laboratory, self.pc = laboratory, laboratory.pc
            self.analyzer: Machine = laboratory.start_analyzer(self.root, self._sizes, number)
        except BaseException:
            self._remove()
            raise

    def _make_files(self) -> None:
        for name in ("data", "tmp", "mnt/usb", "etc"):
            (self.root / name).mkdir(parents=True)
        for name, text in ETC.items():
            (self.root / "etc" / name).write_text(text)
        shutil.copy("/etc/ld.so.cache", self.root / "etc")

    def path(self, inside: str) -> Path:
        """Where a file under "/data", "/tmp" or "/mnt" of the analyzer lies outside."""
        relative = inside.lstrip("/")
        in_memory = relative.split("/", 1)[0] in self._sizes
        return (Path(f"/proc/{self.analyzer.pid}/root") if in_memory else self.root) / relative

    def open(self, inside: str, mode: str = "rb") -> IO[Any]:
        """Opens any file as the analyzer sees it, "/proc" included, for reading or (re)writing."""
        return self.analyzer.open(inside, mode)

    def socket(self, kind: int, bind: tuple[str, int] | None = None, listen: int = 0) -> Any:
        """An IPv4 socket on the PC, to be used like any other."""
        return self.pc.socket(kind, bind, listen)

    def listen_unix(self, path: str) -> Any:
        return self.analyzer.listen_unix(path)

    def connect_unix(self, path: str) -> Any:
        return self.analyzer.connect_unix(path)

    def spawn(self, argv: list[str], stdout: IO[Any], stderr: IO[Any], env: dict[str, str] | None = None) -> Process:
        """Starts a program on the analyzer; its output goes to the two open files."""
        return self.analyzer.spawn(argv, stdout, stderr, env)

    def run(self, *argv: str, timeout: float = 20) -> str:
        """Runs a program on the analyzer to its end and returns what it printed; a status other than 0 raises."""
        if argv[0] == "ip" and not ENGINE.OWN_NETWORK:
            raise Unsupported("needs a network of its own (there are no namespaces)")
        return self.analyzer.run(*argv, timeout=timeout)

    def close(self) -> None:
        """Ends everything inside and removes the files."""
        self.analyzer.close()
        self._remove()

    def _remove(self) -> None:
        if self._own_laboratory:
            self._own_laboratory.close()
        shutil.rmtree(self.root, ignore_errors=True)
        os.close(self._lock)

    def __enter__(self) -> Sandbox:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def remove_leftovers() -> None:
    """Removes the directories of sandboxes whose makers were killed before they could."""
    for root in Path(tempfile.gettempdir()).glob("zel-sandbox-*"):
        try:
            if time.time() - root.stat().st_mtime < 60:  # perhaps just being made, and not locked yet
                continue
            fd = os.open(root, os.O_RDONLY | os.O_DIRECTORY)
        except OSError:
            continue
        try:
            fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
            shutil.rmtree(root, ignore_errors=True)
        except OSError:
            pass
        finally:
            os.close(fd)
