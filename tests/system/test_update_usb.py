"""An update from the USB stick."""

from __future__ import annotations

import struct
import time
from zipfile import ZipInfo
from zlib import crc32

import pytest

from bench.analyzer import Analyzer
from bench.daemon import wait_until
from bench.image import (APP, DSP, KERNEL, QTE, ROOTFS, SYS, XML, archive, archive_problems, make, make_sys,
                         pattern)
from bench.updates import (BLOCK, MOUNT_ERROR, NEW, NEWER, OLD, PACKAGE_ERROR, USB, USB_ERROR, WRITE_ERROR, XML_FILES,
                           announced, check_nothing_open, check_updated, contents, device_calls, fail, header_with,
                           history, insert_stick, record, release, replace, sections_of, start, statuses, succeed,
                           wait_idle, written)
from bench.zelapp import NothingToUpdate, UpdateStarts


@pytest.mark.arm
@pytest.mark.parametrize("model, active, has_logo_tool", [("Human", 0, False), ("Veterinary", 1, True)])
def test_a_whole_release(new_analyzer: Analyzer, model: str, active: int, has_logo_tool: bool) -> None:
    """Catches wrong blocks or offsets, a wrong order of calls, the bank or the partition that runs being touched, a
    calibration directory lost, and a logo that is forgotten or ends the update."""
    analyzer = new_analyzer
    (analyzer.device / "active").write_text(str(active))
    banks = [analyzer.sandbox.path(f"/data/xml_bank/{bank}") for bank in ("1st", "2nd")]
    running, target = banks[active], banks[1 - active]
    for bank in banks:
        (bank / "chip_cal/factor").write_text("calibrated")
    (target / "chip_cal_bak").mkdir()
    for name in ("factor", "stale"):
        (target / "chip_cal_bak" / name).write_text("from long ago")
    if has_logo_tool:
        tool = analyzer.sandbox.path("/data/bin/upgrade_util")
        tool.parent.mkdir()
        tool.write_text('#!/bin/sh\nls -l /proc/$$/fd >/data/inherited\n[ "$1" = logo ] && cp "$2" /data/logo\n')
        tool.chmod(0o755)
    analyzer.start()

    files = release(model=model.lower())
    insert_stick(analyzer, files, model.lower(), logo=b"a picture")
    start(analyzer, USB)
    messages, progress = succeed(analyzer)
    assert announced(messages) == [(image, NEW) for image in (APP, DSP, XML, SYS)]
    assert isinstance(messages[0], UpdateStarts) and progress == {APP: 100, DSP: 100, XML: 100, SYS: 100}
    check_updated(analyzer, files, "USB")
    assert device_calls(analyzer) == [
        "checkUsbConnect", "usbMount 1 /mnt/usb/", "usbMount 0 /mnt/usb/", "upImgWrite 0 0 1", "upImgWrite 1 0 131072",
        "upImgWrite 2 0 131072", "upImgWrite 2 131072 1", "upImgWrite 3 0 131072", "upImgWrite 3 131072 131072",
        "upImgWrite 4 0 4097", "getActiveIndex", "changeUpActiveIndex",
        *(f"nv_set_img_version {image} {NEW} 0" for image in range(8))]

    assert {name: (target / name).read_bytes() for name in XML_FILES} == XML_FILES
    assert [(path.name, path.read_text()) for path in (target / "chip_cal_bak").iterdir()] == [("factor", "calibrated")]
    assert not (target / "chip_cal").exists()
    assert [path.name for path in running.iterdir()] == ["chip_cal"] and (running / "chip_cal/factor").exists()
    assert analyzer.sandbox.path("/tmp/zel_dsp.out").read_bytes() == contents(files)[DSP], "ZELApp takes it from there"
    if has_logo_tool:
        assert analyzer.sandbox.path("/data/logo").read_bytes() == b"a picture"
        inherited = analyzer.sandbox.path("/data/inherited").read_text()
        assert "socket:" not in inherited and "/data/log" not in inherited, inherited
    assert not analyzer.sandbox.path("/tmp/zel_logo.n62v.bin").exists()
    wait_idle(analyzer)
    assert statuses(analyzer)[-2:] == ["Updating", "Disconnect"]
    check_nothing_open(analyzer)


def test_the_calibration_that_ran_is_kept(analyzer: Analyzer) -> None:
    """Catches a backup that gives way to what an archive brought, or that stays when that has run."""
    bank = analyzer.sandbox.path("/data/xml_bank/2nd")
    (bank / "chip_cal/factor").write_text("ran")
    kept = {"first": "ran", "second": "ran", "third, the service was started again": "ran",
            "fourth, the device was, twice": "third, the service was started again"}
    for running, (brought, backup) in zip(([], [], [0], [1, 0]), kept.items()):
        for partition in running:
            analyzer.daemon.stop()
            analyzer.zelapp.close()
            (analyzer.device / "active").write_text(str(partition))
            analyzer.start()
        data = archive({"chip_cal/factor": brought.encode()})
        insert_stick(analyzer, release() | {XML: make(XML, "human", NEW, data)})
        start(analyzer, USB)
        succeed(analyzer)
        found = [(bank / name / "factor").read_text() for name in ("chip_cal_bak", "chip_cal")]
        assert found == [backup, brought]


