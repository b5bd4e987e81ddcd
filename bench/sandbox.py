"""A simulated analyzer's machine: namespaces of its own, made by bubblewrap.

Inside, "/data", "/tmp" and "/mnt" are private, the analyzer is 192.168.40.10 and the PC 192.168.40.20; over the USB
network link they are 1.1.40.1 and 1.1.40.2. Works for root and for an ordinary user; any number run side by side. A
sandbox dies with the process that made it.
"""

from __future__ import annotations

import fcntl
import json
import os
import select
import shutil
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path
from typing import IO, Any

PROJECT = Path(__file__).resolve().parent.parent

ANALYZER_ADDRESS = "192.168.40.10"
PC_ADDRESS = "192.168.40.20"
USB_ANALYZER_ADDRESS = "1.1.40.1"
USB_PC_ADDRESS = "1.1.40.2"
UPDATE_HOST = "update.zel.example"

# The sanitizers read their options from here; everything else inside is fixed.
PASSED_ON = ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")

ETC = {
    "hosts": f"127.0.0.1 localhost\n{PC_ADDRESS} {UPDATE_HOST}\n",
    "passwd": "root:x:0:0:root:/tmp:/bin/sh\n",
    "group": "root:x:0:\n",
    "nsswitch.conf": "hosts: files\n",
}


class Process:
    """A program running inside a sandbox. `pid` is its number in there."""

    def __init__(self, sandbox: Sandbox, pid: int, pidfd: int):
        self._sandbox = sandbox
        self._pidfd = pidfd
        self.pid = pid

    def poll(self) -> int | None:
        """The exit status, the negative signal number, or None while it runs."""
        return self._sandbox._ask("poll", pid=self.pid)[0]["status"]

    def wait(self, timeout: float) -> int:
        if not select.select([self._pidfd], [], [], timeout)[0]:
            raise TimeoutError(f"process {self.pid} still runs after {timeout} s")
        status = self.poll()
        assert status is not None
        return status

    def signal(self, number: int) -> None:
        self._sandbox._ask("signal", pid=self.pid, number=int(number))

    def close(self) -> None:
        os.close(self._pidfd)


