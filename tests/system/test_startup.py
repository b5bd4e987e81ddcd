"""Start-up order and settings files."""

from __future__ import annotations

import socket

import pytest

from bench.analyzer import CONFIG, PASSWORD, Analyzer
from bench.daemon import wait_until
from bench.pc import ANALYZER_TCP_PORT, Pc, Refused
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
    wait_until(lambda: tcp_answers(analyzer), 5, "the TCP port is open")


def test_start_up_is_logged_in_order(analyzer: Analyzer) -> None:
    log = analyzer.daemon.log()
    expected = [
        "*             ZELRmUp START             *",
        f"[CConfigMgr::CheckConfigFile] Cannot find config file({OWN_FILE}), Make now",
        f"[CConfigMgr::CheckConfigFile] Check config file({OWN_FILE}) OK",
        "[CUDSServer::ServerOpen] UDS server open start",
        "[ZELRmUp::StartUDSServer][D] UDS server thread start",
        "[ZELRmUp::StartUDSServer][D] Send UDS to inform ZELRmUp start",
        '[CDeviceInfo::SetStatus] Status changed to "Disconnect"',
        "[CDeviceInfo::Initialize][D] Serial Number: N62A0001234",
        "[CDeviceInfo::Initialize][D] Project: N62",
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


@pytest.mark.parametrize("model", [None])
def test_without_a_model_type_the_device_is_human(analyzer: Analyzer, pc: Pc) -> None:
    assert "Model Type: Human" in analyzer.daemon.log()
    assert pc.scan().model == "N62"


def test_a_missing_settings_file_is_made_with_defaults(analyzer: Analyzer) -> None:
    lines = own_file(analyzer)
    assert lines[0] == "Comment=ZELRmUp Configuration File;"
    assert lines[1:] == [f"{key}={value};" for key, value in DEFAULTS.items()]


def test_settings_survive_a_restart_but_the_update_server_is_reset(new_analyzer: Analyzer) -> None:
    kept = ["Comment=ZELRmUp Configuration File;", "# a note of the service engineer", "PCSWName=LabLink;",
            "UpdateURL=elsewhere.example;", "Unknown=7;"]
    new_analyzer.sandbox.path(OWN_FILE).write_text("\n".join(kept) + "\n")
    new_analyzer.start()
    assert own_file(new_analyzer) == [line.replace("elsewhere", "update.zel") for line in kept]


@pytest.mark.parametrize("content", [b"Comment=Somebody's file;\nPCSWName=LabLink;\n", b"", bytes(range(256)) * 40,
                                     b"=;\n;;;\nComment\n" + b"A" * 100000])
def test_a_foreign_settings_file_is_replaced(new_analyzer: Analyzer, pc: Pc, content: bytes) -> None:
    new_analyzer.sandbox.path(OWN_FILE).write_bytes(content)
    new_analyzer.start()
    assert own_file(new_analyzer)[1:] == [f"{key}={value};" for key, value in DEFAULTS.items()]
    assert pc.scan().tcp_port == 9034


@pytest.mark.parametrize("filled", [False, True])
def test_a_settings_file_that_is_a_directory_ends_the_daemon(new_analyzer: Analyzer, filled: bool) -> None:
    directory = new_analyzer.sandbox.path(OWN_FILE)
    directory.mkdir()
    if filled:
        (directory / "file").touch()
    new_analyzer.daemon.start()
    assert new_analyzer.daemon.wait(5) == 1
    assert "ZELRmUp Shutdown\n" in new_analyzer.daemon.stdout()
    assert "[CConfigMgr::CheckConfigFile] Exception: " in new_analyzer.daemon.log()
    assert directory.exists() == filled
    assert (f"{OWN_FILE} remove fail: " in new_analyzer.daemon.log()) == filled


def test_settings_of_others_may_be_missing(new_analyzer: Analyzer, pc: Pc) -> None:
    """Without the database's settings nothing can be checked, so nobody registers; the daemon goes on."""
    for name in ("config_zel.cfg", "config_zelapp.cfg", "config_webbase.cfg"):
        new_analyzer.sandbox.path(f"{CONFIG}/{name}").unlink()
    new_analyzer.start()
    pc.connect()
    with pytest.raises(Refused):
        pc.register(PASSWORD)
    assert pc.scan().serial == "N62A0001234"
