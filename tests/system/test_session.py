"""TCP sessions: framing, who is current, and how the acknowledgement of a result is waited for."""

from __future__ import annotations

import time
from typing import Any

import pytest

from bench.analyzer import PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Info, Packet
from bench.zelapp import PATIENT, ResultFailed, ResultSent

MARKER = "/tmp/rm_send_result_success"
GET_ACTIVITY = Packet(Command.GET_INFO, 1, 0, b"\x00\x01").encode()


def send_patient(analyzer: Analyzer) -> None:
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")


def test_a_silent_session_lives_on(analyzer: Analyzer, pc: Pc) -> None:
    pc.connect()
    connections = analyzer.sandbox.run("ss", "-tnoH", "state", "established", "sport", "=", ":9034")
    assert "timer:(keepalive,59sec" in connections or "timer:(keepalive,1min" in connections, connections
    before = analyzer.daemon.log().count("PC Disconnected")
    with pytest.raises(TimeoutError):
        pc.receive(timeout=4.5)  # longer than one round of waiting, whose end looks at the socket
    pc.send_raw(GET_ACTIVITY)
    assert pc.expect(Command.INFO)
    assert analyzer.daemon.log().count("PC Disconnected") == before


def test_results_belong_to_the_current_session(analyzer: Analyzer, connected_pc: Pc, make_pc: Any,
                                               other_pc: Pc) -> None:
    """Neither a second session of the same PC nor a stranger takes them, or acknowledges them."""
    others = [make_pc(udp_port=9300), other_pc]
    for other in others:
        other.connect()
        assert other.get_info(Info.REGISTRATION)[Info.REGISTRATION][0] == (other is others[0])
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    for other in others:
        other.send(Command.RESULT)
        assert other.get_info(Info.ACTIVITY)  # the acknowledgement has been read
    assert not analyzer.sandbox.path(MARKER).exists()
    assert not analyzer.synced("Result", PATIENT_ID)
    connected_pc.send(Command.RESULT)
    analyzer.zelapp.expect(ResultSent)
    assert not analyzer.sandbox.path(MARKER).exists(), "the acknowledgement is consumed"
    others[0].disconnect()
    send_patient(analyzer)
    assert connected_pc.receive_result(), "the first session is still the current one"


def test_a_late_acknowledgement_is_none(analyzer: Analyzer, connected_pc: Pc) -> None:
    connected_pc.send(Command.RESULT)  # before there is anything to acknowledge
    wait_until(analyzer.sandbox.path(MARKER).exists, 20, "the marker file is there")
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    sent = time.monotonic()
    analyzer.zelapp.expect(ResultFailed)
    assert 2.2 < time.monotonic() - sent < 12, "29 looks, 80 ms apart"
    assert "[CTCPSession::SendMessage] There is not ACK message from PC" in analyzer.daemon.log()
    connected_pc.send(Command.RESULT)  # too late: it must not serve the next one
    wait_until(analyzer.sandbox.path(MARKER).exists, 20, "the marker file is there")
    send_patient(analyzer)
    connected_pc.receive_result(acknowledge=False)
    analyzer.zelapp.expect(ResultFailed)
    assert not analyzer.synced("Result", PATIENT_ID)


def test_a_pc_that_connects_again_at_once_is_current(analyzer: Analyzer, pc: Pc) -> None:
    """Wherever its connection before is: in the middle of the registration, just served, or quiet for a while. What was
    sent over it and not acknowledged has failed."""
    pc.start_heartbeat()
    pc.register(PASSWORD)
    for again, pause in enumerate((0, 0, 0.5, 2.2), 1):
        time.sleep(pause)
        pc.connect()  # closes the connection before it
        analyzer.daemon.wait_for_log("TCP session reconnected", 20, again)
        send_patient(analyzer)
        assert "P-4711" in pc.receive_result(acknowledge=again != 4)
        if again != 4:
            analyzer.zelapp.expect(ResultSent)
    pc.connect()
    analyzer.zelapp.expect(ResultFailed)
    wait_until(lambda: analyzer.daemon.log().count("PC Disconnected") == 5, 20, "the connections before have ended")
    assert pc.get_info(Info.ACTIVITY)
