"""Releases, sticks, following an update, and what it left behind: what the tests and the soak share."""

from __future__ import annotations

import re
import shutil
from datetime import UTC, datetime, timedelta
from typing import Any

from bench import pc as pc_program
from bench.analyzer import OLD_VERSION, Analyzer
from bench.daemon import wait_until
from bench.image import (APP, BOOT, DSP, HEADER_SIZE, KERNEL, QTE, ROOTFS, SYS, XML, archive, file_name,
                         make_release, parse, pattern)
from bench.pc import Pc
from bench.pcpacket import Command
from bench.zelapp import (Message, NothingToUpdate, UpdateComplete, UpdateFailed, UpdateProgress, UpdateRequested,
                          UpdateStarts)

OLD, NEW, NEWER = OLD_VERSION, "1.01.00.0002", "1.01.00.0010"
USB, BY_PC, INTERNET, FROM_PC, QC = 1, 2, 3, 4, 6  # methods

# The device library takes blocks of 131072 bytes: one short, one just full, one with a byte over, two full.
BLOCK = 131072
SIZES = {BOOT: 1, KERNEL: BLOCK, ROOTFS: BLOCK + 1, APP: 2 * BLOCK - 80, QTE: 4097, DSP: 5000}
XML_FILES = {"config/analytes.xml": b"<analytes/>", "table.bin": pattern(9000, XML << 28)}

DISPLAY_NAMES = ("Boot", "Kernel", "RootF/S", "Application", "QTE", "", "XML Archive", "System")
KEYS = ("BOOT", "KERNEL", "ROOTFS", "APP", "QTE", "DSP", "XML", "SYS")
OFFERS = {SYS: pc_program.SYS, APP: pc_program.APP, XML: pc_program.XML, DSP: pc_program.DSP}

SERVER_ERROR, PC_ERROR = (0x00204012, 0x0B), (0x00204013, 0x0C)
MOUNT_ERROR, USB_ERROR, PACKAGE_ERROR = (0x00204014, 0x0C), (0x00204015, 0x0C), (0x00204018, 0x0C)
WRITE_ERROR, SWITCH_ERROR = (0x00204016, 0x0C), (0x00204017, 0x0C)


def release(version: str = NEW, model: str = "human", versions: dict[int, str] | None = None,
            sizes: dict[int, int] | None = None, without: tuple[int, ...] = ()) -> dict[int, bytes]:
    """The update files of a release, as they lie on a stick."""
    payloads = {image: pattern(size, seed=image << 28) for image, size in (SIZES | (sizes or {})).items()}
    files = make_release(model, version, payloads | {XML: archive(XML_FILES)}, versions)
    return {image: data for image, data in files.items() if image not in without}


def replace(data: bytes, offset: int, piece: bytes) -> bytes:
    return data[:offset] + piece + data[offset + len(piece):]


def header_with(data: bytes, size: int) -> bytes:
    """An update file whose header says another size."""
    return replace(data, 4, size.to_bytes(4, "little", signed=True))


def sections_of(files: dict[int, bytes]) -> list[bytes]:
    """The sections of the SYS file with their headers."""
    found, start = [], HEADER_SIZE
    for section in parse(files[SYS]).sections():
        found.append(files[SYS][start:start + HEADER_SIZE + section.size])
        start += len(found[-1])
    return found


def contents(files: dict[int, bytes]) -> dict[int, bytes]:
    """The image data that a release's update files carry, the sections of SYS for SYS."""
    found = {image: parse(data).data for image, data in files.items() if image != SYS}
    return found | {section.image: section.data for section in parse(files[SYS]).sections()}


def insert_stick(analyzer: Analyzer, files: dict[int, bytes], model: str = "human", logo: bytes = b"") -> None:
    """Puts a stick with these update files in, in place of the one before."""
    # Filled before it is there: the daemon may be looking for it.
    stick = analyzer.device / "new_stick"
    stick.mkdir()
    for image, data in files.items():
        (stick / file_name(image, model)).write_bytes(data)
    if logo:
        (stick / "zel_logo.n62v.bin").write_bytes(logo)
    shutil.rmtree(analyzer.device / "usb", ignore_errors=True)
    stick.rename(analyzer.device / "usb")


def start(analyzer: Analyzer, method: int, mode: int = 0) -> None:
    """Starts an update, which the end of the one before must not prevent once ZELApp has heard of it."""
    started = analyzer.daemon.log().count("[CUpdate::Run] Update Start")
    analyzer.zelapp.start_update(method, mode)
    analyzer.daemon.wait_for_log("[CUpdate::Run] Update Start", 20, started + 1)


def begin_push(analyzer: Analyzer, pc: Pc, images: tuple[int, ...] = (SYS, APP, XML)) -> None:
    """The PC offers images, ZELApp agrees, and the analyzer asks the PC to go on."""
    pc.offer_update(OFFERS[image] for image in images)
    assert analyzer.zelapp.expect(UpdateRequested).payload == b"\4"
    analyzer.zelapp.answer_update_request(possible=True)
    start(analyzer, FROM_PC)
    accepted = pc.expect(Command.UPDATE_ACCEPTED)
    assert (accepted.payload, accepted.tag, accepted.sub_tag) == (b"\4", 1, ord(pc.peer_id))


