"""zelpc with analyzers that lie, flood, break off and move."""

from __future__ import annotations

import random
import re
import socket
import struct
from collections.abc import Iterator

import pytest

from bench.daemon import preset, wait_until
from bench.pcpacket import Command
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, Sandbox, lab_address
from fakeanalyzer import FakeAnalyzer, receive, result
from zelpc import PROGRAM, watch

pytestmark = pytest.mark.skipif(not PROGRAM.exists(), reason="zelpc is not built (./zel test pc does)")
TEXT = ("MSH|^~\\&|ORVELA|LAB|NULL|NULL|20261121103637||OUL^R22^OUL_R22|0|P|2.5.1\rPID|||{}\rSPM|1|||SER|||||||P\r"
        "OBR||NULL||D1^Panel^ORVELA\rOBX|1||^^LN|ALT|1\r")
SERIAL = "N62A0009999"


@pytest.fixture
def sandbox() -> Iterator[Sandbox]:
    with Sandbox() as made:
        yield made


def memory(sandbox: Sandbox, pid: int) -> int:
    """The most memory that a process has had, in KiB."""
    with sandbox.pc.open(f"/proc/{pid}/status", "r") as status:
        return int(re.search(r"VmHWM:\s+(\d+)", status.read())[1])


def test_connections_that_go_wrong(sandbox: Sandbox) -> None:
    """Catches a result that is put together from pieces of two, garbage that is answered or ends the program, and an
    analyzer that is not tried again."""
    whole = result(TEXT.format("whole"))
    noise = random.Random(1).randbytes(3000)
    bad = [b"\x0a\x04\x02\x31\x02\x00\x10\x31", b"\0" * 40, noise, result(TEXT.format("a"))[:70] + whole + b"\r" * 60,
           struct.pack(">HBBBH", Command.RESULT, 1, 49, 1, 3 << 1)]
    acknowledgements: list[int] = []

    def misbehave(connection: socket.socket) -> None:
        if bad:
            connection.sendall(bad.pop(0))
            return
        connection.sendall(whole[:100] + whole[:9] + whole)
        while receive(connection).command != Command.RESULT:
            pass
        acknowledgements.append(1)

    analyzer = FakeAnalyzer(sandbox, ANALYZER_ADDRESS, SERIAL, misbehave)
    tool = watch(sandbox, "--save", str(sandbox.root / "results"))
    event = tool.expect("result", timeout=80)
    assert event["acknowledged"] and event["text"] == TEXT.format("whole")
    assert len(tool.events("result")) == 1 and not bad
    wait_until(lambda: acknowledgements == [1], 10, "the acknowledgement comes")
    problems = {event.get("reason") for event in tool.events("status", state="waiting")}
    assert "what came is no packet of an analyzer" in problems, problems
    assert tool.interrupt() == 0
    analyzer.close()


def test_a_flood(sandbox: Sandbox) -> None:
    """Catches memory that grows with what an analyzer sends and with what strangers send."""
    results = 3000

    def flood(connection: socket.socket) -> None:
        padding = "x" * 30000
        for number in range(results):
            connection.sendall(result(TEXT.format(number % 3) + f"NTE|1||{padding}\r"))

    analyzer = FakeAnalyzer(sandbox, ANALYZER_ADDRESS, SERIAL, flood)
    tool = watch(sandbox, "--save", str(sandbox.root / "results"))
    stranger = sandbox.analyzer.socket(socket.SOCK_DGRAM, (ANALYZER_ADDRESS, 0))
    answer = analyzer.scan_answer(1)
    for data in [b"", b"\x0a", answer[:-1], answer, b"\x0a\x13" + bytes(60000)] * 200:
        stranger.sendto(data, (PC_ADDRESS, 9036))
    for number in range(256):  # notices of addresses where nobody is
        stranger.sendto(struct.pack(">HBBBHHBBBB", Command.NOTICE, 1, 49, 1, 13 << 1, 8, 192, 168, 41, number),
                        (PC_ADDRESS, 9036))
    tool.expect("result", count=results, timeout=80)
    # AddressSanitizer keeps what was given back, which says nothing of the tool.
    assert preset() == "pc-asan" or memory(sandbox, tool.process.pid) < 64 * 1024
    assert len(list((sandbox.root / "results").iterdir())) == 3
    assert tool.interrupt() == 0
    analyzer.close()


def test_a_stranger_in_its_place(sandbox: Sandbox) -> None:
    """Catches another analyzer that is taken for the one that is held, by its notice or at its address."""
    analyzer = FakeAnalyzer(sandbox, ANALYZER_ADDRESS, SERIAL)
    tool = watch(sandbox)
    analyzer.close()
    tool.expect("status", state="waiting", timeout=40)
    stranger = FakeAnalyzer(sandbox, ANALYZER_ADDRESS, "N62A0001111")
    asked = stranger.scans
    stranger.announce_address()
    wait_until(lambda: stranger.scans > asked + 3, 60, "the PC looks who is there")
    assert stranger.packets.empty() and stranger.registrations == 0
    assert not tool.events("status", serial="N62A0001111")
    assert tool.interrupt() == 0
    stranger.close()
