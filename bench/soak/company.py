"""Strangers on the analyzer's network: neighbours that behave, and vandals that do not.

None of them ever leaves while it is being answered, because that may end the daemon by design. What the vandals send
holds no command that the daemon knows unless it is cut short.
"""

from __future__ import annotations

import random
import socket
import struct
import threading
import traceback
from collections.abc import Callable

from bench.analyzer import SERIAL, Analyzer
from bench.pc import ANALYZER_TCP_PORT, Pc
from bench.pcpacket import HEADER_SIZE, Command, Info, Packet
from bench.sandbox import ANALYZER_ADDRESS, lab_address
from bench.soak.records import Records, check

NEIGHBOUR, VANDAL = lab_address(22), lab_address(23)
ADDRESSES = (NEIGHBOUR, VANDAL)

# The first byte of every command that the daemon knows.
HARMLESS = bytes.maketrans(b"\x0a\x7b", b"\x0b\x7c")


def garbage(chance: random.Random, size: int) -> bytes:
    """Random bytes in which the daemon finds no command, wherever it begins to read."""
    return chance.randbytes(size).translate(HARMLESS)


def half_packet(chance: random.Random) -> bytes:
    """The beginning of a good packet that never ends."""
    packet = Packet(chance.choice([Command.REGISTER, Command.GET_INFO, Command.IMAGE_DATA, Command.UPDATE_START]),
                    1, 0, bytes(chance.randrange(2, 3000))).encode()
    return packet[:chance.randrange(1, len(packet))]


def huge_length(chance: random.Random) -> bytes:
    head = struct.pack(">HBBBH", chance.choice([Command.REGISTER, Command.INFO]), 1, 0, 1, 0xFFFE)
    return head + bytes(chance.randrange(20000))


def short_length(chance: random.Random) -> bytes:
    """Headers of unknown commands whose length word is less than a header has."""
    return b"".join(struct.pack(">HBBBH", 0x1234, 1, 0, 1, chance.randrange(2 * HEADER_SIZE)) for _ in range(20))


def reset(connection: socket.socket) -> None:
    """Closes a connection without a goodbye, as a PC does that loses its power."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class Company:
    def __init__(self, analyzer: Analyzer, records: Records, seed: int, failed: Callable[[str, str], None]):
        self.sandbox, self.records, self._failed = analyzer.sandbox, records, failed
        self._seed, self._visits = seed, 0
        # An answer to anybody discards an acknowledgement that no result waits for. Held by whoever asks over TCP, and by
        # whoever looks for such an acknowledgement.
        self.answers = threading.Lock()
        self._stopped = threading.Event()
        self._threads: list[threading.Thread] = []
        for address in ADDRESSES:
            self.sandbox.laboratory.add_pc_address(address)

    def start(self) -> None:
        if self._threads:
            return
        self._visits += 1
        self._stopped.clear()
        for act in (self._neighbour, self._tcp_vandal, self._udp_vandal):
            chance = random.Random(f"{self._seed} {act.__name__} {self._visits}")
            self._threads.append(threading.Thread(target=self._act, args=(act, chance), daemon=True))
            self._threads[-1].start()

    def stop(self) -> bool:
        """Returns when everybody has closed what they had opened; whether anybody was there."""
        were_there = bool(self._threads)
        self._stopped.set()
        for thread in self._threads:
            thread.join()
        self._threads.clear()
        return were_there

    def _act(self, act: Callable[[random.Random], None], chance: random.Random) -> None:
        try:
            act(chance)
        except Exception as error:  # whatever it is, it is the daemon's answer to this stranger
            self._failed(f"{act.__name__.lstrip('_')}: {type(error).__name__}: {error}", traceback.format_exc())

    def _neighbour(self, chance: random.Random) -> None:
        """Scans, and asks for what does not depend on who is registered."""
        with Pc(self.sandbox.socket, address=NEIGHBOUR, name="Neighbour", udp_port=9100, peer_id="7") as pc:
            while not self._stopped.wait(chance.uniform(0, 0.2)):
                for _ in range(chance.randrange(1, 8)):
                    with self.records.measure("scan"):
                        found = pc.scan(chance.randrange(256))
                    check((found.serial, found.address, found.tcp_port) == (SERIAL, ANALYZER_ADDRESS, 9034),
                          f"a scan was answered with {found}")
                if not pc.tcp:
                    pc.connect()
                for _ in range(chance.randrange(1, 8)):
                    with self.answers, self.records.measure("device information"):
                        entries = pc.get_info(Info.TCP_PORT, Info.ADDRESS, Info.SERIAL, tag=chance.randrange(256))
                    check(entries == {Info.TCP_PORT: struct.pack(">H", 9034),
                                      Info.ADDRESS: socket.inet_aton(ANALYZER_ADDRESS),
                                      Info.SERIAL: SERIAL[:10].encode()}, f"device information was {entries}")
                if chance.random() < 0.5:
                    pc.disconnect()
                elif chance.random() < 0.5:
                    pc.reset()

    def _tcp_vandal(self, chance: random.Random) -> None:
        while not self._stopped.wait(chance.uniform(0, 0.1)):
            with self.records.measure("garbage over TCP"):
                connection = self.sandbox.socket(socket.SOCK_STREAM)
                try:
                    connection.settimeout(10)
                    connection.bind((VANDAL, 0))
                    connection.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
                    attack = chance.choice([half_packet, huge_length, short_length, lambda _: b"",
                                            lambda _: garbage(chance, chance.randrange(1, 20000))])
                    try:
                        connection.sendall(attack(chance))
                    except ConnectionError:  # the daemon gave it up first
                        pass
                finally:
                    if chance.random() < 0.5:
                        reset(connection)
                    else:
                        connection.close()

    def _udp_vandal(self, chance: random.Random) -> None:
        """Sends only datagrams of the length that they announce: any other takes the PC's link down by design."""
        with Pc(self.sandbox.socket, address=VANDAL, udp_port=9101) as pc:
            while not self._stopped.wait(chance.uniform(0, 0.05)):
                size = chance.randrange(60)
                packet = chance.choice([
                    Packet(0x1234, 1, 0, chance.randbytes(chance.randrange(4000))),
                    Packet(Command.SCAN, 1, 0, bytes(size if size != 10 else 11)),
                    Packet(Command.NOTICE, 1, ord("1"), chance.randbytes(size)),
                    Packet(Command.NOTICE_ACK, 1, ord("1")),
                ])
                with self.records.measure("garbage over UDP"):
                    pc.send_datagram(packet.encode())
