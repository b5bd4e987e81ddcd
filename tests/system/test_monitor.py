"""The connection monitor, heartbeats and the notices of an address change."""

from __future__ import annotations

import socket
import time
from typing import Any

from bench.analyzer import PASSWORD, Analyzer
from bench.daemon import wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS
from bench.zelapp import PcConnection


def test_a_closed_session_is_reported_and_a_new_one_becomes_current(analyzer: Analyzer, connected_pc: Pc) -> None:
    connected_pc.disconnect()
    assert not analyzer.zelapp.expect(PcConnection).connected
    # ZELApp hears of a change just before the status changes.
    wait_until(lambda: not connected_pc.scan().active, 20, "the status is 0")
    connected_pc.connect()
    status = analyzer.zelapp.expect(PcConnection)
    assert (status.connected, status.address) == (True, PC_ADDRESS)
    assert f"[{PC_ADDRESS}] TCP session reconnected" in analyzer.daemon.log()
    wait_until(lambda: connected_pc.scan().active, 20, "the status is 2")
    assert "connection success TCP(F), UDP(T)" in analyzer.daemon.log()


def test_a_pc_that_falls_silent_is_reported_and_its_session_ended(analyzer: Analyzer, connected_pc: Pc) -> None:
    connected_pc.stop_heartbeat()
    silent = time.monotonic()
    assert not analyzer.zelapp.expect(PcConnection, 60).connected
    assert 8.5 < time.monotonic() - silent < 60
    assert "[CUDPServer" not in analyzer.daemon.log().split("UDP disconnection confirmed")[1]
    assert connected_pc.tcp
    connected_pc.tcp.settimeout(10)
    assert connected_pc.tcp.recv(1) == b""
    connected_pc.start_heartbeat()
    connected_pc.connect()
    assert analyzer.zelapp.expect(PcConnection).connected


def test_only_the_registered_pcs_heartbeats_count(analyzer: Analyzer, pc: Pc, make_pc: Any) -> None:
    pc.register(PASSWORD)
    stranger = make_pc(udp_port=9999)
    stranger.send_heartbeat()
    analyzer.daemon.wait_for_log(f"Request from unregistered PC(IP:{PC_ADDRESS}, Port:9999)")
    pc.peer_id = "3"
    pc.send_heartbeat()
    analyzer.daemon.wait_for_log("Device PeerID defer from PC request PeerID")
    pc.peer_id = "1"
    pc.send_heartbeat(mask=0x2000, rest=b"N62A0009999".ljust(15, b"\0"))
    analyzer.daemon.wait_for_log("Device serial defer from PC request serial")
    pc.send_heartbeat(mask=0x2000, rest=b"N62A")  # too short to hold a serial number
    analyzer.daemon.wait_for_log("Process device info change notify failed", count=3)
    assert not pc.heartbeat_answered.is_set() and not stranger.heartbeat_answered.is_set()
    pc.send_heartbeat(mask=0x2000, rest=b"N62A0001234".ljust(15, b"\0"))
    assert pc.heartbeat_answered.wait(5)
    assert analyzer.zelapp.expect(PcConnection).connected
    for _ in range(120):
        pc.send_heartbeat()
    analyzer.daemon.wait_for_log(f"UDP Server is working well with IP: {PC_ADDRESS}, Port: 9036")


def test_the_pc_is_told_of_a_new_address_until_it_acknowledges(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.address_changed()
    assert analyzer.daemon.wait(30) == 1
    log = analyzer.daemon.log()
    assert f"PCIP: {PC_ADDRESS} is not USB IP(1.1.40.2)" in log and "ZELRmUp killself" in log
    assert analyzer.setting("IPChanged") == "1"

    connected_pc.acknowledge_notices = False
    analyzer.start()
    notice = connected_pc.receive_datagram(Command.NOTICE)
    assert notice == Packet(Command.NOTICE, 1, ord("1"), b"\x00\x08" + socket.inet_aton(ANALYZER_ADDRESS))
    first = time.monotonic()
    connected_pc.acknowledge_notices = True
    assert connected_pc.receive_datagram(Command.NOTICE, 30) == notice
    assert 4.5 < time.monotonic() - first < 30
    wait_until(lambda: analyzer.setting("IPChanged") == "0", 20, "the acknowledgement is stored")
    connected_pc.connect()
    assert analyzer.zelapp.expect(PcConnection).connected, "the monitor goes on after the acknowledgement"
    assert connected_pc.datagrams.empty()
