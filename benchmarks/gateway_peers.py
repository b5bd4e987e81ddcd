"""python-hl7 as a laboratory's system or as a client of one.

    gateway_peers.py receive PORT
    gateway_peers.py send PORT TEXT

Obeys lines "count N" on stdin and answers each with the seconds that it took, as JSON; says first that it is ready.
"""

from __future__ import annotations

import asyncio
import json
import sys
import time
from pathlib import Path

import hl7
from hl7.client import MLLPClient
from hl7.mllp import start_hl7_server


def tell(seconds: float) -> None:
    print(json.dumps({"seconds": seconds}), flush=True)


class Receiver:
    """Counts from its start on: messages may come before it is told how many are wanted."""

    def __init__(self) -> None:
        self.start, self.last, self.taken, self.wanted = 0.0, 0.0, 0, 0
        self.done = asyncio.Event()

    async def talk(self, reader: hl7.mllp.HL7StreamReader, writer: hl7.mllp.HL7StreamWriter) -> None:
        try:
            while not writer.is_closing():
                message = await reader.readmessage()
                if self.taken == 0:
                    self.start = time.perf_counter()
                writer.writemessage(message.create_ack())
                await writer.drain()
                self.taken += 1
                self.last = time.perf_counter()
                self.settle()
        except (asyncio.IncompleteReadError, ConnectionError):
            pass

    def settle(self) -> None:
        if 0 < self.wanted <= self.taken:
            self.done.set()

    async def serve(self, port: int) -> None:
        async with await start_hl7_server(self.talk, "0.0.0.0", port, encoding="utf-8"):
            print("ready", flush=True)
            while line := await asyncio.to_thread(sys.stdin.readline):
                self.wanted = int(line.split()[1])
                self.settle()
                await self.done.wait()
                tell(self.last - self.start)
                self.taken = self.wanted = 0
                self.done.clear()


def send(port: int, text: bytes) -> None:
    print("ready", flush=True)
    for line in sys.stdin:
        with MLLPClient("127.0.0.1", port) as client:
            start = time.perf_counter()
            for _ in range(int(line.split()[1])):
                client.send_message(text)
            tell(time.perf_counter() - start)


if __name__ == "__main__":
    if sys.argv[1] == "receive":
        asyncio.run(Receiver().serve(int(sys.argv[2])))
    else:
        send(int(sys.argv[2]), Path(sys.argv[3]).read_bytes())
