"""Every conversation that the documents show is held with the daemon, byte for byte.

A conversation is a fenced block of the language `talk`. A line is `WHO > LINK BYTES` for what somebody sends to the
analyzer, `WHO < LINK BYTES` for what he must receive from it, or `file PATH TEXT`. BYTES are hexadecimal digits, texts in
quotation marks, `..` for a byte that depends on the day, and a multiplied byte as in `00*15`; a `;` begins a comment.
"""

from __future__ import annotations

import re
import socket
from collections.abc import Iterator
from contextlib import ExitStack

import pytest

from bench.analyzer import Analyzer
from bench.pc import ANALYZER_TCP_PORT, ANALYZER_UDP_PORT
from bench.sandbox import ANALYZER_ADDRESS, ENGINE, PC_ADDRESS, PROJECT, Unsupported

UDP_PORT = 9036
PATIENCE = 20
TOKEN = re.compile(r'"([^"]*)"|((?:[0-9A-F]{2})+|\.\.)(?:\*(\d+))?')


def conversations() -> Iterator[tuple[str, str]]:
    for page in sorted((PROJECT / "docs").glob("*.md")):
        for number, block in enumerate(re.findall(r"```talk\n(.*?)```", page.read_text(), re.DOTALL), 1):
            yield f"{page.stem}-{number}", block


def parse(text: str) -> list[int | None]:
    """The bytes that a line shows, None for one that may be any."""
    values: list[int | None] = []
    for quoted, digits, times in TOKEN.findall(text):
        one = list(quoted.encode()) if quoted else [None] if digits == ".." else list(bytes.fromhex(digits))
        values += one * int(times or 1)
    return values


def read(link: socket.socket, count: int) -> bytes:
    """A datagram, or this many bytes of a stream; fewer when no more come."""
    link.settimeout(PATIENCE)
    if link.type == socket.SOCK_DGRAM:
        return link.recv(65536)
    data = b""
    while len(data) < count and (piece := link.recv(count - len(data))):
        data += piece
    return data


@pytest.mark.parametrize("block", [pytest.param(block, id=name) for name, block in conversations()])
def test_the_documents_show_what_happens(new_analyzer: Analyzer, block: str) -> None:
    if not ENGINE.OWN_NETWORK:
        raise Unsupported("needs the addresses that the pages show (there are no namespaces)")
    analyzer, sandbox = new_analyzer, new_analyzer.sandbox
    analyzer.daemon.start()
    analyzer.zelapp.connect()
    assert analyzer.zelapp.socket
    analyzer.daemon.wait_for_log("[CTCPListener::Run] Accept start", PATIENCE)
    with ExitStack() as links:
        udp = links.enter_context(sandbox.socket(socket.SOCK_DGRAM, bind=(PC_ADDRESS, UDP_PORT)))
        tcp = links.enter_context(sandbox.socket(socket.SOCK_STREAM, bind=(PC_ADDRESS, 0)))
        tcp.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
        open_links = {"udp": udp, "tcp": tcp, "local": analyzer.zelapp.socket}
        for line in filter(None, (line.split(";")[0].strip() for line in block.splitlines())):
            who, direction, rest = line.split(None, 2)
            if who == "file":
                sandbox.path(direction).write_text(rest)
                continue
            name, _, text = rest.partition(" ")
            expected = parse(text)
            if direction == ">":
                data = bytes(value or 0 for value in expected)
                udp.sendto(data, (ANALYZER_ADDRESS, ANALYZER_UDP_PORT)) if name == "udp" else open_links[name].sendall(data)
                continue
            came = read(open_links[name], len(expected))
            shown = [None if value is None else byte for byte, value in zip(came, expected)]
            assert shown == expected and len(came) == len(expected), f"{line}\ncame: {came.hex(' ').upper()}"
