"""What the machine refuses: space, descriptors, threads, files; and a clock that somebody sets."""

from __future__ import annotations

import re
import shutil
import socket
import sqlite3
import struct
import time
from collections.abc import Callable
from contextlib import ExitStack, suppress
from datetime import datetime, timedelta
from pathlib import Path

import pytest

from bench.analyzer import CONFIG, DATABASE, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import preset, wait_until
from bench.pc import ANALYZER_TCP_PORT, Pc
from bench.pcpacket import Info
from bench.sandbox import ANALYZER_ADDRESS
from bench.updates import USB, history, insert_stick, release, start, succeed
from bench.zelapp import PATIENT, PcConnection, ResultFailed, ResultSent

SANITIZED = preset() not in ("release", "debug")


def transfer(analyzer: Analyzer, pc: Pc) -> str:
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    text = pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    return text


def limit(analyzer: Analyzer, resource: str, value: int | str) -> None:
    """Sets the soft limit of the running daemon."""
    analyzer.sandbox.run("prlimit", "--pid", str(analyzer.daemon.process.pid), f"--{resource}={value}:")


def lowest_unused_descriptor(analyzer: Analyzer) -> int:
    """With this as the limit nothing can be opened. How many are open says less: a closed one leaves its number free."""
    used = {int(number) for number in analyzer.sandbox.run("ls", f"/proc/{analyzer.daemon.process.pid}/fd").split()}
    return min(set(range(len(used) + 1)) - used)


def synced(analyzer: Analyzer, copy: Path) -> bool:
    """Whether the sample result is marked, from a copy of a database that lies on a memory file system."""
    shutil.copy(analyzer.sandbox.path(DATABASE), copy)
    database = sqlite3.connect(copy)
    try:
        return database.execute(f"SELECT PCSync FROM Tb_Result_Summary WHERE ResultID = {PATIENT_ID}").fetchone() == (1,)
    finally:
        database.close()


def is_served(pc: Pc) -> bool:
    """A connection that was made while the daemon opens its port anew is reset."""
    with suppress(ConnectionError):
        pc.connect()
        return bool(pc.get_info(Info.SERIAL))
    return False


def is_registered(pc: Pc) -> bool:
    """A PC that asks while a result's transfer ends gets no answer."""
    with suppress(TimeoutError):
        return bool(pc.register(PASSWORD))
    return False


def fill(directory: Path) -> Path:
    """Takes all the space that is left."""
    filler = directory / "filler"
    with open(filler, "wb", buffering=0) as file, suppress(OSError):
        while True:
            file.write(bytes(512))
    return filler


@pytest.mark.parametrize("data_size", [1 << 20])
def test_a_full_data_partition(analyzer: Analyzer, connected_pc: Pc, make_pc: Callable[..., Pc],
                               tmp_path: Path) -> None:
    """Results still reach the PC; what cannot be stored is not stored by half, and nothing stored is lost."""
    filler = fill(analyzer.sandbox.path("/data"))
    stored = analyzer.sandbox.path(f"{CONFIG}/config_zelrm.cfg").read_text()
    transfer(analyzer, connected_pc)
    assert not synced(analyzer, tmp_path / "copy.db")
    connected_pc.stop_heartbeat()
    other = make_pc(udp_port=9100, name="Other", peer_id="2")
    other.start_heartbeat()
    wait_until(lambda: is_registered(other), 30, "the other PC is registered")
    wait_until(lambda: (status := analyzer.zelapp.expect(PcConnection)).connected and status.name == "Other", 40,
               "the new PC is connected")
    transfer(analyzer, other)
    assert analyzer.sandbox.path(f"{CONFIG}/config_zelrm.cfg").read_text() == stored
    # What cannot be stored does not survive a restart, which a full partition does not prevent.
    other.close()
    connected_pc.disconnect()
    connected_pc.start_heartbeat()
    analyzer.daemon.stop()
    analyzer.zelapp.close()
    analyzer.daemon.start()
    analyzer.zelapp.connect()
    assert not analyzer.zelapp.expect(PcConnection, 20).connected  # as at every start
    wait_until(lambda: is_served(connected_pc), 30, "the daemon serves")
    status = analyzer.zelapp.expect(PcConnection, 20)
    assert (status.connected, status.name) == (True, connected_pc.name)

    filler.unlink()
    transfer(analyzer, connected_pc)
    assert synced(analyzer, tmp_path / "copy.db")
    assert analyzer.sandbox.path(f"{CONFIG}/config_zelrm.cfg").read_text() == stored


