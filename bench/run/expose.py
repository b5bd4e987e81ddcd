"""Makes simulated analyzers reachable from the host: what `./zel run --expose PORT` does.

An analyzer's TCP port 9034 is PORT of 127.0.0.1 and its UDP port 9035 the one after; the next analyzer has the next two.
The relay does what a router with address translation does: to the analyzer a PC on the host is the sandbox's PC, with
the UDP port that it has on the host, and the analyzer's address and TCP port inside what it tells, and the PC's inside a
scan, are changed to fit.
"""

from __future__ import annotations

import contextlib
import select
import socket
import struct
import threading
import time
from collections.abc import Callable

from bench.pcpacket import HEADER_SIZE, INFO_WIDTHS, Command, Info, decode_header
from bench.sandbox import PC_ADDRESS, Sandbox

HOST = "127.0.0.1"
TCP_PORT, UDP_PORT = 9034, 9035  # the analyzer's
PIECE = 1 << 16
SILENCE = 15.0  # seconds without a datagram either way, after which a PC's UDP port is given up


class Expose:
    """Relays until it is closed. Its ports are taken when it is made, for port 0 any that are free."""

    def __init__(self, sandboxes: list[Sandbox], port: int):
        wanted = [(port + 2 * i, port + 2 * i + 1) if port else (0, 0) for i in range(len(sandboxes))]
        self._pc = sandboxes[0].pc
        self._analyzers = [sandbox.address for sandbox in sandboxes]
        self._listeners, self._datagrams = [], []
        for tcp, udp in wanted:
            self._listeners.append(socket.create_server((HOST, tcp)))
            self._datagrams.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
            self._datagrams[-1].bind((HOST, udp))
        self.ports = [(listener.getsockname()[1], datagrams.getsockname()[1])
                      for listener, datagrams in zip(self._listeners, self._datagrams)]
        # UDP port of a PC on the host -> the socket that has this port in the sandbox, and when it was last used
        self._pc_sockets: dict[int, socket.socket] = {}
        self._used: dict[int, float] = {}
        self._wake_read, self._wake_write = socket.socketpair()
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def close(self) -> None:
        self._wake_write.close()
        self._thread.join()
        for made in (*self._listeners, *self._datagrams, *self._pc_sockets.values(), self._wake_read):
            made.close()

    def _run(self) -> None:
        while True:
            ready = select.select([self._wake_read, *self._listeners, *self._datagrams, *self._pc_sockets.values()],
                                  [], [], 1.0 if self._pc_sockets else None)[0]
            if self._wake_read in ready:
                return
            self._give_up_silent()
            with contextlib.suppress(OSError):  # one who is gone is no reason to leave the others
                for source in ready:
                    if source in self._listeners:
                        self._connect(source.accept()[0], self._listeners.index(source))
                    elif source in self._datagrams:
                        self._to_analyzer(self._datagrams.index(source))
                    elif source.fileno() != -1:
                        self._to_host(source)

    def _give_up_silent(self) -> None:
        oldest = time.monotonic() - SILENCE
        for port in [port for port, used in self._used.items() if used <= oldest]:
            self._pc_sockets.pop(port).close()
            del self._used[port]

    # TCP

    def _connect(self, host: socket.socket, index: int) -> None:
        analyzer = self._pc.socket(socket.SOCK_STREAM, (PC_ADDRESS, 0))
        try:
            analyzer.settimeout(5)
            analyzer.connect((self._analyzers[index], TCP_PORT))
            analyzer.settimeout(None)
        except OSError:
            host.close()
            analyzer.close()
            return
        translate = Translation(self.ports[index][0]).feed
        for arguments in ((host, analyzer), (analyzer, host, translate)):
            threading.Thread(target=pump, args=arguments, daemon=True).start()

    # UDP

    def _to_analyzer(self, index: int) -> None:
        data, (_, port) = self._datagrams[index].recvfrom(PIECE)
        if command_of(data) == Command.SCAN and len(data) >= HEADER_SIZE + 6:
            port = struct.unpack_from(">H", data, HEADER_SIZE)[0]
            data = replace(data, HEADER_SIZE + 2, socket.inet_aton(PC_ADDRESS))
        if port not in self._pc_sockets:
            self._pc_sockets[port] = self._pc.socket(socket.SOCK_DGRAM, (PC_ADDRESS, port))
        self._used[port] = time.monotonic()
        self._pc_sockets[port].sendto(data, (self._analyzers[index], UDP_PORT))

    def _to_host(self, source: socket.socket) -> None:
        data, (sender, _) = source.recvfrom(PIECE)
        self._used[source.getsockname()[1]] = time.monotonic()
        # Without namespaces what the analyzer sends comes from another address of the loopback interface.
        index = self._analyzers.index(sender) if sender in self._analyzers else 0
        if command_of(data) == Command.SCAN_RESPONSE and len(data) >= HEADER_SIZE + 26:
            data = replace(data, HEADER_SIZE + 16, struct.pack(">H", self.ports[index][0]) + socket.inet_aton(HOST))
            data = data[:-4] + struct.pack(">I", sum(data[:-4]))
        self._datagrams[index].sendto(data, (HOST, source.getsockname()[1]))


def command_of(data: bytes) -> int:
    return int.from_bytes(data[:2], "big")


def replace(data: bytes, offset: int, piece: bytes) -> bytes:
    return data[:offset] + piece + data[offset + len(piece):]


class Translation:
    """What an analyzer sends by TCP, with its address and port in 0x0A1F changed to those of the host."""

    def __init__(self, tcp_port: int):
        self._changes = {Info.TCP_PORT: struct.pack(">H", tcp_port), Info.ADDRESS: socket.inet_aton(HOST)}
        self._waiting = b""
        self._passing = 0  # bytes of the current packet that go on as they come

    def feed(self, data: bytes) -> bytes:
        """What can be passed on once this has come: everything but headers and 0x0A1F that are not whole yet."""
        self._waiting += data
        done = b""
        while self._waiting:
            if not self._passing:
                if len(self._waiting) < HEADER_SIZE:
                    break
                packet, length = decode_header(self._waiting[:HEADER_SIZE])
                if packet.command == Command.INFO:
                    if len(self._waiting) < HEADER_SIZE + length:
                        break
                    self._waiting = self._changed(self._waiting)
                self._passing = HEADER_SIZE + max(length, 0)
            piece = self._waiting[:self._passing]
            done, self._waiting = done + piece, self._waiting[len(piece):]
            self._passing -= len(piece)
        return done

    def _changed(self, data: bytes) -> bytes:
        mask, at = int.from_bytes(data[HEADER_SIZE:HEADER_SIZE + 2], "big"), HEADER_SIZE + 2
        for item, width in INFO_WIDTHS.items():
            if mask & item:
                data = replace(data, at, self._changes.get(item, data[at:at + width]))
                at += width
        return data


def pump(source: socket.socket, target: socket.socket,
         change: Callable[[bytes], bytes] = lambda data: data) -> None:
    """Carries what comes from one to the other, and then the end of it."""
    with contextlib.suppress(OSError):
        while data := source.recv(PIECE):
            target.sendall(change(data))
    # Both directions end with one: a PC that is gone must look gone, and neither protocol half-closes.
    for end in (source, target):
        with contextlib.suppress(OSError):
            end.shutdown(socket.SHUT_RDWR)