class Sandbox:
    def __init__(self, tmp_size: int | None = None, data_size: int | None = None):
        """Builds the sandbox and its network.

        With `tmp_size` or `data_size`, "/tmp" or "/data" inside is a memory file system of that many bytes, to be filled
        up.
        """
        remove_leftovers()
        self.root = Path(tempfile.mkdtemp(prefix="zel-sandbox-"))
        # Held for the sandbox's life: a directory whose lock is free belongs to nobody any more.
        self._lock = os.open(self.root, os.O_RDONLY | os.O_CLOEXEC)
        fcntl.flock(self._lock, fcntl.LOCK_EX)
        for name in ("data", "tmp", "mnt", "etc"):
            (self.root / name).mkdir()
        (self.root / "mnt/usb").mkdir()
        for name, text in ETC.items():
            (self.root / "etc" / name).write_text(text)
        shutil.copy("/etc/ld.so.cache", self.root / "etc")
        self._sizes = {"tmp": tmp_size, "data": data_size}
        self._mutex = threading.Lock()
        self._channel, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        info_read, info_write = os.pipe()
        # In a session of its own: Ctrl-C is for the owner, who then closes the sandbox in order.
        self._bwrap = subprocess.Popen(self._command(theirs.fileno(), info_write), stdin=subprocess.DEVNULL,
                                       pass_fds=[theirs.fileno(), info_write], start_new_session=True)
        theirs.close()
        os.close(info_write)
        with open(info_read) as info:
            text = info.read()
        if not self._channel.recv(64):
            self.close()
            raise RuntimeError("the sandbox could not be set up (see the lines above)")
        self.init_pid: int = json.loads(text)["child-pid"]  # as seen outside, for nsenter

    def _command(self, channel: int, info: int) -> list[str]:
        writable = []
        for name, size in self._sizes.items():
            writable += ["--size", str(size), "--tmpfs", f"/{name}"] if size \
                else ["--bind", str(self.root / name), f"/{name}"]
        # The same capabilities for everybody: root would keep all of them, also to read what nobody may read.
        return ["bwrap", "--unshare-all", "--die-with-parent", "--uid", "0", "--gid", "0", "--cap-drop", "ALL",
                "--cap-add", "CAP_NET_ADMIN", "--cap-add", "CAP_SYS_ADMIN", "--cap-add", "CAP_NET_BIND_SERVICE",
                "--info-fd", str(info),
                "--ro-bind", "/usr", "/usr",
                "--symlink", "usr/lib", "/lib", "--symlink", "usr/lib64", "/lib64",
                "--symlink", "usr/bin", "/bin", "--symlink", "usr/sbin", "/sbin",
                "--ro-bind", str(self.root / "etc"), "/etc", "--proc", "/proc", "--dev", "/dev",
                "--bind", str(self.root / "mnt"), "/mnt", *writable,
                "--ro-bind", str(PROJECT), str(PROJECT), "--chdir", "/",
                "/usr/bin/python3", "-I", "-S", str(PROJECT / "bench/agent.py"), str(channel)]

    def _ask(self, what: str, fds: list[int] | None = None, **values: Any) -> tuple[dict[str, Any], list[int]]:
        request = json.dumps({"do": what, **values}).encode()
        with self._mutex:
            socket.send_fds(self._channel, [request], fds or [])
            data, handed_out, _, _ = socket.recv_fds(self._channel, 1 << 16, 4)
        if not data:
            raise ConnectionError("the sandbox is gone")
        answer = json.loads(data)
        if "errno" in answer:
            raise OSError(answer["errno"], answer["error"])
        return answer, handed_out

    def path(self, inside: str) -> Path:
        """Where a file under "/data", "/tmp" or "/mnt" of the sandbox lies outside."""
        relative = inside.lstrip("/")
        in_memory = self._sizes.get(relative.split("/", 1)[0])
        return (Path(f"/proc/{self.init_pid}/root") if in_memory else self.root) / relative

    def open(self, inside: str, mode: str = "rb") -> IO[Any]:
        """Opens any file as it is seen inside, "/proc" included, for reading or (re)writing."""
        return os.fdopen(self._ask("open", path=inside, write="w" in mode)[1][0], mode)

    def socket(self, kind: int, bind: tuple[str, int] | None = None, listen: int = 0) -> socket.socket:
        """An IPv4 socket on the sandbox's network, to be used like any other."""
        handed_out = self._ask("socket", family=int(socket.AF_INET), kind=int(kind), bind=bind, listen=listen)[1]
        return socket.socket(fileno=handed_out[0])

    def listen_unix(self, path: str) -> socket.socket:
        handed_out = self._ask("socket", family=int(socket.AF_UNIX), kind=int(socket.SOCK_STREAM), bind=path, listen=5)
        return socket.socket(fileno=handed_out[1][0])

    def connect_unix(self, path: str) -> socket.socket:
        return socket.socket(fileno=self._ask("connect_unix", path=path)[1][0])

    def spawn(self, argv: list[str], stdout: IO[Any], stderr: IO[Any], env: dict[str, str] | None = None) -> Process:
        """Starts a program inside; its output goes to the two open files."""
        fixed = {"PATH": "/data/bin:/usr/sbin:/usr/bin", "HOME": "/tmp", "LC_ALL": "C.UTF-8"}
        passed_on = {name: os.environ[name] for name in PASSED_ON if name in os.environ}
        answer, handed_out = self._ask("spawn", [stdout.fileno(), stderr.fileno()], argv=argv,
                                       env=fixed | passed_on | (env or {}))
        return Process(self, answer["pid"], handed_out[0])

    def run(self, *argv: str, timeout: float = 20) -> str:
        """Runs a program inside to its end and returns what it printed; a status other than 0 raises."""
        with tempfile.TemporaryFile("w+") as output:
            process = self.spawn(list(argv), output, output)
            try:
                status = process.wait(timeout)
            finally:
                process.close()
            output.seek(0)
            text = output.read()
        if status != 0:
            raise RuntimeError(f"{' '.join(argv)} ended with status {status}: {text}")
        return text

    def close(self) -> None:
        """Ends everything inside and removes the files."""
        self._channel.close()
        self._bwrap.kill()
        self._bwrap.wait()
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