def test_what_is_only_asked_for_or_not_newer_is_not_written(analyzer: Analyzer) -> None:
    """Catches a question (mode 1) that writes, a wrong comparison, and a release whose parts are not kept together."""
    before = record(analyzer)
    cases = [
        (1, release(), [(image, NEW) for image in (APP, DSP, XML, SYS)]),
        (1, release(NEW, versions={APP: OLD, SYS: OLD}, without=(DSP,)), [(APP, OLD), (XML, NEW), (SYS, OLD)]),
        (1, release(OLD, without=(DSP,)), None),
        (0, release("0.99.99.9999", without=(DSP,)), None),
    ]
    for mode, files, expected in cases:
        insert_stick(analyzer, files)
        start(analyzer, USB, mode)
        message = analyzer.zelapp.receive()
        assert isinstance(message, UpdateStarts) and message.images == expected if expected \
            else isinstance(message, NothingToUpdate)
        wait_idle(analyzer)
        check_nothing_open(analyzer)
    assert record(analyzer) == before and not written(analyzer)
    assert device_calls(analyzer) == ["checkUsbConnect", "usbMount 1 /mnt/usb/", "usbMount 0 /mnt/usb/"] * 4


def test_equal_versions_are_written_again_but_for_the_boot_loader(analyzer: Analyzer) -> None:
    """Catches a boot loader written without need, and progress that then does not reach its end."""
    files = release(OLD, without=(DSP,))
    insert_stick(analyzer, files)
    start(analyzer, USB)
    messages, progress = succeed(analyzer)
    assert announced(messages) == [(image, OLD) for image in (APP, XML, SYS)]
    assert progress == {APP: 100, XML: 100, SYS: 100}
    assert written(analyzer) == {image: contents(files)[image] for image in (KERNEL, ROOTFS, APP, QTE)}
    assert device_calls(analyzer)[-6:] \
        == [f"nv_set_img_version {image} {OLD} 0" for image in (KERNEL, ROOTFS, APP, QTE, XML, SYS)]
    assert [row[0] for row in history(analyzer)] == ["Kernel", "RootF/S", "Application", "QTE", "XML Archive", "System"]


def test_a_dsp_image_alone(analyzer: Analyzer) -> None:
    """Catches a partition that is switched for nothing, a version text from a stick that reaches SQL as it is, and one
    that fills its 16 bytes cut."""
    full = "100.101.102.1030"
    for version, recorded in ((NEW, NEW), ("0');DELETE FROM", "0.00.00.0000"), (full, full)):
        insert_stick(analyzer, {DSP: replace(release()[DSP], 8, version.encode().ljust(16, b"\0"))})
        start(analyzer, USB)
        messages, progress = succeed(analyzer)
        assert announced(messages) == [(DSP, recorded)] and progress == {DSP: 100}
        assert history(analyzer)[-1][3:] == ("0.00.00.0000", recorded, "USB") and history(analyzer)[-1][0] == ""
        assert analyzer.read_device("versions.cfg")["DSP"] == recorded
    assert len(history(analyzer)) == 3 and not written(analyzer) and not (analyzer.device / "next").exists()
    assert not {"getActiveIndex", "changeUpActiveIndex"} & set(device_calls(analyzer))


