"""An analyzer that says whatever a test wants, for what no daemon would do."""

from __future__ import annotations

import queue
import socket
import struct
import threading
from collections.abc import Callable

from bench.pcpacket import HEADER_SIZE, Command, Info, Packet, decode, decode_header
from bench.sandbox import PC_ADDRESS, Sandbox

VERSION = b"1.00.00.0001\0\0\0\0"


def result(text: str) -> bytes:
    return Packet(Command.RESULT, 1, ord("1"), text.encode()).encode()


class FakeAnalyzer:
    """Answers scans, signs of life, requests for information and registrations; `on_registered` then has the
    connection for itself. What else the PC sends goes to `packets`."""

    def __init__(self, sandbox: Sandbox, address: str, serial: str,
                 on_registered: Callable[[socket.socket], None] = lambda connection: None):
        self.address, self.serial, self.on_registered = address, serial, on_registered
        self.packets: queue.Queue[Packet] = queue.Queue()
        self.registrations = self.scans = 0
        self.udp = sandbox.analyzer.socket(socket.SOCK_DGRAM, (address, 9035))
        self._listener = sandbox.analyzer.socket(socket.SOCK_STREAM, (address, 9034), listen=5)
        for serve in (self._serve_udp, self._serve_tcp):
            threading.Thread(target=serve, daemon=True).start()

    def close(self) -> None:
        for made in (self.udp, self._listener):
            made.shutdown(socket.SHUT_RDWR) if made is self._listener else None
            made.close()

    def scan_answer(self, tag: int) -> bytes:
        payload = struct.pack(">15sBH4s10x4s10s14x8s", self.serial.encode(), 0, 9034, socket.inet_aton(self.address),
                              bytes(4), b"", b"N62")
        head = struct.pack(">HBBBH", Command.SCAN_RESPONSE, tag, 0xFF, 1, (HEADER_SIZE + len(payload) + 4) << 1)
        return head + payload + struct.pack(">I", sum(head + payload))

    def _serve_udp(self) -> None:
        try:
            while True:
                data, sender = self.udp.recvfrom(4096)
                packet = decode(data)
                if packet.command == Command.SCAN:
                    self.udp.sendto(self.scan_answer(packet.tag), sender)
                    self.scans += 1
                elif packet.command == Command.NOTICE:
                    self.udp.sendto(Packet(Command.NOTICE_ACK, packet.tag, ord("1")).encode(), sender)
                else:
                    self.packets.put(packet)
        except OSError:
            pass

    def _serve_tcp(self) -> None:
        try:
            while True:
                threading.Thread(target=self._serve, args=(self._listener.accept()[0],), daemon=True).start()
        except OSError:
            pass

    def _serve(self, connection: socket.socket) -> None:
        try:
            with connection:
                while True:
                    packet = receive(connection)
                    if packet.command == Command.GET_INFO:
                        connection.sendall(self._info(packet))
                        # A PC asks for everything once it knows that it is registered.
                        if self.registrations and len(packet.payload) == 2 and packet.payload[0] & 0x11 == 0x11:
                            self.on_registered(connection)
                    elif packet.command == Command.REGISTER:
                        self.registrations += 1
                        connection.sendall(Packet(Command.REGISTER_RESPONSE, packet.tag, ord("1"), b"1").encode())
                    else:
                        self.packets.put(packet)
        except (OSError, EOFError):
            pass

    def _info(self, request: Packet) -> bytes:
        items = {Info.ACTIVITY: b"\4", Info.PEER_ID: b"\1", Info.TCP_PORT: struct.pack(">H", 9034),
                 Info.ADDRESS: socket.inet_aton(self.address), Info.SERIAL: self.serial.encode()[:10].ljust(10, b"\0"),
                 Info.SYS_VERSION: VERSION, Info.APP_VERSION: VERSION, Info.DSP_VERSION: VERSION,
                 Info.XML_VERSION: VERSION, Info.REGISTRATION: b"\1" if self.registrations else bytes(15)}
        mask = struct.unpack(">H", request.payload)[0]
        payload = request.payload + b"".join(value for item, value in items.items() if mask & item)
        return Packet(Command.INFO, request.tag, ord("1"), payload).encode()

    def announce_address(self, pc_port: int = 9036) -> None:
        """Tells the PC that this is the analyzer's address now."""
        payload = struct.pack(">H4s", Info.ADDRESS, socket.inet_aton(self.address))
        self.udp.sendto(Packet(Command.NOTICE, 1, ord("1"), payload).encode(), (PC_ADDRESS, pc_port))


def receive(connection: socket.socket) -> Packet:
    def read(count: int) -> bytes:
        data = b""
        while len(data) < count:
            piece = connection.recv(count - len(data))
            if not piece:
                raise EOFError
            data += piece
        return data

    head, length = decode_header(read(HEADER_SIZE))
    return Packet(head.command, head.tag, head.sub_tag, read(length), head.flag)
