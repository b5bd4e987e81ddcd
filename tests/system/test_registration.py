"""Registration, unregistration and the PC's identity."""

from __future__ import annotations

import re
import struct
import time
from typing import Any

import pytest

from bench.analyzer import PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Info, Packet
from bench.sandbox import PC_ADDRESS
from bench.zelapp import PATIENT, PcConnection, ResultFailed, ResultSent

IDENTITY = ("PCIPAddress", "PCSWName", "PCPeerID", "PCUDPPort")


def identity(analyzer: Analyzer) -> tuple[str | None, ...]:
    return tuple(analyzer.setting(key) for key in IDENTITY)


def test_a_registered_pc_is_stored_and_reported(analyzer: Analyzer, make_pc: Any) -> None:
    pc = make_pc(udp_port=9036, name="TenLetters", peer_id="7")
    pc.start_heartbeat(0.1)
    answer = pc.register(PASSWORD, tag=0x33)
    answered = time.monotonic()
    assert answer == Packet(Command.REGISTER_RESPONSE, 0x33, ord("7"), b"7")
    assert identity(analyzer) == (PC_ADDRESS, "TenLetters", "7", "9036")
    assert analyzer.setting("PCTCPPort") == str(pc.tcp.getsockname()[1])
    assert analyzer.setting("IPChanged") == "0"
    status = analyzer.zelapp.expect(PcConnection)
    assert time.monotonic() - answered > 0.9, "reported before the registration was over"
    expected = bytearray(87)
    expected[0] = 1
    expected[1] = expected[22] = expected[44] = expected[65] = 20
    expected[2:12] = b"TenLetters"
    expected[23:23 + len(PC_ADDRESS)] = PC_ADDRESS.encode()
    expected[43] = ord("7")
    expected[66:73] = b"0.0.0.0"
    assert status.payload == bytes(expected)


def test_the_previous_pc_is_told_first(analyzer: Analyzer, connected_pc: Pc, other_pc: Pc) -> None:
    other_pc.connect()
    field = bytes([1, 2, 3, 4])  # carried into the notice as it is
    other_pc.send(Command.REGISTER, struct.pack(">8sH4s10ss", PASSWORD.encode(), 9036, field, b"OtherPC", b"2"), tag=5)
    assert other_pc.expect(Command.REGISTER_RESPONSE).payload == b"2"
    notice = connected_pc.receive_datagram(Command.NOTICE, timeout=0.2)
    assert notice == Packet(Command.NOTICE, 5, ord("1"), b"\x04\x00" + field + b"OtherPC\0\0\0")
    assert identity(analyzer) == (other_pc.address, "OtherPC", "2", "9036")
    log = analyzer.daemon.log()
    assert re.search(r"INFO 0A 03 05( {1,2}[0-9A-F]{2}){21} $", log, re.MULTILINE), "a whole row of a packet"
    assert log.find("Change device info request making start") < log.rfind("Register device response making start")


def test_a_pc_that_replaces_a_connected_one_gets_results(analyzer: Analyzer, connected_pc: Pc, other_pc: Pc) -> None:
    """On the connection that it registered on, also when that is done twice; the connection before is ended."""
    other_pc.start_heartbeat()
    threads = analyzer.daemon.threads()
    for new, old in ((other_pc, connected_pc), (connected_pc, other_pc), (connected_pc, None)):
        new.register(PASSWORD)
        assert not analyzer.zelapp.expect(PcConnection).connected
        status = analyzer.zelapp.expect(PcConnection)
        assert (status.connected, status.name, status.address) == (True, new.name, new.address)
        if old:
            with pytest.raises(ConnectionError):
                old.receive()
            old.disconnect()
        analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
        assert "P-4711" in new.receive_result()
        analyzer.zelapp.expect(ResultSent)
        # ZELApp hears of the result just before the status changes back, and until then nobody registers.
        wait_until(lambda: re.findall('Status changed to "(.*)"', analyzer.daemon.log())[-1] == "Registered", 20, "it is")
    time.sleep(3)  # longer than a session that is told to end needs for it
    assert connected_pc.get_info(Info.REGISTRATION) == {Info.REGISTRATION: b"\x01"}
    assert analyzer.daemon.threads() == threads


def test_a_request_that_is_none_is_not_answered(analyzer: Analyzer, pc: Pc) -> None:
    """One of another length, or with a peer ID that the settings cannot hold."""
    before = identity(analyzer)
    pc.connect()
    for size in (0, 24, 26, 2000):
        pc.send(Command.REGISTER, PASSWORD.encode().ljust(size, b"\0")[:size])
    for peer_id in b"\n\r":
        pc.send(Command.REGISTER, PASSWORD.encode().ljust(24, b"\0") + bytes([peer_id]))
    pc.get_info(Info.ACTIVITY)  # the next answer is this one's
    assert identity(analyzer) == before
    assert analyzer.daemon.log().count("[CConnect::ProcessRegisterDevice] Peer ID cannot be stored") == 2
    assert analyzer.daemon.log().count("[CConnect::ProcessRegisterDevice] Payload length differs") == 4


@pytest.mark.parametrize("beats", [True, False])
def test_unregistration_clears_the_identity(analyzer: Analyzer, pc: Pc, beats: bool) -> None:
    if beats:
        pc.start_heartbeat()
    pc.register(PASSWORD)
    analyzer.daemon.wait_for_log("Register device sequence complete")
    assert not beats or analyzer.zelapp.expect(PcConnection).connected
    answer = pc.unregister(tag=0x21)
    assert answer == Packet(Command.UNREGISTER_RESPONSE, 0x21, ord("1"))
    assert identity(analyzer) == ("0.0.0.0", "", "0", "0")
    assert not beats or not analyzer.zelapp.expect(PcConnection).connected
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    analyzer.zelapp.expect(ResultFailed)
    with pytest.raises(OSError):
        pc.receive(0.5)


def test_unregistration_by_somebody_else_is_ignored(analyzer: Analyzer, connected_pc: Pc, make_pc: Any,
                                                    other_pc: Pc) -> None:
    before = identity(analyzer)
    wrong_id = make_pc(udp_port=9200, peer_id="5")
    other_pc.peer_id = "1"  # the right one, but from another address
    for pc in (wrong_id, other_pc):
        pc.connect()
        pc.send(Command.UNREGISTER)
        pc.get_info(Info.ACTIVITY)  # no answer came before this one's
    assert identity(analyzer) == before
    # A second session of the registered PC is answered, but changes nothing.
    second = make_pc(udp_port=9201)
    second.connect()
    second.unregister()
    assert identity(analyzer) == before
    assert connected_pc.get_info(Info.REGISTRATION) == {Info.REGISTRATION: b"\x01"}