def test_bad_sticks(analyzer: Analyzer) -> None:
    """Catches any bad stick that is written from, crashes, is reported wrongly, stays mounted or stops the next one."""
    good = release()
    boot, kernel, rootfs, qte = sections_of(good)
    together, unfit = "Sys & App & XML images must be together", "USB file is differ from package version."

    def package(*sections: bytes) -> dict[int, bytes]:
        return good | {SYS: make_sys("human", NEW, list(sections))}

    def xml(data: bytes) -> dict[int, bytes]:
        return good | {XML: make(XML, "human", NEW, data)}

    def entry(name: str, mode: int, extra: bytes = b"") -> bytes:
        made = ZipInfo(name)
        made.create_system, made.external_attr, made.extra = 3, mode << 16, extra
        return archive({made: b"/data/config"})

    plain = archive({"a": b"a"})
    # A mode in an extra field, which counts where the entry has none.
    field = struct.pack("<HIHH12s", 0o120777, 12, 0, 0, b"/data/config")
    hidden = entry("l", 0o100000, struct.pack("<HHI", 0x756E, 4 + len(field), crc32(field)) + field)
    archives = {
        "a link": entry("l", 0o120777),
        "a hidden link": replace(hidden, hidden.rindex(b"PK\1\2") + 38, bytes(4)),
        "a path outside": entry("a/../../x", 0o100644),
        "something before the archive": b"x" + plain,
        "another list than unzip's": replace(plain, len(plain) - 42, b"PK\6\7"),
    }
    assert [what for what, data in archives.items() if not archive_problems(data)] == [] == archive_problems(plain)

    cases = [
        ("no files", {}, USB_ERROR, "Update file does not exist."),
        *((f"without {image}", release(without=(image,)), USB_ERROR, together) for image in (APP, XML, SYS)),
        ("XML of another release", good | {XML: release(NEWER)[XML]}, PACKAGE_ERROR, unfit),
        ("a header cut short", good | {SYS: good[SYS][:39]}, USB_ERROR, "Retry reading usb file(3 time(s))."),
        ("another model's APP", good | {APP: release(model="veterinary")[APP]}, USB_ERROR, "(ZV6A) compare failed"),
        ("a negative size", good | {XML: header_with(good[XML], -1)}, USB_ERROR, together),
        ("no package block", good | {APP: good[APP][:-100]}, USB_ERROR, "4 retry, but file read error occured"),
        ("half a package block", good | {APP: good[APP][:-60]}, USB_ERROR, together),
        ("an APP too small for its block", good | {APP: make(APP, "human", NEW, b"tiny")}, USB_ERROR, together),
        ("SYS in SYS", package(boot, kernel, make(SYS, "human", NEW, b""), qte), USB_ERROR, "Not correct file"),
        ("a fifth section", package(boot, kernel, rootfs, qte, kernel), WRITE_ERROR, "Write image error"),
        ("an empty section", package(boot, kernel, rootfs, make(QTE, "human", NEW, b"")), WRITE_ERROR, "Write image"),
        ("a section of negative size", package(boot, header_with(kernel, -5), rootfs, qte), USB_ERROR, "Copy update"),
        ("three sections", package(boot, kernel, rootfs), USB_ERROR, "[CUpdate::CopyContentsFromUSB] file read error"),
        ("a section beyond the end", package(boot, kernel, qte, header_with(rootfs, 1 << 30)), USB_ERROR,
         "4 retry, but file read error occured"),
        *((what, xml(data), WRITE_ERROR, "what is not to be unpacked") for what, data in archives.items()),
    ]
    before = record(analyzer)
    for what, files, error, line in cases:
        seen = analyzer.daemon.log().count(line)
        insert_stick(analyzer, files)
        start(analyzer, USB)
        fail(analyzer, error, what)
        assert analyzer.daemon.log().count(line) > seen, what
        check_nothing_open(analyzer)
    assert record(analyzer) == before and not written(analyzer)

    assert analyzer.sandbox.path("/data/xml_bank/2nd/chip_cal").exists(), "the calibration was moved"

    # Sections are told by their magic, an APP image of the time before package versions is taken, and unpacking may
    # fail.
    files = package(qte, rootfs, kernel, boot) | {APP: make(APP, "human", NEW, pattern(BLOCK - 1, APP << 28)),
                                                  XML: make(XML, "human", NEW, b"no archive")}
    insert_stick(analyzer, files)
    start(analyzer, USB)
    succeed(analyzer)
    check_updated(analyzer, files, "USB")


def test_the_stick_is_looked_for_three_times(analyzer: Analyzer) -> None:
    """Catches a search that gives up early or never, and a mount that fails being taken for one that did not."""
    began = time.monotonic()
    start(analyzer, USB)
    fail(analyzer, MOUNT_ERROR)
    assert time.monotonic() - began > 2.9
    assert device_calls(analyzer) == ["checkUsbConnect"] * 3 and "Cannot find USB connection" in analyzer.daemon.log()

    start(analyzer, USB)
    wait_until(lambda: len(device_calls(analyzer)) == 4, 20, "the stick was looked for")
    files = release()
    analyzer.set_faults(usbMount="fail")
    insert_stick(analyzer, files)
    fail(analyzer, MOUNT_ERROR)
    assert device_calls(analyzer)[4:] == ["checkUsbConnect", "usbMount 1 /mnt/usb/"]
    analyzer.set_faults()
    start(analyzer, USB)
    succeed(analyzer)
    check_updated(analyzer, files, "USB")


def test_one_update_at_a_time(analyzer: Analyzer) -> None:
    """Catches a second worker beside the first, and one that cannot be started after it."""
    files = release()
    insert_stick(analyzer, files)
    analyzer.set_faults(**{"upImgWrite.delay_ms": "60"})
    start(analyzer, USB)
    wait_until(lambda: any(call.startswith("upImgWrite") for call in analyzer.calls()), 20, "writing has begun")
    for method in (USB, 4, 6):
        analyzer.zelapp.start_update(method)
    analyzer.daemon.wait_for_log("Another update processing now", count=3)
    succeed(analyzer)
    check_updated(analyzer, files, "USB")
    assert len(history(analyzer)) == 8 and device_calls(analyzer).count("usbMount 1 /mnt/usb/") == 1
    start(analyzer, USB)
    succeed(analyzer)
