"""A PC program: finds an analyzer, registers with it, receives its results and pushes updates to it.

    pc = Pc(open_socket=sandbox.socket)
    pc.scan()                       # over UDP
    pc.register("secret")           # over TCP
    pc.start_heartbeat()            # from now on the analyzer counts the PC as connected
    hl7 = pc.receive_result()       # once ZELApp has sent one; acknowledges it

On a real network leave `open_socket` away and give the two addresses.
"""

from __future__ import annotations

import queue
import socket
import struct
import threading
import time
from collections.abc import Callable, Iterable

from bench.pcpacket import HEADER_SIZE, Command, Info, Packet, ScanResponse, decode, decode_header, decode_info
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS

ANALYZER_UDP_PORT = 9035
ANALYZER_TCP_PORT = 9034

# Bit of an image in an update offer and in the analyzer's image requests.
SYS, APP, DSP, XML = 0x08, 0x10, 0x20, 0x40
# Bit of an image in the update information, where they come in this order.
INFO_BITS = {SYS: 0x0020, APP: 0x0040, DSP: 0x0080, XML: 0x0100}

CANCEL = 0x0013
IMAGE_PIECE = 32000


class Refused(Exception):
    """The analyzer answered with an error notice."""

    def __init__(self, code: int):
        super().__init__(f"the analyzer answered with error 0x{code:04X}")
        self.code = code


def plain_socket(kind: int) -> socket.socket:
    return socket.socket(socket.AF_INET, kind)


