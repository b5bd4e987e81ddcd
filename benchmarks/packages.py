"""Programs of others from Debian's packages, unpacked below build/bench and never installed."""

from __future__ import annotations

import functools
import subprocess
from pathlib import Path

from bench.sandbox import PROJECT
from benchmarks.measure import MissingPeer

FOLDER = PROJECT / "build/bench"
PACKAGES = ("rauc", "swupdate", "dbus-daemon", "socat")
FOLDERS = ("usr/bin", "usr/sbin", "bin", "sbin")


@functools.cache
def machine() -> str:
    """The machine's own architecture by Debian's name."""
    return subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True, check=True).stdout.strip()


@functools.cache
def provide(architecture: str | None = None) -> Path:
    """The folder with the packages for an architecture, the machine's own unless named."""
    architecture = architecture or machine()
    folder = FOLDER / architecture
    result = subprocess.run([PROJECT / "benchmarks/unpack-packages", architecture, folder, *PACKAGES],
                            capture_output=True, text=True)
    if result.returncode != 0:
        lines = result.stderr.strip().splitlines() or ["it said nothing"]
        raise MissingPeer(f"Debian's packages for {architecture} cannot be had: {lines[-1]}")
    return folder


def find(folder: Path, name: str) -> Path:
    for place in FOLDERS:
        if (folder / place / name).exists():
            return folder / place / name
    raise MissingPeer(f"{name} is not in Debian's packages")


def library_folders(folder: Path) -> list[Path]:
    return [path for place in ("lib", "usr/lib") for path in sorted((folder / place).glob("*-linux-gnu*"))]


def program(name: str) -> list[str]:
    """The command of a program for this machine, run with the libraries that it was unpacked with."""
    folder = provide()
    folders = library_folders(folder)
    loader = next(path for each in folders for path in each.glob("ld-linux*"))
    libraries = ":".join(map(str, folders))
    return [str(loader), "--library-path", libraries, str(find(folder, name))]


def main() -> None:
    """Before anything is measured, since it may take minutes."""
    for architecture in (machine(), "armhf"):
        if not (FOLDER / architecture / ".packages").exists():
            print(f"Unpacking rauc, swupdate and socat for {architecture} into build/bench; nothing is installed")
        try:
            provide(architecture)
        except MissingPeer as error:
            print(f"Going on without them: {error}")


if __name__ == "__main__":
    main()
