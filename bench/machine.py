"""A machine of the laboratory, as the bench uses it: the analyzer, or the PC beside it.

On each runs `bench/agent.py`, which makes sockets, opens files and starts programs there on request. Sockets and files
are handed out as descriptors, so everything else of the bench stays outside and still speaks through the machine's own
network.
"""

from __future__ import annotations

import json
import os
import select
import socket
import subprocess
import tempfile
import threading
from pathlib import Path
from typing import IO, Any

PROJECT = Path(__file__).resolve().parent.parent
AGENT = PROJECT / "bench/agent.py"

# The sanitizers read their options from here; everything else is fixed.
PASSED_ON = ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")
ENVIRONMENT = {"PATH": "/data/bin:/usr/sbin:/usr/bin", "HOME": "/tmp", "LC_ALL": "C.UTF-8"}


def preset() -> str:
    return os.environ.get("ZEL_PRESET", "release")


def build_folder() -> Path:
    return PROJECT / "build" / preset()


class SandboxError(Exception):
    """A simulated analyzer cannot be had here; the text says why and what to do."""


class Process:
    """A program running on a machine. `pid` is its number there."""

    def __init__(self, machine: Machine, pid: int, pidfd: int):
        self._machine = machine
        self._pidfd = pidfd
        self.pid = pid

    def poll(self) -> int | None:
        """The exit status, the negative signal number, or None while it runs."""
        return self._machine.ask("poll", pid=self.pid)[0]["status"]

    def wait(self, timeout: float) -> int:
        if not select.select([self._pidfd], [], [], timeout)[0]:
            raise TimeoutError(f"process {self.pid} still runs after {timeout} s")
        # An end is seen before a tracer, as proot is one, has passed on how it was.
        status: int = self._machine.ask("wait", pid=self.pid)[0]["status"]
        return status

    def signal(self, number: int) -> None:
        self._machine.ask("signal", pid=self.pid, number=int(number))

    def close(self) -> None:
        os.close(self._pidfd)


class Machine:
    def __init__(self, command: list[str], environment: dict[str, str] = ENVIRONMENT, info: bool = False,
                 fds: tuple[int, ...] = ()):
        """Starts the agent by `command`, which brings it onto its machine.

        "{channel}" in the command stands for the descriptor that the agent serves, "{info}" for the one on which the
        command tells its "child-pid". `environment` is that of every program started there.
        """
        self._environment = environment
        self._mutex = threading.Lock()
        self._channel, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        info_read, info_write = os.pipe()
        filled = [word.format(channel=theirs.fileno(), info=info_write) for word in command]
        # In a session of its own: Ctrl-C is for the owner, who then closes the machine in order.
        self._agent = subprocess.Popen(filled, stdin=subprocess.DEVNULL, start_new_session=True,
                                       pass_fds=[theirs.fileno(), info_write, *fds])
        theirs.close()
        os.close(info_write)
        with open(info_read) as told:
            text = told.read() if info else ""
        self.pid: int = json.loads(text)["child-pid"] if text else self._agent.pid  # as seen outside

    def wait_ready(self) -> None:
        if not self._channel.recv(64):
            raise SandboxError("the sandbox could not be set up (see the lines above)")

    def ask(self, what: str, fds: list[int] | None = None, **values: Any) -> tuple[dict[str, Any], list[int]]:
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

    def open(self, path: str, mode: str = "rb") -> IO[Any]:
        """Opens a file as it is seen on the machine, "/proc" included, for reading or (re)writing."""
        return os.fdopen(self.ask("open", path=path, write="w" in mode)[1][0], mode)

    def socket(self, kind: int, bind: tuple[str, int] | None = None, listen: int = 0) -> socket.socket:
        """An IPv4 socket on the machine's network, to be used like any other."""
        handed_out = self.ask("socket", family=int(socket.AF_INET), kind=int(kind), bind=bind, listen=listen)[1]
        return socket.socket(fileno=handed_out[0])

    def listen_unix(self, path: str) -> socket.socket:
        handed_out = self.ask("socket", family=int(socket.AF_UNIX), kind=int(socket.SOCK_STREAM), bind=path, listen=5)
        return socket.socket(fileno=handed_out[1][0])

    def connect_unix(self, path: str) -> socket.socket:
        return socket.socket(fileno=self.ask("connect_unix", path=path)[1][0])

    def spawn(self, argv: list[str], stdout: IO[Any], stderr: IO[Any], env: dict[str, str] | None = None) -> Process:
        """Starts a program; its output goes to the two open files."""
        passed_on = {name: os.environ[name] for name in PASSED_ON if name in os.environ}
        answer, handed_out = self.ask("spawn", [stdout.fileno(), stderr.fileno()], argv=argv,
                                      env=self._environment | passed_on | (env or {}))
        return Process(self, answer["pid"], handed_out[0])

    def run(self, *argv: str, timeout: float = 20) -> str:
        """Runs a program to its end and returns what it printed; a status other than 0 raises."""
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

    def configure_network(self, lines: str, fds: tuple[int, ...] = ()) -> None:
        """Runs the lines as `ip` does in a batch; "{0}" in them stands for the first of the network namespaces given."""
        self.ask("ip", list(fds), lines=lines)

    def close(self) -> None:
        """Ends everything that was started there."""
        self._channel.close()
        try:
            self._agent.wait(5)  # it ends what it started, and then itself
        except subprocess.TimeoutExpired:
            self._agent.kill()
            self._agent.wait()
