"""Device information over TCP."""

from __future__ import annotations

import struct

import pytest

from bench.analyzer import Analyzer
from bench.pc import Pc
from bench.pcpacket import Command, Info, decode_info
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS


def padded(text: str, size: int = 16) -> bytes:
    return text.encode().ljust(size, b"\0")


@pytest.fixture
def versions(new_analyzer: Analyzer) -> None:
    new_analyzer.write_device("versions.cfg", {"SYS": "1.00.00.0001", "APP": "2.00.00.0002", "DSP": "3.00.00.0003",
                                               "XML": "4.00.00.0004"})


def test_every_item_to_the_registered_pc(versions: None, analyzer: Analyzer, connected_pc: Pc) -> None:
    connected_pc.send(Command.GET_INFO, b"\x1f\xff", tag=0x66)
    packet = connected_pc.expect(Command.INFO)
    assert (packet.tag, packet.sub_tag) == (0x66, ord("1"))
    assert packet.payload[:2] == b"\x1f\xff"
    # The device keeps no DSP version text.
    assert list(decode_info(packet.payload).values()) == [
        b"\x04", b"\x01", struct.pack(">H", 9034), bytes(map(int, ANALYZER_ADDRESS.split("."))), b"N62A000123",
        padded("1.00.00.0001"), padded("2.00.00.0002"), bytes(16), padded("4.00.00.0004"),
        padded("4.00.00.0004"), b"", b"\0\0", b"\x01"]


def test_another_pc_is_told_who_is_registered(connected_pc: Pc, other_pc: Pc) -> None:
    other_pc.connect()
    other_pc.send(Command.GET_INFO, b"\x10\x00")
    packet = other_pc.expect(Command.INFO)
    address = bytes(map(int, PC_ADDRESS.split(".")))
    assert (packet.sub_tag, packet.payload[2:]) == (0xFF, b"\0" + address + padded("LabLink", 10))
    other_pc.send(Command.GET_INFO, b"\x00\x01")
    assert other_pc.expect(Command.INFO).sub_tag == ord("1")


def test_versions_are_read_afresh(versions: None, analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    assert pc.get_info(Info.XML_VERSION_AGAIN) == {Info.XML_VERSION_AGAIN: padded("4.00.00.0004")}
    for name, item in (("SYS", Info.SYS_VERSION), ("APP", Info.APP_VERSION), ("XML", Info.XML_VERSION)):
        analyzer.write_device("versions.cfg", {name: "9.00.00.0009"})
        assert pc.get_info(item) == {item: padded("9.00.00.0009")}


def test_odd_requests(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    for payload in (b"", b"\x01", b"\x00\x01\x00"):
        pc.send(Command.GET_INFO, payload)
    pc.send(Command.GET_INFO, b"\xe0\x00", tag=9)  # bits without an item; the first request that is answered
    packet = pc.expect(Command.INFO)
    assert (packet.tag, packet.payload) == (9, b"\xe0\x00")
    assert analyzer.daemon.log().count("[CConnect::ProcessGetDeviceInfo] Payload length differs") == 3
