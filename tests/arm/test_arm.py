"""The daemon for 32-bit ARM in an emulator: what depends on the machine shows here, the rest in tests/system."""

from __future__ import annotations

import os
import struct
import time
from collections.abc import Iterator
from datetime import datetime
from pathlib import Path

import hl7
import pytest

from bench.analyzer import CONFIG, OLD_VERSION, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import daemon_path
from bench.image import (APP, BOOT, IMAGES, KERNEL, QTE, ROOTFS, SYS, XML, file_name, make_release,
                         sample_payloads)
from bench.pc import Pc
from bench.zelapp import (PATIENT, PcConnection, ResultSent, UpdateComplete, UpdateFailed, UpdateProgress,
                          UpdateStarts)

VERSION = "1.01.00.0002"
ELF_32_BIT, ELF_LITTLE_ENDIAN, ELF_ARM = 1, 1, 40


@pytest.fixture
def analyzer() -> Iterator[Analyzer]:
    with Analyzer() as analyzer:
        yield analyzer
        assert analyzer.daemon.stop() == 1
        # The emulator tells there what it cannot do.
        assert analyzer.daemon.stderr() == ""


@pytest.fixture
def pc(analyzer: Analyzer) -> Iterator[Pc]:
    with Pc(analyzer.sandbox.socket) as pc:
        yield pc


def register(analyzer: Analyzer, pc: Pc) -> None:
    pc.register(PASSWORD)
    pc.start_heartbeat()
    assert analyzer.zelapp.expect(PcConnection, 15).name == pc.name


def test_the_daemon_is_built_for_arm() -> None:
    """Without this, a wrong build would let the other tests pass on the machine's own processor."""
    head = daemon_path().read_bytes()[:20]
    assert (head[:4], head[4], head[5]) == (b"\x7fELF", ELF_32_BIT, ELF_LITTLE_ENDIAN)
    assert struct.unpack_from("<H", head, 18) == (ELF_ARM,)


def test_a_result_reaches_the_pc(analyzer: Analyzer, pc: Pc) -> None:
    analyzer.start()
    assert pc.scan().model == "N62"
    register(analyzer, pc)
    before = datetime.now().replace(microsecond=0)
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    message = hl7.parse(pc.receive_result())
    analyzer.zelapp.expect(ResultSent)
    assert analyzer.synced("Result", PATIENT_ID)
    # Numbers go through the machine's floating point, the date through its times.
    assert [float(str(obx(5))) for obx in message.segments("OBX")] == [31.5, 52.25, 0.75]
    assert before <= datetime.strptime(str(message.segment("MSH")(7)), "%Y%m%d%H%M%S") <= datetime.now()


def test_files_dated_after_2038_are_read(analyzer: Analyzer, pc: Pc) -> None:
    """With 32-bit times they could not be opened, and the registered PC would be lost with the settings."""
    analyzer.start()
    register(analyzer, pc)
    analyzer.daemon.kill()
    analyzer.zelapp.close()
    later = datetime(2040, 1, 1).timestamp()
    for path in analyzer.sandbox.path(CONFIG).iterdir():
        os.utime(path, (later, later))
    analyzer.start()
    pc.connect()
    connection = analyzer.zelapp.expect(PcConnection, 15)
    assert connection.connected and connection.name == pc.name


def test_an_update_from_a_stick(analyzer: Analyzer, tmp_path: Path) -> None:
    payloads = sample_payloads(300_001)  # no multiple of a block, and odd
    for image, data in make_release("human", VERSION, payloads).items():
        (tmp_path / file_name(image, "human")).write_bytes(data)
    analyzer.insert_stick(tmp_path)
    analyzer.start()
    analyzer.zelapp.start_update(method=1)
    starts = analyzer.zelapp.expect(UpdateStarts, 30)
    assert dict(starts.images) == {image: VERSION for image in dict(starts.images)}
    percents: list[int] = []
    deadline = time.monotonic() + 60
    while not isinstance(message := analyzer.zelapp.receive(deadline - time.monotonic()), UpdateComplete):
        assert not isinstance(message, UpdateFailed), message
        if isinstance(message, UpdateProgress):
            percents.append(message.percent[APP])
    assert percents == sorted(percents) and percents[-1] == 100
    for image in (BOOT, KERNEL, ROOTFS, QTE):
        assert (analyzer.device / f"images/{image}.img").read_bytes() == payloads[image], IMAGES[image]
    assert (analyzer.device / f"images/{APP}.img").read_bytes().startswith(payloads[APP])
    assert (analyzer.sandbox.path("/data/xml_bank/2nd/config/analytes.xml")).read_text() == "<analytes/>"
    versions = analyzer.read_device("versions.cfg")
    assert versions["SYS"] == versions["APP"] == versions["XML"] == VERSION
    assert (analyzer.device / "next").read_text().strip() == "1"
    rows = analyzer.rows("SELECT UpdateCompleteTime, OldVersion, NewVersion, Method FROM Tb_Update_History "
                         "WHERE ModuleName IN ('Boot', 'Kernel', 'RootF/S', 'QTE')")
    assert [row[1:] for row in rows] == [(OLD_VERSION, VERSION, "USB")] * 4
    assert all(abs(datetime.now() - datetime.fromisoformat(row[0])).total_seconds() < 60 for row in rows)