def follow(analyzer: Analyzer, timeout: float = 20) -> list[Message]:
    """ZELApp's messages up to the end of an update; progress must rise with each report and never fall."""
    messages: list[Message] = []
    last: dict[int, int] = {}
    while True:
        message = analyzer.zelapp.receive(timeout)
        messages.append(message)
        if isinstance(message, UpdateProgress):
            before = {image: last.get(image, 0) for image in message.percent}
            assert all(100 >= percent >= before[image] for image, percent in message.percent.items()), messages
            assert message.percent != before, f"a report that tells nothing new: {messages}"
            assert list(message.percent) == sorted(message.percent), message
            last = message.percent
        elif isinstance(message, (NothingToUpdate, UpdateFailed, UpdateComplete)):
            return messages


def succeed(analyzer: Analyzer) -> tuple[list[Message], dict[int, int]]:
    """Follows an update to its success; the messages and the last progress."""
    messages = follow(analyzer)
    assert isinstance(messages[-1], UpdateComplete), messages[-1]
    return messages, [message.percent for message in messages if isinstance(message, UpdateProgress)][-1]


def fail(analyzer: Analyzer, error: tuple[int, int], what: str = "", timeout: float = 20) -> None:
    """Follows an update to its end, which must be this error."""
    end = follow(analyzer, timeout)[-1]
    assert isinstance(end, UpdateFailed) and (end.code, end.group) == error, f"{what}: {end}"


def announced(messages: list[Message]) -> list[tuple[int, str]]:
    """The images that ZELApp was told will be written; it must have been told once."""
    starts = [message for message in messages if isinstance(message, UpdateStarts)]
    assert len(starts) == 1, messages
    return starts[0].images


def statuses(analyzer: Analyzer) -> list[str]:
    return re.findall(r'Status changed to "(.*)"', analyzer.daemon.log())


def wait_idle(analyzer: Analyzer, status: str = "Disconnect") -> None:
    wait_until(lambda: statuses(analyzer)[-1] == status, 20, f'the status is back to "{status}"')


def history(analyzer: Analyzer) -> list[Any]:
    return analyzer.rows("SELECT ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, Method "
                         "FROM Tb_Update_History ORDER BY rowid")


def record(analyzer: Analyzer) -> tuple[dict[str, str], bool, list[Any]]:
    """What an update may change only when it has succeeded: versions, whether it is switched, history."""
    return analyzer.read_device("versions.cfg"), (analyzer.device / "next").exists(), history(analyzer)


def written(analyzer: Analyzer) -> dict[int, bytes]:
    """The images that the device library was given."""
    return {int(path.stem): path.read_bytes() for path in (analyzer.device / "images").glob("*.img")}


def device_calls(analyzer: Analyzer) -> list[str]:
    """The calls that do something, without the questions for identity and versions."""
    return [call for call in analyzer.calls() if not call.startswith("nv_get")]


def check_updated(analyzer: Analyzer, files: dict[int, bytes], method: str) -> None:
    """Everything that a complete update of an analyzer with old versions leaves behind."""
    data = contents(files)
    images = sorted(data.keys() | files.keys())
    assert written(analyzer) == {image: data[image] for image in images if image not in (DSP, XML, SYS)}
    assert analyzer.read_device("versions.cfg").items() >= {KEYS[image]: NEW for image in images}.items()
    active = analyzer.device / "active"
    assert (analyzer.device / "next").read_text() == ("0" if active.exists() and active.read_text() == "1" else "1")
    rows = history(analyzer)[-len(images):]
    assert [(row[0], row[3:]) for row in rows] \
        == [(DISPLAY_NAMES[image], ("0.00.00.0000" if image == DSP else OLD, NEW, method)) for image in images]
    for _, time, elapsed, *_ in rows:
        # The sandbox knows no time zone.
        told = datetime.strptime(time, "%Y-%m-%d %H:%M:%S").replace(tzinfo=UTC)
        assert abs(told - datetime.now(UTC)) < timedelta(minutes=1)
        assert re.fullmatch(r"0m [0-9]{1,2}s\.(0|[1-9][0-9]{0,2})", elapsed), elapsed


def open_files(analyzer: Analyzer) -> list[str]:
    """What the daemon's descriptors stand for."""
    listing = analyzer.sandbox.run("ls", "-l", f"/proc/{analyzer.daemon.process.pid}/fd")
    return sorted(line.split(" -> ", 1)[1] for line in listing.splitlines() if " -> " in line)


def check_nothing_open(analyzer: Analyzer) -> None:
    """No update file stays open, and the stick is not mounted any more."""
    def busy() -> bool:
        with analyzer.sandbox.open(f"/proc/{analyzer.daemon.process.pid}/mounts", "r") as file:
            return "/mnt/usb" in file.read() or any(re.match(r"/tmp/zel_|/data/zel_|/mnt|/data/device", name)
                                                    for name in open_files(analyzer))
    wait_until(lambda: not busy(), 20, "update files are closed and the stick is unmounted")