class Pc:
    def __init__(self, open_socket: Callable[[int], socket.socket] = plain_socket, address: str = PC_ADDRESS,
                 analyzer: str = ANALYZER_ADDRESS, udp_port: int = 9036, name: str = "LabLink", peer_id: str = "1",
                 analyzer_ports: tuple[int, int] = (ANALYZER_TCP_PORT, ANALYZER_UDP_PORT)):
        self.address, self.analyzer, self.udp_port = address, analyzer, udp_port
        self.name, self.peer_id = name, peer_id
        self._open_socket, self._analyzer_ports = open_socket, analyzer_ports
        self.tcp: socket.socket | None = None
        self.udp = open_socket(socket.SOCK_DGRAM)
        self.udp.bind((address, udp_port))
        self.udp_port = self.udp.getsockname()[1]
        # What arrived over UDP, but for the acknowledgements of heartbeats.
        self.datagrams: queue.Queue[Packet] = queue.Queue()
        self.acknowledge_notices = True
        self.heartbeat_answered = threading.Event()
        self._heartbeat_period: float | None = None
        self._next_heartbeat = 0.0
        self._closing = False
        self._thread = threading.Thread(target=self._serve_udp, daemon=True)
        self._thread.start()

    def __enter__(self) -> Pc:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        self.disconnect()
        self._closing = True
        self._thread.join()
        self.udp.close()

    # Over UDP

    def _serve_udp(self) -> None:
        self.udp.settimeout(0.02)
        while not self._closing:
            if self._heartbeat_period is not None and time.monotonic() >= self._next_heartbeat:
                self._next_heartbeat = time.monotonic() + self._heartbeat_period
                self.send_heartbeat()
            try:
                data, sender = self.udp.recvfrom(65536)
            except TimeoutError:
                continue
            packet = decode(data)
            if packet.command == Command.NOTICE_ACK:
                self.heartbeat_answered.set()
                continue
            if packet.command == Command.NOTICE and self.acknowledge_notices:
                self.udp.sendto(Packet(Command.NOTICE_ACK, packet.tag, packet.sub_tag).encode(), sender)
            self.datagrams.put(packet)

    def send_datagram(self, data: bytes) -> None:
        self.udp.sendto(data, (self.analyzer, self._analyzer_ports[1]))

    def receive_datagram(self, command: int, timeout: float = 20) -> Packet:
        """The next datagram, which must carry this command."""
        try:
            packet = self.datagrams.get(timeout=timeout)
        except queue.Empty:
            raise TimeoutError(f"no datagram 0x{command:04X} within {timeout:g} s") from None
        if packet.command != command:
            raise ValueError(f"0x{command:04X} was expected, but {packet} came")
        return packet

    def scan(self, tag: int = 1, answer_to: tuple[str, int] | None = None) -> ScanResponse:
        """Asks who is there. `answer_to` may name another address and port than this PC's own."""
        address, port = answer_to or (self.address, self.udp_port)
        payload = struct.pack(">H4s4x", port, socket.inet_aton(address))
        self.send_datagram(Packet(Command.SCAN, tag, 0, payload).encode())
        return ScanResponse.decode(self.receive_datagram(Command.SCAN_RESPONSE))

    def send_heartbeat(self, tag: int = 2, mask: int = 0, rest: bytes = b"") -> None:
        payload = struct.pack(">H", mask) + rest
        self.send_datagram(Packet(Command.NOTICE, tag, ord(self.peer_id), payload).encode())

    def start_heartbeat(self, period: float = 1) -> None:
        """Keeps telling the analyzer that this PC is there; without it the PC counts as gone after 10 s."""
        self._next_heartbeat = 0
        self._heartbeat_period = period

    def stop_heartbeat(self) -> None:
        self._heartbeat_period = None

    # Over TCP

    def connect(self) -> None:
        self.disconnect()
        self.tcp = self._open_socket(socket.SOCK_STREAM)
        self.tcp.settimeout(5)
        self.tcp.bind((self.address, 0))
        self.tcp.connect((self.analyzer, self._analyzer_ports[0]))

    def disconnect(self) -> None:
        if self.tcp:
            self.tcp.close()
            self.tcp = None

    def reset(self) -> None:
        """Drops the session without a goodbye, as a PC does that loses its power."""
        if self.tcp:
            self.tcp.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.disconnect()

    def send_raw(self, data: bytes) -> None:
        assert self.tcp, "not connected"
        self.tcp.settimeout(10)
        self.tcp.sendall(data)

    def send(self, command: int, payload: bytes = b"", tag: int = 1, flag: bool = False) -> None:
        self.send_raw(Packet(command, tag, ord(self.peer_id), payload, flag).encode())

    def receive(self, timeout: float = 20) -> Packet:
        """The next packet of the session."""
        assert self.tcp, "not connected"
        deadline = time.monotonic() + timeout
        head, length = decode_header(self._read(HEADER_SIZE, deadline))
        return Packet(head.command, head.tag, head.sub_tag, self._read(length, deadline), head.flag, head.version)

    def _read(self, count: int, deadline: float) -> bytes:
        assert self.tcp
        data = b""
        while len(data) < count:
            self.tcp.settimeout(max(deadline - time.monotonic(), 0.001))
            piece = self.tcp.recv(count - len(data))
            if not piece:
                raise ConnectionError("the analyzer closed the session")
            data += piece
        return data

    def expect(self, command: int, timeout: float = 20) -> Packet:
        """The next packet, which must carry this command; an error notice raises `Refused`."""
        try:
            packet = self.receive(timeout)
        except TimeoutError:
            raise TimeoutError(f"no packet 0x{command:04X} within {timeout:g} s") from None
        if packet.command == command:
            return packet
        if packet.command == Command.ERROR:
            raise Refused(struct.unpack(">H", packet.payload)[0])
        raise ValueError(f"0x{command:04X} was expected, but {packet} came")

    def register(self, password: str, tag: int = 1) -> Packet:
        """Connects when needed and makes this PC the one that receives results."""
        if not self.tcp:
            self.connect()
        payload = struct.pack(">8sH4s10ss", password.encode(), self.udp_port, socket.inet_aton(self.address),
                              self.name.encode(), self.peer_id.encode())
        self.send(Command.REGISTER, payload, tag)
        return self.expect(Command.REGISTER_RESPONSE)

    def unregister(self, tag: int = 1) -> Packet:
        self.send(Command.UNREGISTER, tag=tag)
        return self.expect(Command.UNREGISTER_RESPONSE)

    def get_info(self, *items: Info, tag: int = 1) -> dict[Info, bytes]:
        self.send(Command.GET_INFO, struct.pack(">H", sum(items)), tag)
        return decode_info(self.expect(Command.INFO).payload)

    def receive_result(self, timeout: float = 20, acknowledge: bool = True) -> str:
        """The HL7 text of the next result. The analyzer waits about 2 s for the acknowledgement."""
        packet = self.expect(Command.RESULT, timeout)
        if acknowledge:
            self.send(Command.RESULT, tag=packet.tag)
        return packet.payload.decode()

    # Updates

    def offer_update(self, images: Iterable[int]) -> None:
        """Announces images, which may be pushed once the analyzer has accepted."""
        self.send(Command.UPDATE_START, bytes([sum(images)]))

    def send_update_info(self, versions: dict[int, str]) -> None:
        """Tells which version of each image this PC has."""
        mask = sum(INFO_BITS[image] for image in versions)
        texts = (versions[image].encode().ljust(16, b"\0") for image in INFO_BITS if image in versions)
        self.send(Command.INFO, struct.pack(">H", mask) + b"".join(texts))

    def push_image(self, data: bytes, progress: Callable[[int], None] = lambda count: None) -> Packet:
        """Sends a whole update file. The analyzer answers when it is stored, or raises `Refused`."""
        for start in range(0, len(data), IMAGE_PIECE):
            piece = data[start:start + IMAGE_PIECE]
            self.send(Command.IMAGE_DATA, piece, flag=start + len(piece) < len(data))
            progress(len(piece))
        return self.expect(Command.IMAGE_RECEIVED, 60)

    def cancel_update(self, code: int = CANCEL) -> None:
        self.send(Command.ERROR, struct.pack(">H", code))
