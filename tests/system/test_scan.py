"""Discovery over UDP."""

from __future__ import annotations

import socket
import struct
from typing import Any

import pytest

from bench.analyzer import Analyzer
from bench.pc import Pc
from bench.pcpacket import Command, Packet, ScanResponse, decode
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, USB_ANALYZER_ADDRESS, USB_PC_ADDRESS, lab_address


def test_the_answer_goes_to_the_address_in_the_request(analyzer: Analyzer, pc: Pc) -> None:
    with analyzer.sandbox.socket(socket.SOCK_DGRAM) as other:
        other.bind((PC_ADDRESS, 7777))
        other.settimeout(5)
        payload = struct.pack(">H4s4s", 7777, socket.inet_aton(PC_ADDRESS), b"\xde\xad\xbe\xef")
        pc.send_datagram(Packet(Command.SCAN, 0x5A, 0x11, payload).encode())
        data, sender = other.recvfrom(4096)
    packet = decode(data)
    assert (sender[1], packet.tag, packet.sub_tag, packet.version, packet.flag) == (9035, 0x5A, 0xFF, 1, False)
    assert ScanResponse.decode(packet) == ScanResponse("N62A0001234", False, 9034, ANALYZER_ADDRESS, "0.0.0.0", "",
                                                       "N62")
    assert packet.payload[22:32] + packet.payload[46:60] == bytes(24) and packet.payload[15] == 0
    assert pc.datagrams.empty()


def test_the_registered_pc_is_named(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.change_setting("ZELRMTCPPort", "4660")
    found = connected_pc.scan()
    assert (found.active, found.tcp_port, found.pc_address, found.pc_name) == (True, 4660, PC_ADDRESS, "LabLink")


def test_over_the_usb_network_link_its_own_address_is_given(analyzer: Analyzer, make_pc: Any) -> None:
    assert make_pc(address=USB_PC_ADDRESS, analyzer=USB_ANALYZER_ADDRESS).scan().address == USB_ANALYZER_ADDRESS


@pytest.mark.parametrize("model", ["Veterinary"])
def test_a_veterinary_analyzer_says_so(new_analyzer: Analyzer, pc: Pc) -> None:
    """Identity texts of any length are cut to their fields."""
    new_analyzer.write_device("nv.cfg", {"sn": "S" * 40, "project": "N62-extended-name", "model_type": "Veterinary"})
    new_analyzer.start()
    found = pc.scan()
    assert (found.serial, found.model) == ("S" * 15, "N62Vexte")


def test_the_address_follows_the_default_route(analyzer: Analyzer, pc: Pc) -> None:
    analyzer.sandbox.run("ip", "route", "del", "default")
    assert pc.scan().address == "10.9.8.7"  # from the system's settings
    analyzer.daemon.wait_for_log("[CNetUtils::GetMyIPAddr] Get IP from config_zel.cfg")
    analyzer.sandbox.run("ip", "route", "add", "default", "via", "1.1.40.9", "dev", "usb0")
    assert pc.scan().address == "1.1.40.1"
    analyzer.sandbox.run("ip", "route", "add", "default", "via", "192.168.40.1", "dev", "eth0", "metric", "9")
    assert pc.scan().address == ANALYZER_ADDRESS  # the last one of two


MALFORMED = [
    b"", b"\x0a", b"\x0a\x01\x01\x00\x01\x00",  # shorter than a header
    Packet(Command.SCAN, 1, 0, bytes(9)).encode(), Packet(Command.SCAN, 1, 0, bytes(11)).encode(),
    Packet(Command.SCAN, 1, 0, bytes(10)).encode()[:-1], Packet(Command.SCAN, 1, 0, bytes(10)).encode() + b"x",
    struct.pack(">HBBBH", Command.SCAN, 1, 0, 1, 0), struct.pack(">HBBBH", Command.SCAN, 1, 0, 1, 0xFFFF) + bytes(10),
    Packet(Command.NOTICE).encode(), Packet(Command.NOTICE, 1, 0, b"\x20").encode(),
    Packet(0x1234, 1, 0, bytes(100)).encode(), bytes(7), bytes(4096), b"\xff" * 60000,
    struct.pack(">HBBBH", Command.NOTICE_ACK, 1, 0, 1, 3 << 1), Packet(Command.SCAN, 1, 0, bytes(4990)).encode(),
]


def test_malformed_datagrams_are_dropped(analyzer: Analyzer, pc: Pc) -> None:
    analyzer.change_setting("IPChanged", "1")
    for data in MALFORMED:
        pc.send_datagram(data)
        assert pc.scan(tag=9).serial == "N62A0001234"
    assert pc.datagrams.empty()
    log = analyzer.daemon.log()
    assert log.count("[CConnect::ProcessScanDevice] Payload length differs from it's structure") == 2
    for counts in ("16/17", "18/17", "7/0", "7/3", "4096/4997"):
        assert f"[CUDPServer::ReceiveMessage] Receive failed: {counts} bytes" in log
    assert analyzer.setting("IPChanged") == "1"


def test_answers_to_where_nobody_is_hold_up_nobody(analyzer: Analyzer, connected_pc: Pc) -> None:
    """The kernel keeps each for seconds while it asks for the address."""
    nobody = lab_address(99)
    analyzer.sandbox.run("ip", "neighbour", "flush", "to", nobody)
    scan = Packet(Command.SCAN, 1, 0, struct.pack(">H4s4x", 7, socket.inet_aton(nobody))).encode()
    connected_pc.stop_heartbeat()
    lost = 0
    for _ in range(8):
        for _ in range(150):
            connected_pc.send_datagram(scan)
        connected_pc.heartbeat_answered.clear()
        connected_pc.send_heartbeat()
        lost += not connected_pc.heartbeat_answered.wait(1)
    assert lost < 2
    assert "Send error: Resource temporarily unavailable" in analyzer.daemon.log(), "nothing had to wait"
