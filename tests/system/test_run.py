"""`./zel run`: what a programmer tries a PC program on, told and done by pipe."""

from __future__ import annotations

import json
import os
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path
from queue import Empty, Queue
from typing import Any

import pytest

from bench.analyzer import PASSWORD
from bench.pc import Pc
from bench.pcpacket import Info
from bench.sandbox import ENGINE, PC_ADDRESS, PROJECT, Unsupported

PAGE = (PROJECT / "docs/trying.md").read_text()


class Running:
    def __init__(self, *options: str):
        self.process = subprocess.Popen([sys.executable, "-m", "bench.run", "--json", *options], cwd=PROJECT, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self._events: Queue[dict[str, Any]] = Queue()
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self) -> None:
        assert self.process.stdout
        for line in self.process.stdout:
            self._events.put(json.loads(line))

    def type(self, *lines: str) -> None:
        assert self.process.stdin
        self.process.stdin.write("".join(f"{line}\n" for line in lines))
        self.process.stdin.flush()

    def expect(self, event: str, **values: Any) -> dict[str, Any]:
        """The next event with these values."""
        passed = []
        while True:
            try:
                passed.append(self._events.get(timeout=40))
            except Empty:
                raise TimeoutError(f"no {event} with {values}, but {passed}") from None
            if passed[-1].items() >= ({"event": event} | values).items():
                return passed[-1]

    def end(self) -> int:
        status = self.process.wait(20)
        self._reader.join()
        return status


@pytest.fixture
def running(tmp_path: Path) -> Iterator[Running]:
    if not ENGINE.OWN_NETWORK:
        raise Unsupported("needs several analyzers (there are no namespaces)")
    made = Running("--analyzers", "2", "--expose", "0", "--stick", str(tmp_path / "stick"), "--server",
                   str(tmp_path / "www"))
    yield made
    made.process.kill()
    made.end()


def test_a_day_with_two_analyzers(running: Running, tmp_path: Path) -> None:
    up = running.expect("up")
    first, second = up["analyzers"]
    assert (tmp_path / "stick/zel_app.n62.bin").exists() and (tmp_path / "www/n62/zel_app.n62.bin").exists()

    # From outside, through the ports that were asked for, which the scan's answer names.
    exposed = second["exposed"]
    with Pc(address="127.0.0.1", analyzer="127.0.0.1", udp_port=0,
            analyzer_ports=(exposed["tcp_port"], exposed["udp_port"])) as pc:
        found = pc.scan()
        assert (found.serial, found.address, found.tcp_port) == (second["serial"], "127.0.0.1", exposed["tcp_port"])
        assert first["serial"] != second["serial"]
        pc.register(PASSWORD)
        pc.start_heartbeat()
        running.expect("pc", analyzer=2, connected=True, address=PC_ADDRESS)
        told = pc.get_info(Info.ACTIVITY, Info.TCP_PORT, Info.ADDRESS, Info.SERIAL)
        assert (told[Info.TCP_PORT], told[Info.ADDRESS]) == (exposed["tcp_port"].to_bytes(2, "big"), b"\x7f\0\0\1")
        assert told[Info.SERIAL].decode() == second["serial"][:10]
        running.type("2 send liver")
        assert "PID|||P-20931" in pc.receive_result()
        running.expect("result_sent", analyzer=2, message="0x0513")
        (tmp_path / "mine.json").write_text(next(line for line in PAGE.splitlines() if line.startswith('    {"kind"')))
        running.type(f"2 result {tmp_path}/mine.json")
        assert "PID|||P-1||" in pc.receive_result()
        running.expect("result_sent", analyzer=2)
        running.type("2 cable out")
        running.expect("pc", analyzer=2, connected=False)
        running.type("2 cable in")
        pc.connect()
        running.expect("pc", analyzer=2, connected=True)
        running.type("2 restart")
        running.expect("ended", analyzer=2)

    running.type("fault upImgWrite.3=fail@0", "usb")
    assert running.expect("update_failed", analyzer=1)["code"] == "0x00204016"
    running.type("fault off", "usb")
    assert running.expect("update_starts", analyzer=1)["images"]["app"] == "1.01.00.0002"
    running.expect("update_complete", analyzer=1)
    running.type("server")
    running.expect("update_complete", analyzer=1)

    running.type("3 usb")
    assert "no analyzer 3" in running.expect("error", command="3 usb")["text"]
    running.type("quit")
    assert running.end() == 0


def test_an_analyzer_in_a_program(tmp_path: Path) -> None:
    """Catches a page that shows how to use what is not there any more."""
    shown = PAGE.split("```python\n")[1].split("```")[0].replace('"/path/to/program", "argument"', '"/bin/echo", "ran"')
    subprocess.run([sys.executable, "-c", shown], cwd=tmp_path, env=os.environ | {"PYTHONPATH": str(PROJECT)}, check=True)
    assert (tmp_path / "output").read_text() == "ran\n"
