"""The local socket towards ZELApp."""

from __future__ import annotations

import signal
import time

from bench.analyzer import PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Info
from bench.zelapp import PATIENT, ResultSent, frame

SEND_RESULT = frame(0x0510, b"\0\1")


def send_result_and_see(analyzer: Analyzer, pc: Pc, data: bytes) -> None:
    """Asks for a result with these bytes, and sees the PC and ZELApp get theirs."""
    analyzer.zelapp.write_request(f"{PATIENT},ResultID = {PATIENT_ID}".encode())
    analyzer.zelapp.send_raw(data)
    assert "P-4711" in pc.receive_result(timeout=15)
    analyzer.zelapp.expect(ResultSent)


def test_a_message_may_arrive_in_pieces(analyzer: Analyzer, connected_pc: Pc) -> None:
    for cut in (3, 7, len(SEND_RESULT) - 1):  # in the header, the payload, the trailer
        analyzer.zelapp.send_raw(SEND_RESULT[:cut])
        time.sleep(0.3)  # so that the daemon reads a short piece first
        send_result_and_see(analyzer, connected_pc, SEND_RESULT[cut:])


def test_a_daemon_that_is_stopped_within_a_message_goes_on(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.send_raw(SEND_RESULT[:6])
    wait_until(lambda: analyzer.zelapp.unread() == 0, 20, "the header is read")
    analyzer.daemon.signal(signal.SIGSTOP)
    analyzer.daemon.signal(signal.SIGCONT)
    send_result_and_see(analyzer, connected_pc, SEND_RESULT[6:])


def test_a_wrong_crc_drops_the_message_only(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.write_request(f"{PATIENT},ResultID = {PATIENT_ID}".encode())
    for position in (-2, -3, 2, 6):  # the CRC's bytes, the id, the payload
        data = bytearray(SEND_RESULT)
        data[position] ^= 0x40
        analyzer.zelapp.send_raw(bytes(data))
    analyzer.daemon.wait_for_log("[CUDSServer::ReceiveMessage] CRC checksum error", 20, count=4)
    send_result_and_see(analyzer, connected_pc, SEND_RESULT)
    assert sum(isinstance(message, ResultSent) for message in analyzer.zelapp.history) == 1


def test_pcs_are_served_without_zelapp(analyzer: Analyzer, pc: Pc) -> None:
    analyzer.zelapp.close()
    pc.connect()
    analyzer.daemon.wait_for_log("[CUDSServer::ReceiveMessage] Receive failed: 0/6 bytes", 20, count=2)
    assert pc.scan().serial == "N62A0001234"
    pc.send(Command.GET_INFO, b"\x00\x01")
    pc.expect(Command.INFO)


def test_a_finished_transfer_status_falls_back_when_the_link_is_idle(analyzer: Analyzer, connected_pc: Pc) -> None:
    """A request that does not ask for status 2 leaves 3, in which nobody could register."""
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}", set_registered=False)
    connected_pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    connected_pc.get_info(Info.SERIAL)  # by then a status that changed at once is in the log
    registered = 'Status changed to "Registered"'
    before = analyzer.daemon.log().count(registered)
    analyzer.daemon.wait_for_log(registered, 20, count=before + 1)
