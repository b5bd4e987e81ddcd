"""ZELApp, the analyzer's main application, on the daemon's local socket.

A local message is: 0x02, 0xB2, id (2), payload length (2), payload, CRC-16/ARC over everything from 0xB2 on (2), 0x03;
numbers are little-endian.
"""

from __future__ import annotations

import fcntl
import socket
import struct
import sys
import termios
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import TypeVar

SOCKET_PATH = "/tmp/.rm_proc"
REQUEST_FILE = "/tmp/sendtopc.data"

PATIENT, CONTROL = 1, 2  # kinds of result


def crc16_arc(data: bytes) -> int:
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ (0xA001 if crc & 1 else 0)
    return crc


def frame(message_id: int, payload: bytes = b"") -> bytes:
    """The bytes of one message."""
    covered = b"\xB2" + struct.pack("<HH", message_id, len(payload)) + payload
    return b"\x02" + covered + struct.pack("<H", crc16_arc(covered)) + b"\x03"


@dataclass(frozen=True)
class Message:
    """A message whose id has no class of its own; the others derive from it."""
    id: int
    payload: bytes


@dataclass(frozen=True)
class Started(Message):
    """The daemon is up."""


@dataclass(frozen=True)
class ResultSent(Message):
    """The PC acknowledged the result."""


@dataclass(frozen=True)
class ResultFailed(Message):
    """The result did not reach the PC."""


@dataclass(frozen=True)
class UpdateRequested(Message):
    """The PC asks for an update."""


@dataclass(frozen=True)
class PcConnection(Message):
    """Whether a PC is connected, and which."""
    connected: bool = False
    name: str = ""
    address: str = ""
    peer_id: str = ""


@dataclass(frozen=True)
class NothingToUpdate(Message):
    pass


@dataclass(frozen=True)
class UpdateFailed(Message):
    code: int = 0
    group: int = 0


@dataclass(frozen=True)
class UpdateStarts(Message):
    """The images that will be written, as (image, version) in the order received."""
    images: list[tuple[int, str]] = field(default_factory=list)


@dataclass(frozen=True)
class UpdateProgress(Message):
    """Image -> percent, in the order received."""
    percent: dict[int, int] = field(default_factory=dict)


@dataclass(frozen=True)
class UpdateComplete(Message):
    pass


def text(raw: bytes) -> str:
    return raw.split(b"\0", 1)[0].decode("latin-1")


def decode(message_id: int, payload: bytes) -> Message:
    plain: dict[int, type[Message]] = {0x0500: Started, 0x0513: ResultSent, 0x0514: ResultFailed,
                                       0x0563: UpdateRequested}
    if message_id in plain:
        return plain[message_id](message_id, payload)
    if message_id == 0x0530:
        if len(payload) != 87:
            raise ValueError(f"a connection status of {len(payload)} bytes")
        return PcConnection(message_id, payload, payload[0] == 1, text(payload[2:22]), text(payload[23:43]),
                            text(payload[43:44]))
    if message_id == 0x0562:
        return decode_update(message_id, payload)
    return Message(message_id, payload)


def decode_update(message_id: int, payload: bytes) -> Message:
    kind, rest = payload[0], payload[1:]
    if kind == 1 and not rest:
        return NothingToUpdate(message_id, payload)
    if kind == 2:
        code, group = struct.unpack("<IB", rest)
        return UpdateFailed(message_id, payload, code, group)
    if kind == 3:
        entries = [rest[1 + i * 19:20 + i * 19] for i in range(rest[0])]
        if len(rest) != 1 + 19 * rest[0] or any(struct.unpack("<H", entry[1:3]) != (16,) for entry in entries):
            raise ValueError(f"malformed list of images: {payload.hex()}")
        return UpdateStarts(message_id, payload, [(entry[0], text(entry[3:])) for entry in entries])
    if kind == 4:
        if len(rest) != 1 + 2 * rest[0]:
            raise ValueError(f"malformed progress: {payload.hex()}")
        return UpdateProgress(message_id, payload, dict(zip(rest[1::2], rest[2::2])))
    if kind == 5 and not rest:
        return UpdateComplete(message_id, payload)
    raise ValueError(f"malformed update report: {payload.hex()}")


