"""The packets of the PC protocol.

A packet is: command (2), tag (1), sub-tag (1), version 1 (1), length word (2), payload. Numbers are big-endian. The
length word is the length of the whole packet shifted left by one; its lowest bit is a flag, which says that more
packets of the same update image follow.
"""

from __future__ import annotations

import socket
import struct
from dataclasses import dataclass
from enum import IntEnum

HEADER_SIZE = 7
MAX_PACKET = 0x7FFF


class Command(IntEnum):
    SCAN = 0x0A01
    SCAN_RESPONSE = 0x0A02
    REGISTER = 0x0A03
    REGISTER_RESPONSE = 0x0A04
    UNREGISTER = 0x0A05
    UNREGISTER_RESPONSE = 0x0A06
    NOTICE = 0x0A13  # the PC's heartbeat, and the analyzer's notice of a change
    NOTICE_ACK = 0x0A14
    UPDATE_START = 0x0A19
    UPDATE_ACCEPTED = 0x0A1A
    IMAGE_REQUEST = 0x0A1B
    IMAGE_DATA = 0x0A1C
    IMAGE_RECEIVED = 0x0A1D
    GET_INFO = 0x0A1E  # from the analyzer: asks for the PC's update information
    INFO = 0x0A1F
    ERROR = 0x0AFF
    RESULT = 0x7B01  # from the PC: its acknowledgement


@dataclass(frozen=True)
class Packet:
    command: int
    tag: int = 0
    sub_tag: int = 0
    payload: bytes = b""
    flag: bool = False
    version: int = 1

    def encode(self) -> bytes:
        total = HEADER_SIZE + len(self.payload)
        if total > MAX_PACKET:
            raise ValueError(f"a packet of {total} bytes does not fit its length field")
        return struct.pack(">HBBBH", self.command, self.tag, self.sub_tag, self.version,
                           total << 1 | self.flag) + self.payload


def decode_header(head: bytes) -> tuple[Packet, int]:
    """The packet without its payload, and the payload's length."""
    command, tag, sub_tag, version, length = struct.unpack(">HBBBH", head)
    return Packet(command, tag, sub_tag, b"", bool(length & 1), version), (length >> 1) - HEADER_SIZE


def decode(data: bytes) -> Packet:
    """A packet from the whole of a datagram."""
    packet, length = decode_header(data[:HEADER_SIZE])
    if length != len(data) - HEADER_SIZE:
        raise ValueError(f"a datagram of {len(data)} bytes announces {length + HEADER_SIZE}")
    return Packet(packet.command, packet.tag, packet.sub_tag, data[HEADER_SIZE:], packet.flag, packet.version)


def fixed_text(raw: bytes) -> str:
    return raw.split(b"\0", 1)[0].decode("latin-1")


@dataclass(frozen=True)
class ScanResponse:
    serial: str
    active: bool  # the analyzer is registered or busy
    tcp_port: int
    address: str
    pc_address: str
    pc_name: str
    model: str

    @classmethod
    def decode(cls, packet: Packet) -> ScanResponse:
        """Checks the length and the byte sum that only this packet carries at its end."""
        data = packet.encode()
        if packet.command != Command.SCAN_RESPONSE or len(data) != 79:
            raise ValueError(f"not a scan response: {data.hex()}")
        if struct.unpack(">I", data[-4:])[0] != sum(data[:-4]):
            raise ValueError(f"the scan response's byte sum is wrong: {data.hex()}")
        p = packet.payload
        return cls(fixed_text(p[:15]), bool(p[15] & 1), struct.unpack(">H", p[16:18])[0], socket.inet_ntoa(p[18:22]),
                   socket.inet_ntoa(p[32:36]), fixed_text(p[36:46]), fixed_text(p[60:68]))


class Info(IntEnum):
    """Items of the device information; they follow each other in this order."""
    ACTIVITY = 0x0001
    PEER_ID = 0x0002
    TCP_PORT = 0x0004
    ADDRESS = 0x0008
    SERIAL = 0x0010
    SYS_VERSION = 0x0020
    APP_VERSION = 0x0040
    DSP_VERSION = 0x0080
    XML_VERSION = 0x0100
    XML_VERSION_AGAIN = 0x0200
    NAME = 0x0400
    RESERVED = 0x0800
    REGISTRATION = 0x1000


INFO_WIDTHS = {Info.ACTIVITY: 1, Info.PEER_ID: 1, Info.TCP_PORT: 2, Info.ADDRESS: 4, Info.SERIAL: 10,
               Info.SYS_VERSION: 16, Info.APP_VERSION: 16, Info.DSP_VERSION: 16, Info.XML_VERSION: 16,
               Info.XML_VERSION_AGAIN: 16, Info.NAME: 0, Info.RESERVED: 2}


def decode_info(payload: bytes) -> dict[Info, bytes]:
    """The raw entries of a device information response. A registration entry is one byte for the registered PC, else
    0, the registered PC's address (4) and its name (10)."""
    mask = struct.unpack(">H", payload[:2])[0]
    entries, rest = {}, payload[2:]
    for item in Info:
        if mask & item:
            width = INFO_WIDTHS[item] if item in INFO_WIDTHS else 1 if rest[:1] == b"\x01" else 15
            if len(rest) < width:
                raise ValueError(f"{item.name} is cut short: {payload.hex()}")
            entries[item], rest = rest[:width], rest[width:]
    if rest:
        raise ValueError(f"{len(rest)} bytes too many: {payload.hex()}")
    return entries
