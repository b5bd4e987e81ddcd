"""Start-up order and settings files."""

from __future__ import annotations

import os
import socket

import pytest

from bench.analyzer import CONFIG, Analyzer
from bench.daemon import daemon_path, preset, wait_until
from bench.pc import ANALYZER_TCP_PORT, Pc
from bench.sandbox import ANALYZER_ADDRESS

OWN_FILE = f"{CONFIG}/config_zelrm.cfg"
DEFAULTS = {
    "ZELRMTCPPort": "9034", "ZELRMUDPPort": "9035", "PCIPAddress": "0.0.0.0", "PCTCPPort": "9034", "PCUDPPort": "9036",
    "PCSWName": "", "PCPeerID": "0", "IPChanged": "0", "BootPartitions": "11", "UpdateImages": "0",
    "UpdateURL": "update.zel.example",
}


def own_file(analyzer: Analyzer) -> list[str]:
    return analyzer.sandbox.path(OWN_FILE).read_text().splitlines()


def tcp_answers(analyzer: Analyzer) -> bool:
    with analyzer.sandbox.socket(socket.SOCK_STREAM) as probe:
        return probe.connect_ex((ANALYZER_ADDRESS, ANALYZER_TCP_PORT)) == 0


def test_pcs_are_served_only_after_zelapp_connected(new_analyzer: Analyzer) -> None:
    analyzer = new_analyzer
    analyzer.daemon.start()
    analyzer.daemon.wait_for_log("/tmp/.rm_proc Accept start")
    assert not tcp_answers(analyzer)
    assert "Serial Number" not in analyzer.daemon.log()
    analyzer.zelapp.connect()
    wait_until(lambda: tcp_answers(analyzer), 20, "the TCP port is open")


def test_start_up_is_logged_in_order(analyzer: Analyzer) -> None:
    log = analyzer.daemon.log()
    expected = [
        "*             ZELRmUp START             *",
        f"[CConfigMgr::CheckConfigFile] Cannot find config file({OWN_FILE}), Make now",
        "[ZELRmUp::StartUDSServer][D] UDS server thread start",
        "[ZELRmUp::StartUDSServer][D] Send UDS to inform ZELRmUp start",
        '[CDeviceInfo::SetStatus] Status changed to "Disconnect"',
        "[CDeviceInfo::Initialize][D] Serial Number: N62A0001234",
        "[CDeviceInfo::Initialize][D] Model Type: Human",
        "[CDeviceInfo::Initialize][D] SYS Version:    1.00.00.0001",
        "[ZELRmUp::StartUDPServer] UDP server thread start",
        "[ZELRmUp::StartTCPListener] TCP listener thread start",
        "[ZELRmUp::StartConnectionMonitor] Connection monitor thread start",
    ]
    places = [log.find(text) for text in expected]
    assert -1 not in places, f"not in the log: {[text for text, place in zip(expected, places) if place < 0]}"
    assert places == sorted(places)
    banner = [line.split("INFO ")[1] for line in log.splitlines()[:4]]
    assert [len(line) for line in banner] == [41] * 4
    assert analyzer.daemon.stdout().startswith("***** ZELRmUp START Build: ")


def test_a_missing_settings_file_is_made_with_defaults(analyzer: Analyzer) -> None:
    lines = own_file(analyzer)
    assert lines[0] == "Comment=ZELRmUp Configuration File;"
    assert lines[1:] == [f"{key}={value};" for key, value in DEFAULTS.items()]


@pytest.mark.arm
def test_files_dated_after_2038_are_read(new_analyzer: Analyzer, pc: Pc) -> None:
    """Catches times of 32 bits, with which the settings could not be opened and the registered PC would be lost."""
    assert preset() != "arm" or daemon_path().read_bytes()[18:20] == b"\x28\0", "this is no daemon for ARM"
    path = new_analyzer.sandbox.path(OWN_FILE)
    path.write_text("Comment=ZELRmUp Configuration File;\nPCSWName=LabLink;\n")
    os.utime(path, (2208985200, 2208985200))
    new_analyzer.start()
    assert pc.scan().pc_name == "LabLink"


@pytest.mark.parametrize("filled", [False, True])
def test_a_settings_file_that_is_a_directory_ends_the_daemon(new_analyzer: Analyzer, filled: bool) -> None:
    directory = new_analyzer.sandbox.path(OWN_FILE)
    directory.mkdir()
    if filled:
        (directory / "file").touch()
    new_analyzer.daemon.start()
    assert new_analyzer.daemon.wait(30) == 1
    assert "ZELRmUp Shutdown\n" in new_analyzer.daemon.stdout()
    assert "[CConfigMgr::CheckConfigFile] Exception: " in new_analyzer.daemon.log()
    assert directory.exists() == filled
    assert (f"{OWN_FILE} remove fail: " in new_analyzer.daemon.log()) == filled
