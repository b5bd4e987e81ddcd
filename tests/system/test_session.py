"""TCP sessions: framing, who is current, and how the acknowledgement of a result is waited for."""

from __future__ import annotations

import random
import struct
import time
from typing import Any

import pytest

from bench.analyzer import PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Info, Packet
from bench.zelapp import PATIENT, ResultFailed, ResultSent

MARKER = "/tmp/rm_send_result_success"
GET_ACTIVITY = Packet(Command.GET_INFO, 1, 0, b"\x00\x01").encode()


def send_patient(analyzer: Analyzer) -> None:
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")


def test_packets_may_come_in_pieces_or_together(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    for cut in range(1, len(GET_ACTIVITY)):
        pc.send_raw(GET_ACTIVITY[:cut])
        time.sleep(0.02)  # so that the daemon begins to read the first piece
        pc.send_raw(GET_ACTIVITY[cut:])
        assert pc.expect(Command.INFO).payload == b"\x00\x01\x04"
    pc.send_raw(GET_ACTIVITY * 50)
    for _ in range(50):
        assert pc.expect(Command.INFO).payload == b"\x00\x01\x04"


def test_a_length_below_the_header_reads_as_no_payload(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    for word in (0, 1, 2, 13, 14, 15):
        pc.send_raw(struct.pack(">HBBBH", Command.GET_INFO, 1, 0, 1, word))
        pc.send_raw(struct.pack(">HBBBH", 0, 1, 0, 1, word))
        assert pc.get_info(Info.ACTIVITY)
    assert analyzer.daemon.log().count("Receive TCP data complete <H:7><P:0> from ") >= 6


def test_unknown_commands_and_error_codes_are_ignored(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    pc.send(0x0000)  # reads as having no payload, whatever its length word says
    for command in (0x0A02, 0x0A06, 0x1234, 0xFFFF):
        pc.send(command, bytes(range(200)))
    for payload in (b"", b"\0", b"\0\x16", b"\0\x07rest"):
        pc.send(Command.ERROR, payload)
    pc.send(Command.RESULT, bytes(5000))
    assert pc.get_info(Info.ACTIVITY)
    assert "Update cancel accepted" not in analyzer.daemon.log()


def test_a_silent_session_lives_on(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    before = analyzer.daemon.log().count("PC Disconnected")
    with pytest.raises(TimeoutError):
        pc.receive(timeout=4.5)  # longer than one round of waiting, whose end looks at the socket
    pc.send_raw(GET_ACTIVITY)
    assert pc.expect(Command.INFO)
    assert analyzer.daemon.log().count("PC Disconnected") == before


def test_a_second_session_does_not_take_the_results(analyzer: Analyzer, connected_pc: Pc, make_pc: Any) -> None:
    second = make_pc(udp_port=9300)
    second.connect()
    assert second.get_info(Info.REGISTRATION) == {Info.REGISTRATION: b"\x01"}
    send_patient(analyzer)
    assert connected_pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    second.disconnect()
    send_patient(analyzer)
    assert connected_pc.receive_result(), "the first session is still the current one"


def test_the_acknowledgement_may_come_over_another_session(analyzer: Analyzer, connected_pc: Pc, make_pc: Any) -> None:
    second = make_pc(udp_port=9300)
    second.connect()
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    assert not analyzer.sandbox.path(MARKER).exists()
    second.send(Command.RESULT)
    analyzer.zelapp.expect(ResultSent)
    assert not analyzer.sandbox.path(MARKER).exists(), "the acknowledgement is consumed"


def test_a_late_acknowledgement_is_none(analyzer: Analyzer, connected_pc: Pc) -> None:
    connected_pc.send(Command.RESULT)  # before there is anything to acknowledge
    wait_until(analyzer.sandbox.path(MARKER).exists, 5, "the marker file is there")
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    sent = time.monotonic()
    analyzer.zelapp.expect(ResultFailed)
    assert 2.2 < time.monotonic() - sent < 4, "29 looks, 80 ms apart"
    assert "[CTCPSession::SendMessage] There is not ACK message from PC" in analyzer.daemon.log()
    connected_pc.send(Command.RESULT)  # too late: it must not serve the next one
    wait_until(analyzer.sandbox.path(MARKER).exists, 5, "the marker file is there")
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    analyzer.zelapp.expect(ResultFailed)
    assert not analyzer.synced("Result", PATIENT_ID)


def test_a_session_that_ends_during_a_result_fails_it(analyzer: Analyzer, connected_pc: Pc) -> None:
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    connected_pc.disconnect()
    analyzer.zelapp.expect(ResultFailed)
    connected_pc.connect()
    analyzer.daemon.wait_for_log("TCP session reconnected")
    send_patient(analyzer)
    assert "P-4711" in connected_pc.receive_result()


def test_hundreds_of_connections_leave_nothing_behind(analyzer: Analyzer, pc: Pc) -> None:
    descriptors, threads = analyzer.daemon.descriptors(), analyzer.daemon.threads()
    chance = random.Random(1)
    for _ in range(300):
        pc.connect()  # drops the connection before it
        pc.send_raw(GET_ACTIVITY[:chance.randrange(len(GET_ACTIVITY))])
    pc.disconnect()
    wait_until(lambda: analyzer.daemon.threads() <= threads and analyzer.daemon.descriptors() <= descriptors, 15,
               "the sessions' threads end and their sockets are closed")
    pc.connect()
    assert pc.get_info(Info.ACTIVITY)


def test_garbage_on_many_sessions_does_not_disturb_another(analyzer: Analyzer, connected_pc: Pc, make_pc: Any) -> None:
    chance = random.Random(2)
    hostile = make_pc(udp_port=9500)
    for _ in range(40):
        hostile.connect()
        try:
            hostile.send_raw(chance.randbytes(chance.randrange(1, 20000)))
        except OSError:  # the daemon gave the session up first
            pass
    hostile.disconnect()
    assert connected_pc.get_info(Info.ACTIVITY)
    send_patient(analyzer)
    assert connected_pc.receive_result()
    analyzer.zelapp.expect(ResultSent)


def test_a_header_that_promises_more_than_comes(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    pc.send_raw(struct.pack(">HBBBH", Command.REGISTER, 1, 0, 1, 0xFFFF) + bytes(100))
    pc.disconnect()
    analyzer.daemon.wait_for_log("[CTCPSession::ReceiveMessage] Receive body failed: 100/32760 bytes")
    pc.connect()
    assert pc.get_info(Info.ACTIVITY)
