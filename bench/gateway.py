"""zelpc's gateway on the PC beside a simulated analyzer."""

from __future__ import annotations

import json
import signal
import socket
import sqlite3
import urllib.parse
from contextlib import suppress
from http.client import HTTPConnection, HTTPResponse
from pathlib import Path
from typing import Any

from bench.daemon import RUNNERS, wait_until
from bench.machine import Process, build_folder, preset
from bench.sandbox import ANALYZER_ADDRESS, ENGINE, PC_ADDRESS, Sandbox, lab_address

ZELPC = str(build_folder() / "bin/zelpc")
WEB_PORT, LIS_PORT = 9080, 2575
TOKEN = "a-token-for-tests-only"

CONFIG = """
[gateway]
push_directory = "{state}/releases"
[store]
path = "{store}"
min_free_mb = 0
keep_days = {keep_days}
[pc]
address = "{pc}"
[scan]
enabled = {scan}
targets = ["{target}"]
every_s = 5
password_file = "{state}/password"
[web]
address = "127.0.0.1"
token_file = "{state}/token"
"""

MLLP = """
[[destination]]
name = "lis"
type = "mllp"
host = "{host}"
port = {port}
format = "standard"
receiving_application = "LIS"
first_pause_s = 0.1
longest_pause_s = 0.5
answer_timeout_s = 2
"""

FILES = """
[[destination]]
name = "files"
type = "directory"
directory = "{state}/results"
"""


class SandboxHttp(HTTPConnection):
    """HTTP to a server inside a sandbox."""

    def __init__(self, sandbox: Sandbox, host: str, port: int):
        super().__init__(host, port, timeout=20)
        self._sandbox = sandbox

    def connect(self) -> None:
        self.sock = self._sandbox.socket(socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        self.sock.connect((self.host, self.port))


class Gateway:
    _listener: socket.socket | None = None

    def __init__(self, sandbox: Sandbox, password: str, destinations: str = MLLP + FILES, more: str = "",
                 scan: bool = True, name: str = "gateway", store: str | None = None, program: str = ZELPC,
                 keep_days: int = 0):
        self.stop_listening()
        self.sandbox, self.program = sandbox, program
        self.state = sandbox.root / name
        self.state.mkdir()
        self.config = self.state / "gateway.toml"
        (self.state / "password").write_text(password + "\n")
        (self.state / "token").write_text(TOKEN + "\n")
        target = lab_address(255) if ENGINE.OWN_NETWORK else ANALYZER_ADDRESS  # loopback has no broadcast
        text = (CONFIG + destinations).format(target=target, state=self.state, store=store or self.state / "store.db",
                                              pc=PC_ADDRESS, scan=str(scan).lower(), host=PC_ADDRESS, port=LIS_PORT,
                                              keep_days=keep_days)
        self.config.write_text(text + more)
        self._process: Process | None = None

    def start(self) -> None:
        command = [*RUNNERS.get(preset(), []), self.program, "gateway", "--config", str(self.config)]
        with open(self.state / "log", "ab") as log:
            self._process = self.sandbox.pc.spawn(command, log, log)

    @property
    def process(self) -> Process:
        assert self._process is not None
        return self._process

    def stop(self, timeout: float = 20) -> int:
        self.process.signal(signal.SIGTERM)
        return self.process.wait(timeout)

    def kill(self) -> None:
        self.process.signal(signal.SIGKILL)
        self.process.wait(10)

    def log(self) -> str:
        return (self.state / "log").read_text(errors="replace")

    def wait_for_log(self, text: str, timeout: float = 30, count: int = 1) -> None:
        wait_until(lambda: self.log().count(text) >= count, timeout, f"\"{text}\" in the gateway's log:\n{self.log()}")

    def listen(self) -> socket.socket:
        """Where the LIS of the configuration listens."""
        self.stop_listening()
        Gateway._listener = self.sandbox.socket(socket.SOCK_STREAM, (PC_ADDRESS, LIS_PORT), 5)
        return Gateway._listener

    @classmethod
    def stop_listening(cls) -> None:
        """Without namespaces the port is the machine's, and the LIS of an earlier gateway may still have it."""
        if cls._listener:
            with suppress(OSError):
                cls._listener.shutdown(socket.SHUT_RDWR)
            cls._listener.close()
            cls._listener = None

    def files(self) -> list[Path]:
        return sorted((self.state / "results").glob("[!.]*"))

    def rows(self, statement: str) -> list[Any]:
        """What the store answers, or after a change nothing."""
        database = sqlite3.connect(self.state / "store.db")
        try:
            with database:
                return database.execute(statement).fetchall()
        finally:
            database.close()

    def request(self, method: str, path: str, body: str = "", token: str | None = TOKEN,
                **headers: str) -> tuple[HTTPResponse, str]:
        """One HTTP request; underscores in the names of headers stand for dashes."""
        connection = SandboxHttp(self.sandbox, "127.0.0.1", WEB_PORT)
        named = {name.replace("_", "-"): value for name, value in headers.items()}
        if token:
            named.setdefault("Authorization", f"Bearer {token}")
        connection.request(method, path, body, named)
        response = connection.getresponse()
        text = response.read().decode()
        connection.close()
        return response, text

    def open_page(self, path: str) -> socket.socket:
        """A connection on which this page was asked for, and nothing was read yet."""
        connection = self.sandbox.socket(socket.SOCK_STREAM)
        connection.connect(("127.0.0.1", WEB_PORT))
        connection.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
        return connection

    def get(self, path: str, **query: Any) -> Any:
        """What the API answers."""
        response, text = self.request("GET", path + ("?" + urllib.parse.urlencode(query) if query else ""))
        assert response.status == 200, text
        return json.loads(text)

    def post(self, path: str, **values: Any) -> Any:
        response, text = self.request("POST", path, json.dumps(values), Content_Type="application/json")
        assert response.status == 200, text
        return json.loads(text)
