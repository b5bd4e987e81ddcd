"""The programs' sizes, for both processors, and the service on 32-bit ARM in an emulator."""

from __future__ import annotations

import contextlib
import os
import re
import shutil
import statistics
import subprocess
import tempfile
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path

from bench.daemon import RUNNERS
from bench.pc import ANALYZER_UDP_PORT
from bench.sandbox import PROJECT
from benchmarks.measure import google_benchmark, run
from benchmarks.model import BELOW, BYTES, SECONDS, Group, Row
from benchmarks.packages import find, library_folders, machine, provide
from benchmarks.service import ECHO_PORT, Service, open_service, p50, transfers
from benchmarks.update import MIB, Updates

ARM = "armhf"
SYSROOT = PROJECT / "build/arm-sysroot"
QEMU = RUNNERS["arm"]
PUSH_SIZE = 16 * MIB

# Sizes


def needed(program: Path) -> list[str]:
    """The libraries that a program asks for by name."""
    return re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "-d", program))


def with_libraries(program: Path, folders: list[Path]) -> list[Path]:
    """A program and all that it is linked with, each once."""
    found: dict[str, Path] = {}
    waiting = [program]
    while waiting:
        for name in needed(waiting.pop()):
            if name not in found:
                places = [folder / name for folder in folders if (folder / name).exists()]
                if not places:
                    raise RuntimeError(f"{program} needs {name}, which is in none of {', '.join(map(str, folders))}")
                found[name] = places[0]
                waiting.append(places[0])
    return [program, *found.values()]


def stripped_size(path: Path) -> int:
    with tempfile.NamedTemporaryFile() as copy:
        shutil.copyfile(path.resolve(), copy.name)
        # The cross compiler's, which knows this processor; Debian's own libraries are stripped already.
        strip = "arm-linux-gnueabihf-strip" if b"ARM" in run("readelf", "-h", path).encode() else "strip"
        subprocess.run([strip, copy.name], check=True, capture_output=True)
        return Path(copy.name).stat().st_size


def size(program: Path, folders: list[Path]) -> float:
    return float(sum(map(stripped_size, with_libraries(program, folders))))


def daemon_size(preset: str) -> Callable[[None], float]:
    def measured(_: None) -> float:
        build = PROJECT / "build" / preset
        root = Path("/") if preset == "release" else SYSROOT
        return size(build / "bin/ZELRmUp", [build / "lib", *library_folders(root)])
    return measured


def peer_size(name: str, architecture: Callable[[], str]) -> Callable[[None], float]:
    def measured(_: None) -> float:
        folder = provide(architecture())
        return size(find(folder, name), library_folders(folder))
    return measured


def size_row(key: str, what: str, preset: str, architecture: Callable[[], str]) -> Row:
    return Row(key, f"Size of the daemon with what it links, stripped, {what}", BYTES, daemon_size(preset),
               {name: peer_size(name, architecture) for name in ("rauc", "swupdate")}, BELOW, turns=1)


SIZES = Group("sizes", lambda _quick: contextlib.nullcontext(),
              [size_row("size", "this machine's processor", "release", machine),
               size_row("size-arm", "32-bit ARM", "arm", lambda: ARM)], needs=("service", "arm", "packages"))

# 32-bit ARM


@dataclass
class Emulated:
    service: Service
    updates: Updates


@contextlib.contextmanager
def open_emulated(quick: bool) -> Iterator[Emulated]:
    before = os.environ.get("ZEL_PRESET", "release")
    os.environ["ZEL_PRESET"] = "arm"
    try:
        with open_service(quick, (30,)) as service:
            yield Emulated(service, Updates(service.analyzer, service.pc, PUSH_SIZE))
    finally:
        os.environ["ZEL_PRESET"] = before


def library(name: str) -> Callable[[Emulated], float]:
    command = [*QEMU, PROJECT / "build/arm/bin/zelrm_hl7_benchmark"]
    return lambda _emulated: statistics.median(google_benchmark(command, name, 5))


def of_service(measure: Callable[[Service], float]) -> Callable[[Emulated], float]:
    return lambda emulated: measure(emulated.service)


def socat(emulated: Emulated) -> float:
    folder = provide(ARM)
    libraries = ":".join(map(str, library_folders(folder)))
    program = [*QEMU, "-E", f"LD_LIBRARY_PATH={libraries}", str(find(folder, "socat"))]
    return emulated.updates.by_socat(program, PUSH_SIZE)


EMULATED = Group("arm", open_emulated, [
    Row("arm-encode", "32-bit ARM, emulated: encode a filled result of 30 analytes", SECONDS, library("Encode/30")),
    Row("arm-decode", "32-bit ARM, emulated: decode it, beside finding its delimiters", SECONDS, library("Decode/30"),
        {"a bare scan in C": library("FindDelimiters/30")}),
    Row("arm-transfer", "32-bit ARM, emulated: a result of 30 analytes from ZELApp's request to the report", SECONDS,
        of_service(transfers(30))),
    Row("arm-scan", "32-bit ARM, emulated: scan answered, half of them", SECONDS, of_service(p50(ANALYZER_UDP_PORT)),
        {"bare echo in C": of_service(p50(ECHO_PORT))}),
    Row("arm-push", "32-bit ARM, emulated: receiving a push of 16 MiB", SECONDS,
        lambda emulated: emulated.updates.push(PUSH_SIZE), {"socat": socat}, turns=5)],
    needs=("service", "arm", "packages"))
