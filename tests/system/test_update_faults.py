"""An update on a device that fails, or whose power is cut."""

from __future__ import annotations

import shutil
from contextlib import closing

import pytest

from bench.analyzer import Analyzer
from bench.daemon import preset, wait_until
from bench.image import APP, BOOT, DSP, KERNEL, QTE, ROOTFS, SYS, XML
from bench.pc import Pc, Refused
from bench.pcpacket import Command
from bench.updates import (BLOCK, INTERNET, KEYS, NEW, OLD, PC_ERROR, SERVER_ERROR, SWITCH_ERROR, USB, USB_ERROR,
                           WRITE_ERROR, begin_push, check_nothing_open, check_updated, contents, device_calls, fail,
                           history, insert_stick, record, release, start, succeed, written)
from bench.updateserver import UpdateServer

FILES = release()
WHOLE = {image: contents(FILES)[image] for image in (BOOT, KERNEL, ROOTFS, APP, QTE)}
BLOCKS = [(BOOT, 0), (KERNEL, 0), (ROOTFS, 0), (ROOTFS, BLOCK), (APP, 0), (APP, BLOCK), (QTE, 0)]
CALLS = [*(f"upImgWrite {image} {offset} " for image, offset in BLOCKS), "getActiveIndex", "changeUpActiveIndex",
         *(f"nv_set_img_version {image} " for image in range(8))]
# The library reads its list of faults between logging a call and doing its work, and so many lines take their time.
SLOW = "upImgWrite.delay_ms=20\n" + "\n" * 200_000


def test_a_device_that_fails(analyzer: Analyzer) -> None:
    """Catches a failed write or switch that is passed over, and versions or history of images that are not in place."""
    insert_stick(analyzer, FILES)
    before = record(analyzer)
    places = [(BOOT, 0), (KERNEL, 0), (ROOTFS, 0), (ROOTFS, BLOCK), (APP, BLOCK), (QTE, 0)]
    for image, offset in places:
        seen = len(device_calls(analyzer))
        analyzer.set_faults(**{f"upImgWrite.{image}": f"fail@{offset}"})
        start(analyzer, USB)
        fail(analyzer, WRITE_ERROR, f"image {image} at {offset}")
        last = device_calls(analyzer)[seen:][-1]
        assert last.startswith(f"upImgWrite {image} {offset} "), f"{last} was called after the failure"
        check_nothing_open(analyzer)
    analyzer.set_faults(changeUpActiveIndex="fail")
    start(analyzer, USB)
    fail(analyzer, SWITCH_ERROR)
    check_nothing_open(analyzer)
    assert record(analyzer) == before

    # Switched by now: the history is written, and the versions up to the one that cannot be stored.
    for image in (XML, ROOTFS):
        rows = len(history(analyzer))
        analyzer.write_device("versions.cfg", before[0])
        analyzer.set_faults(**{f"nv_set_img_version.{image}": "fail"})
        start(analyzer, USB)
        succeed(analyzer)
        assert analyzer.read_device("versions.cfg") \
            == {name: NEW if index < image else OLD for index, name in enumerate(KEYS)}
        assert len(history(analyzer)) == rows + 8 and record(analyzer)[1]
        check_nothing_open(analyzer)
    analyzer.set_faults()
    analyzer.write_device("versions.cfg", before[0])
    start(analyzer, USB)
    succeed(analyzer)
    check_updated(analyzer, FILES, "USB")


# ThreadSanitizer keeps a file of half a MiB, already unlinked, in "/tmp" of its program.
SPACE = (1 << 20) + (512 << 10 if preset() == "tsan" else 0)


@pytest.mark.parametrize("tmp_size", [SPACE])
@pytest.mark.parametrize("source, size", [("USB", 1_200_000), ("From PC", 1_200_000), ("From PC", 600_000),
                                          ("INTERNET", 1_200_000)])