M = TypeVar("M", bound=Message)


class ZelApp:
    """ZELApp's end of the local socket. Every message received is kept in `history`."""

    def __init__(self, connect: Callable[[str], socket.socket], tmp: Path):
        """`connect` opens a UNIX-domain stream to a path, `tmp` is where "/tmp" of the analyzer lies."""
        self._connect = connect
        self._tmp = tmp
        self._received = b""
        self.socket: socket.socket | None = None
        self.history: list[Message] = []

    def connect(self, timeout: float = 20) -> None:
        """Connects as soon as the daemon listens."""
        deadline = time.monotonic() + timeout
        while True:
            try:
                self.socket = self._connect(SOCKET_PATH)
                self._received = b""
                return
            except (FileNotFoundError, ConnectionRefusedError):
                if time.monotonic() > deadline:
                    raise TimeoutError("the daemon does not open its local socket") from None
                time.sleep(0.005)

    def close(self) -> None:
        if self.socket:
            self.socket.close()
            self.socket = None

    def send_raw(self, data: bytes) -> None:
        assert self.socket
        self.socket.settimeout(5)
        self.socket.sendall(data)

    def send(self, message_id: int, payload: bytes = b"") -> None:
        self.send_raw(frame(message_id, payload))

    def unread(self) -> int:
        """0 once the daemon has read all that was sent, else the memory that the rest takes."""
        assert self.socket
        return int.from_bytes(fcntl.ioctl(self.socket, termios.TIOCOUTQ, bytes(4)), sys.byteorder)

    def receive(self, timeout: float = 20) -> Message:
        """The next message, whatever it is. Its frame and CRC are checked."""
        deadline = time.monotonic() + timeout
        head = self._read(6, deadline)
        start, address, message_id, length = struct.unpack("<BBHH", head)
        rest = self._read(6 + length + 3, deadline)[6:]
        self._received = self._received[6 + length + 3:]
        payload, (crc, end) = rest[:length], struct.unpack("<HB", rest[length:])
        if (start, address, end) != (0x02, 0xB2, 0x03) or crc != crc16_arc(head[1:] + payload):
            raise ValueError(f"malformed local message {(head + rest).hex()}")
        message = decode(message_id, payload)
        self.history.append(message)
        return message

    def _read(self, count: int, deadline: float) -> bytes:
        """The first bytes of what was received, which stay there until the message is whole."""
        assert self.socket
        while len(self._received) < count:
            self.socket.settimeout(max(deadline - time.monotonic(), 0.001))
            data = self.socket.recv(65536)
            if not data:
                raise ConnectionError("the daemon closed the local socket")
            self._received += data
        return self._received[:count]

    def expect(self, kind: type[M], timeout: float = 20) -> M:
        """The next message of a class; others on the way only go into the history."""
        deadline = time.monotonic() + timeout
        passed = []
        while True:
            try:
                message = self.receive(max(deadline - time.monotonic(), 0.001))
            except TimeoutError:
                raise TimeoutError(f"no {kind.__name__} within {timeout:g} s, but {passed}") from None
            if isinstance(message, kind):
                return message
            passed.append(message)

    def send_result(self, kind: int, condition: str, set_registered: bool = True) -> None:
        """Asks for a result to be sent. `condition` selects it in the database, as in "ResultID = 12"."""
        self.write_request(f"{kind},{condition}".encode())
        self.send(0x0510, bytes([0, set_registered]))

    def write_request(self, content: bytes) -> None:
        (self._tmp / "sendtopc.data").write_bytes(content)

    def address_changed(self) -> None:
        self.send(0x0520)

    def start_update(self, method: int, mode: int = 0) -> None:
        """Methods: 1 USB, 2 by PC, 3 internet, 4 from PC, 6 QC material. Mode 1 only asks what would be updated."""
        self.send(0x0561, bytes([mode, method]))

    def answer_update_request(self, possible: bool) -> None:
        self.send(0x0564, bytes([0 if possible else 1]))
