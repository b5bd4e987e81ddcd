"""Runs zelpc on the PC beside an analyzer."""

from __future__ import annotations

import json
import os
import signal
import tempfile
from typing import IO, Any

from bench.analyzer import PASSWORD
from bench.daemon import RUNNERS, SANITIZER_REPORT, wait_until
from bench.machine import build_folder, preset
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, Sandbox

PROGRAM = build_folder() / "bin/zelpc"
ENVIRONMENT = {"ZELPC_PASSWORD": PASSWORD}


def written(file: IO[str]) -> str:
    """What the program has written so far; where it goes on writing is not moved."""
    return os.pread(file.fileno(), os.fstat(file.fileno()).st_size, 0).decode(errors="replace")


class Tool:
    """One run of zelpc. Its output goes to a file, so that it can be looked at while it runs."""

    def __init__(self, sandbox: Sandbox, *arguments: str, address: str | None = PC_ADDRESS,
                 env: dict[str, str] | None = None):
        self._output = tempfile.TemporaryFile("w+")
        self._errors = tempfile.TemporaryFile("w+")
        network = [] if arguments[0] == "decode" or address is None else ["--from", address]
        command = [*RUNNERS.get(preset(), []), str(PROGRAM), *arguments, *network]
        self.process = sandbox.pc.spawn(command, self._output, self._errors, ENVIRONMENT if env is None else env)

    def output(self) -> str:
        return written(self._output)

    def errors(self) -> str:
        return written(self._errors)

    def events(self, kind: str, **values: Any) -> list[dict[str, Any]]:
        """The JSON lines so far that have this event and these values."""
        whole = self.output().rpartition("\n")[0]
        lines = [json.loads(line) for line in whole.split("\n") if line]
        return [line for line in lines if line["event"] == kind and values.items() <= line.items()]

    def expect(self, kind: str, count: int = 1, timeout: float = 30, **values: Any) -> dict[str, Any]:
        """The last of so many such events."""
        try:
            wait_until(lambda: len(self.events(kind, **values)) >= count, timeout, f"{count} {kind} {values}")
        except TimeoutError as error:
            raise AssertionError(f"{error}\n{self.output()}\n{self.errors()}") from None
        return self.events(kind, **values)[count - 1]

    def wait(self, timeout: float = 30) -> int:
        status = self.process.wait(timeout)
        assert not SANITIZER_REPORT.search(self.errors()), self.errors()
        return status

    def interrupt(self) -> int:
        self.process.signal(signal.SIGINT)
        return self.wait()


def run(sandbox: Sandbox, *arguments: str, status: int = 0, **values: Any) -> Tool:
    """Runs zelpc to its end, which must have this status."""
    tool = Tool(sandbox, *arguments, **values)
    ended = tool.wait()
    assert ended == status, f"{arguments}: {ended}\n{tool.output()}\n{tool.errors()}"
    return tool


def watch(sandbox: Sandbox, *arguments: str, **values: Any) -> Tool:
    """A watch that has registered."""
    tool = Tool(sandbox, "watch", ANALYZER_ADDRESS, "--json", *arguments, **values)
    tool.expect("status", state="registered")
    return tool