def test_a_disk_that_fills(analyzer: Analyzer, connected_pc: Pc, source: str, size: int) -> None:
    """Catches an image, or a section of a package that has come whole, that is cut short by a full disk and taken for
    whole, and space that is not given back."""
    without = (DSP,) if source == "INTERNET" else ()
    big, small = (release(sizes=sizes, without=without) for sizes in ({ROOTFS: size}, {APP: 3000}))
    before = record(analyzer)
    server = UpdateServer(analyzer.sandbox) if source == "INTERNET" else None

    def run(files: dict[int, bytes]) -> None:
        if source == "USB":
            insert_stick(analyzer, files)
            start(analyzer, USB)
        elif server:
            server.publish("human", files)
            start(analyzer, INTERNET)
        else:
            begin_push(analyzer, connected_pc, (SYS, APP, XML, DSP))
            for image in (APP, XML, DSP, SYS):
                connected_pc.push_image(files[image])

    if source == "From PC":
        with pytest.raises(Refused, match="0x0017"):
            run(big)
            connected_pc.expect(Command.IMAGE_RECEIVED)  # a section's refusal follows the answer to its package
        connected_pc.cancel_update()
    else:
        run(big)
    fail(analyzer, {"USB": USB_ERROR, "From PC": PC_ERROR, "INTERNET": SERVER_ERROR}[source])
    check_nothing_open(analyzer)
    assert record(analyzer) == before and not written(analyzer)
    run(small)
    succeed(analyzer)
    check_updated(analyzer, small, source)


# The power is cut

def begin(analyzer: Analyzer, faults: str = SLOW) -> None:
    """The device as before every update, and an update that has begun."""
    shutil.rmtree(analyzer.device / "images", ignore_errors=True)
    for name in ("next", "calls.log"):
        (analyzer.device / name).unlink(missing_ok=True)
    with closing(analyzer.database()) as database, database:
        database.execute("DELETE FROM Tb_Update_History")
    analyzer.write_device("versions.cfg", dict.fromkeys(KEYS, OLD))
    (analyzer.device / "faults.cfg").write_text(faults)
    insert_stick(analyzer, FILES)
    start(analyzer, USB)


def wait_call(analyzer: Analyzer, call: str) -> None:
    wait_until(lambda: any(line.startswith(call) for line in analyzer.calls()), 60, f"the call {call}")


def new_versions(analyzer: Analyzer) -> list[str]:
    return [name for name, version in analyzer.read_device("versions.cfg").items() if version == NEW]


def check_device(analyzer: Analyzer, stage: str) -> None:
    """What the device would start from now must be whole, and nothing may be recorded of what it would not."""
    recorded = new_versions(analyzer)
    if (analyzer.device / "next").exists():
        assert written(analyzer) == WHOLE, f"{stage}: switched to a partition that is not whole"
    else:
        assert not recorded and not history(analyzer), f"{stage}: recorded without a switch"
    assert recorded == list(KEYS[:len(recorded)]), f"{stage}: versions in a wrong order"
    assert not recorded or len(history(analyzer)) == 8, f"{stage}: versions before the history"
    assert not (analyzer.device / "active").exists(), f"{stage}: the running partition was changed"
    running = analyzer.sandbox.path("/data/xml_bank/1st")
    assert [path.name for path in running.iterdir()] == ["chip_cal"], f"{stage}: the running bank was touched"


def update_again(analyzer: Analyzer, stage: str) -> None:
    analyzer.zelapp.close()
    analyzer.set_faults()
    analyzer.start()
    start(analyzer, USB)
    succeed(analyzer)
    assert written(analyzer) == WHOLE and new_versions(analyzer) == list(KEYS), stage
    assert (analyzer.device / "next").read_text().strip() == "1", stage
    # A boot loader whose version was stored before the cut is not written again.
    assert [row[4] for row in history(analyzer)[-7:]] == [NEW] * 7, stage


def cut_and_update_again(analyzer: Analyzer, stage: str) -> None:
    analyzer.daemon.kill()
    check_device(analyzer, stage)
    update_again(analyzer, stage)


@pytest.mark.parametrize("calls", [CALLS[i::3] for i in range(3)])
def test_between_a_call_of_the_device_library_and_its_work(analyzer: Analyzer, calls: list[str]) -> None:
    """Catches a switch before every image is whole, versions before the switch or in another order, and remains of a
    cut update that spoil the next one."""
    for call in calls:
        begin(analyzer)
        wait_call(analyzer, call)
        cut_and_update_again(analyzer, call)


def test_between_switch_and_history(analyzer: Analyzer) -> None:
    """Catches versions that are stored before the history that belongs to them."""
    begin(analyzer, "upImgWrite.delay_ms=10\n")
    with closing(analyzer.database()) as database:
        # Keeps each row of the history waiting for a while.
        database.execute("BEGIN EXCLUSIVE")
        wait_until((analyzer.device / "next").exists, 15, "the partition is switched")
        analyzer.daemon.kill()
    assert not history(analyzer) and not new_versions(analyzer)
    check_device(analyzer, "after the switch")
    update_again(analyzer, "after the switch")
