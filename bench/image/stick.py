"""Fills a USB stick: finds out what it is, refuses what cannot be one, copies, and reads back what it copied.

Nothing is ever formatted. A stick that nobody has mounted is mounted for the time of filling.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager, suppress
from dataclasses import dataclass
from pathlib import Path

from bench.image.catalogue import Refused
from bench.image.release import keep_newer, put

SYS = Path("/sys")
DEV = Path("/dev")
MOUNTS = Path("/proc/self/mountinfo")


@dataclass(frozen=True)
class Allowed:
    """What is only done when it was asked for."""
    anywhere: bool  # a directory that is on no stick is filled
    clear: bool  # what else an analyzer would take from it is removed
    force: bool  # an older release takes the place of a newer one


def fill(target: Path, sources: dict[str, Path], others: set[str], allowed: Allowed) -> list[str]:
    """Copies files, under their names on the stick, to the directory of a mounted stick or to a block device.

    `others` are names that must not be there besides them. Returns the names that were removed.
    """
    if target.is_block_device():
        with mounted(partition_of(os.stat(target).st_rdev, target)) as directory:
            return copy(directory, sources, others, allowed)
    if not target.is_dir():
        raise Refused(f"{target}: is neither a directory nor a block device")
    if not allowed.anywhere:
        check_directory(target)
    return copy(target, sources, others, allowed)


def check_directory(target: Path) -> None:
    if not is_stick(os.stat(target).st_dev):
        raise Refused(f"{target}: is not on a removable device; mount the stick there, or say --anywhere")
    if not os.path.ismount(target):
        raise Refused(f"{target}: is a folder on a stick, but the analyzer only looks into the stick's own directory")


# Devices

def sys_path(device: int) -> Path | None:
    """Where the kernel describes a block device, None when it is none."""
    path = SYS / "dev/block" / f"{os.major(device)}:{os.minor(device)}"
    return path.resolve() if path.exists() else None


def disk_of(path: Path) -> Path:
    """The whole disk of a partition, and of a disk itself."""
    return path.parent if (path / "partition").exists() else path


def is_stick(device: int) -> bool:
    """Whether a device is removable, or at least on the USB; and not what this system runs from."""
    path, root = sys_path(device), sys_path(os.stat("/").st_dev)
    if path is None or root is not None and disk_of(path) == disk_of(root):
        return False
    disk = disk_of(path)
    return (disk / "removable").read_text().strip() == "1" or any(part.startswith("usb") for part in disk.parts)


def partition_of(device: int, name: Path) -> Path:
    """The partition of a stick that holds its files; a stick without partitions is one itself."""
    path = sys_path(device)
    if path is None or not is_stick(device):
        raise Refused(f"{name}: is not a removable device")
    partitions = [str(DEV / found.parent.name) for found in sorted(path.glob("*/partition"))]
    if len(partitions) > 1:
        raise Refused(f"{name}: has several partitions, name one of {', '.join(partitions)}")
    return Path(partitions[0]) if partitions else name


def mount_point(device: Path) -> Path | None:
    number = os.stat(device).st_rdev
    for line in MOUNTS.read_text().splitlines():
        fields = line.split()
        if fields[2] == f"{os.major(number)}:{os.minor(number)}" and fields[3] == "/":
            return Path(re.sub(r"\\(\d{3})", lambda octal: chr(int(octal[1], 8)), fields[4]))
    return None


@contextmanager
def mounted(device: Path) -> Iterator[Path]:
    """Where a partition is mounted; when it is nowhere, it is mounted meanwhile, which takes root."""
    already = mount_point(device)
    if already:
        yield already
        return
    directory = tempfile.mkdtemp(prefix="zel-stick-")
    try:
        run(device, "mount", "-o", "nosuid,nodev,noexec", str(device), directory)
        try:
            yield Path(directory)
        finally:
            run(device, "umount", directory)
    finally:
        with suppress(OSError):  # a stick that could not be unmounted is still there, and must stay whole
            os.rmdir(directory)


def run(device: Path, *command: str) -> None:
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        said = (done.stderr.strip() or f"status {done.returncode}").splitlines()[0]
        raise Refused(f"{device}: {command[0]} fails ({said}); mount the stick yourself and name its directory. It is "
                      "not formatted here")


# Files

def copy(directory: Path, sources: dict[str, Path], others: set[str], allowed: Allowed) -> list[str]:
    contents = {name: path.read_bytes() for name, path in sources.items()}
    stale = [path for path in (directory / name for name in sorted(others)) if path.exists()]
    if stale and not allowed.clear:
        raise Refused(f"{stale[0]}: is not of this release, but an analyzer would take it; --clear removes it")
    for name, source in sources.items():
        if not allowed.force:
            keep_newer(directory / name, source)
    old = [path for path in (directory / name for name in contents) if path.exists()]
    room = shutil.disk_usage(directory).free + sum(path.stat().st_size for path in old + stale)
    needed = sum(map(len, contents.values()))
    if needed > room:
        raise Refused(f"{directory}: the files take {needed} bytes, but there is room for {room}")
    for path in old + stale:
        path.unlink()
    for name, data in contents.items():
        put(directory / name, data)
    for name, data in contents.items():
        if read_from_medium(directory / name) != data:
            raise Refused(f"{directory / name}: reads back otherwise than it was written; do not use this stick")
    return [path.name for path in stale]


def read_from_medium(path: Path) -> bytes:
    """What really is on the stick, not what the system remembers of it."""
    with open(path, "rb") as file:
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
        return file.read()