@pytest.mark.parametrize("tmp_size", [1 << 20])
def test_results_need_no_space_in_tmp(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.write_request(f"{PATIENT},ResultID = {PATIENT_ID}".encode())
    fill(analyzer.sandbox.path("/tmp"))
    analyzer.zelapp.send(0x0510, b"\0\1")
    connected_pc.receive_result()
    analyzer.zelapp.expect(ResultSent)
    assert analyzer.synced("Result", PATIENT_ID)


def test_an_unreadable_settings_file(analyzer: Analyzer, connected_pc: Pc) -> None:
    """While it serves, the daemon does without; at the start it gives the file up, and the next start makes a new one."""
    path = analyzer.sandbox.path(f"{CONFIG}/config_zelrm.cfg")
    path.chmod(0)
    assert connected_pc.scan().serial == "N62A0001234"
    analyzer.daemon.stop()
    analyzer.zelapp.close()
    analyzer.daemon.start()
    assert analyzer.daemon.wait(30) == 1
    assert "ZELRmUp Shutdown\n" in analyzer.daemon.stdout()
    assert "[CConfigMgr::CheckConfigFile] Exception: " in analyzer.daemon.log()
    assert not path.exists()
    connected_pc.disconnect()
    analyzer.start()
    connected_pc.register(PASSWORD)
    assert analyzer.zelapp.expect(PcConnection).name == connected_pc.name


@pytest.mark.skipif(preset() == "asan", reason="UndefinedBehaviorSanitizer needs descriptors of its own")
def test_descriptors_run_out(analyzer: Analyzer, connected_pc: Pc, make_pc: Callable[..., Pc]) -> None:
    """A PC more is turned away and a result fails; the connected PC stays, and afterwards everything goes on."""
    limit(analyzer, "nofile", lowest_unused_descriptor(analyzer))
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    analyzer.zelapp.expect(ResultFailed)
    with pytest.raises(TimeoutError):
        connected_pc.receive(0.2)
    other = make_pc(udp_port=9100)
    for _ in range(20):
        with pytest.raises((ConnectionError, TimeoutError)):
            other.connect()
            other.receive(5)
    # The listener pauses, and its port is closed meanwhile.
    assert 1 <= analyzer.daemon.log().count("[CTCPListener::Run] Accept error: Too many open files(24)") < 10
    assert connected_pc.scan()
    limit(analyzer, "nofile", 1024)
    wait_until(lambda: is_served(other), 30, "the daemon listens again")
    transfer(analyzer, connected_pc)
    assert analyzer.synced("Result", PATIENT_ID)


def test_sessions_come_to_an_end(analyzer: Analyzer, connected_pc: Pc, other_pc: Pc) -> None:
    """There are 200 of them; the registered PC, and who is there already, is served all the same."""
    with ExitStack() as crowd:
        for _ in range(220):
            stranger = crowd.enter_context(analyzer.sandbox.socket(socket.SOCK_STREAM))
            stranger.bind((other_pc.address, 0))
            stranger.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
        other_pc.connect()
        with pytest.raises(ConnectionError):
            other_pc.receive()
        assert analyzer.daemon.log().count("[CTCPListener::Run] New session refused, 200 are open") == 22
        connected_pc.connect()
        analyzer.daemon.wait_for_log("TCP session reconnected")
        transfer(analyzer, connected_pc)
    wait_until(lambda: analyzer.daemon.threads() < 50, 20, "the crowd is gone")
    other_pc.connect()
    assert other_pc.get_info(Info.SERIAL)


@pytest.mark.skipif(SANITIZED, reason="a sanitizer and the library that sets the clock do not go together")
def test_the_clock_is_set(new_analyzer: Analyzer, pc: Pc) -> None:
    """Nothing that waits, and nothing that takes time, goes by the clock that people set; what is written down does, and
    by the time zone that they set."""
    analyzer = new_analyzer
    clock = analyzer.sandbox.path("/tmp/clock")

    def set_clock(offset: str) -> None:
        new = clock.with_suffix(".new")
        new.write_text(offset)
        new.rename(clock)

    set_clock("+0")
    library = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
    analyzer.start({"LD_PRELOAD": str(library), "FAKETIME_TIMESTAMP_FILE": "/tmp/clock", "FAKETIME_NO_CACHE": "1",
                    "FAKETIME_DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1"})
    pc.register(PASSWORD)
    pc.start_heartbeat()
    assert analyzer.zelapp.expect(PcConnection).connected
    seen = len(analyzer.zelapp.history)
    insert_stick(analyzer, files := release())
    analyzer.set_faults(**{"upImgWrite.delay_ms": "100"})
    for offset in ("+400d", "-400d"):
        set_clock(offset)
        text = transfer(analyzer, pc)
        year = time.gmtime(time.time() + int(offset[:-1]) * 86400).tm_year
        assert text.split("|")[6].startswith(str(year)), "the daemon did not see the new time"
    set_clock("+0")
    # A zone nine hours ahead, in the format of the zone database.
    zone = struct.pack(">4s16x6lIBB4s", b"TZif", 0, 0, 0, 0, 1, 4, 9 * 3600, 0, 0, b"HER\0")
    (analyzer.sandbox.root / "etc/localtime").write_bytes(zone)
    sent = datetime.strptime(transfer(analyzer, pc).split("|")[6], "%Y%m%d%H%M%S")
    assert abs(sent - datetime.utcnow() - timedelta(hours=9)) < timedelta(minutes=1)
    start(analyzer, USB)
    wait_until(lambda: "upImgWrite 2" in "".join(analyzer.calls()), 20, "images are written")
    set_clock("-3d")
    succeed(analyzer)
    ended = datetime.fromisoformat(history(analyzer)[0][1])
    assert abs(ended - datetime.utcnow() - timedelta(hours=9, days=-3)) < timedelta(minutes=1)
    assert all(re.fullmatch(r"0m [0-9]s\.[0-9]{1,3}", row[2]) for row in history(analyzer)), history(analyzer)
    # Longer than a PC may be silent.
    time.sleep(11)
    assert not [message for message in analyzer.zelapp.history[seen:] if isinstance(message, PcConnection)]
    transfer(analyzer, pc)
