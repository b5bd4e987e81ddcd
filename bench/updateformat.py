"""The layout of update files.

An update file is a 40-byte header and image data. The header, little-endian: magic (4), size of the data (4), version
text (16, zero-padded), tail (16); this bench puts the MD5 of the data into the tail, the analyzer keeps it as it is.
The data of a SYS file are four sections (boot loader, kernel, root file system, QTE), each with a header of its own.
The data of an APP file hold the versions of APP, SYS and XML that belong together, 3 x 16 bytes, beginning at the
absolute file offset (size field - 40), that is 80 bytes before the end of the file.
"""

from __future__ import annotations

import array
import hashlib
import io
import re
import struct
import sys
import zipfile
from dataclasses import dataclass

HEADER_SIZE = 40
PACKAGE_SIZE = 48
PACKAGE_FROM_END = 80

IMAGES = ("boot", "kernel", "rootfs", "app", "qte", "dsp", "xml", "sys")
BOOT, KERNEL, ROOTFS, APP, QTE, DSP, XML, SYS = range(8)
SYS_SECTIONS = (BOOT, KERNEL, ROOTFS, QTE)
STICK_IMAGES = (APP, DSP, XML, SYS)

MODELS = {"human": ("ZN6", "n62"), "veterinary": ("ZV6", "n62v")}  # begin of the magic, part of the file names

VERSION = re.compile(r"\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,4}")


class UpdateFileError(ValueError):
    """What is wrong with an update file, in words for its maker."""


def magic(image: int, model: str) -> str:
    return MODELS[model][0] + "BKRAQDXS"[image]


def file_name(image: int, model: str) -> str:
    return f"zel_{IMAGES[image]}.{MODELS[model][1]}.bin"


def check_version(version: str) -> str:
    if not VERSION.fullmatch(version):
        raise UpdateFileError(f'"{version}" is not a version of four numbers, such as 1.02.03.0004')
    return version


def pattern(size: int, seed: int = 0) -> bytes:
    """Bytes that tell their position, so that a wrong offset or a repeated piece shows."""
    words = array.array("I", range(seed, seed + (size + 3) // 4))
    if sys.byteorder == "big":
        words.byteswap()
    return words.tobytes()[:size]


def archive(files: dict[str, bytes]) -> bytes:
    """A zip archive, as an XML image carries it."""
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w", zipfile.ZIP_DEFLATED) as zipped:
        for name, content in files.items():
            zipped.writestr(name, content)
    return buffer.getvalue()


@dataclass(frozen=True)
class UpdateFile:
    """One update file or one section of a SYS file."""
    image: int
    model: str
    version: str
    data: bytes
    tail: bytes
    size: int  # as the header says

    @property
    def name(self) -> str:
        return IMAGES[self.image]

    def package(self) -> tuple[str, str, str] | None:
        """The versions of APP, SYS and XML that an APP file names, None when it holds no block."""
        start = self.size - PACKAGE_FROM_END  # the offset is absolute: 40 bytes of header are before the data
        block = self.data[start:start + PACKAGE_SIZE] if start >= 0 else b""
        texts = [fixed_text(block[i:i + 16]) for i in range(0, len(block), 16)]
        if len(block) < PACKAGE_SIZE or not all(VERSION.fullmatch(text) for text in texts):
            return None
        return texts[0], texts[1], texts[2]

    def sections(self) -> list[UpdateFile]:
        """The sections of a SYS file."""
        found, rest = [], self.data
        while rest:
            section = parse(rest, whole=False)
            found.append(section)
            rest = rest[HEADER_SIZE + section.size:]
        return found


def fixed_text(raw: bytes) -> str:
    return raw.split(b"\0", 1)[0].decode("latin-1")


def header(image: int, model: str, version: str, data: bytes) -> bytes:
    return struct.pack("<4si16s16s", magic(image, model).encode(), len(data), check_version(version).encode(),
                       hashlib.md5(data, usedforsecurity=False).digest())


def make(image: int, model: str, version: str, payload: bytes) -> bytes:
    """An update file of any image but SYS and, when it shall name its package, APP."""
    return header(image, model, version, payload) + payload


def make_app(model: str, version: str, payload: bytes, sys_version: str, xml_version: str) -> bytes:
    """An APP file that names the versions it belongs together with; the block is appended to the payload."""
    block = b"".join(check_version(text).encode().ljust(16, b"\0") for text in (version, sys_version, xml_version))
    return make(APP, model, version, payload + block.ljust(PACKAGE_FROM_END, b"\0"))


def make_sys(model: str, version: str, sections: list[bytes]) -> bytes:
    """A SYS file from four update files."""
    return make(SYS, model, version, b"".join(sections))


def make_release(model: str, version: str, payloads: dict[int, bytes],
                 versions: dict[int, str] | None = None) -> dict[int, bytes]:
    """The update files of one release from its payloads; images may have versions that differ from the release's."""
    version_of = {image: version for image in range(8)} | (versions or {})
    files = {image: make(image, model, version_of[image], payloads[image]) for image in (DSP, XML) if image in payloads}
    if APP in payloads:
        files[APP] = make_app(model, version_of[APP], payloads[APP], version_of[SYS], version_of[XML])
    sections = [make(image, model, version_of[image], payloads[image]) for image in SYS_SECTIONS if image in payloads]
    if sections:
        if len(sections) < len(SYS_SECTIONS):
            missing = [IMAGES[image] for image in SYS_SECTIONS if image not in payloads]
            raise UpdateFileError(f"a SYS file holds boot, kernel, rootfs and qte; missing: {', '.join(missing)}")
        files[SYS] = make_sys(model, version_of[SYS], sections)
    if 0 < len({APP, XML, SYS} & files.keys()) < 3:
        raise UpdateFileError("APP, XML and SYS are only taken together; give all of them or none")
    return dict(sorted(files.items()))


def sample_payloads(size: int) -> dict[int, bytes]:
    """Payloads of about this size for every image; no two images hold the same bytes anywhere."""
    payloads = {image: pattern(size, seed=image << 28) for image in range(SYS)}
    payloads[XML] = archive({"config/analytes.xml": b"<analytes/>", "config/table.bin": pattern(size, XML << 28)})
    return payloads


def parse(data: bytes, whole: bool = True) -> UpdateFile:
    """Reads an update file, or with `whole` false a section at the front of the data."""
    if len(data) < HEADER_SIZE:
        raise UpdateFileError(f"{len(data)} bytes are too few for the {HEADER_SIZE}-byte header")
    raw_magic, size, version, tail = struct.unpack("<4si16s16s", data[:HEADER_SIZE])
    kinds = {magic(image, model).encode(): (image, model) for model in MODELS for image in range(8)}
    if raw_magic not in kinds:
        raise UpdateFileError(f"unknown magic {raw_magic!r}")
    image, model = kinds[raw_magic]
    rest = len(data) - HEADER_SIZE
    if size < 0 or size > rest or whole and size != rest:
        raise UpdateFileError(f"the header of the {IMAGES[image]} image says {size} bytes, but {rest} follow")
    return UpdateFile(image, model, fixed_text(version), data[HEADER_SIZE:HEADER_SIZE + size], tail, size)


def problems(update: UpdateFile) -> list[str]:
    """Everything that is wrong within one update file."""
    found = []
    if not VERSION.fullmatch(update.version):
        found.append(f'{update.name}: "{update.version}" is not a version')
    if update.tail != hashlib.md5(update.data, usedforsecurity=False).digest():
        found.append(f"{update.name}: the data does not match its checksum")
    if update.image == XML and not zipfile.is_zipfile(io.BytesIO(update.data)):
        found.append("xml: the data is not a zip archive")
    if update.image == SYS:
        try:
            sections = update.sections()
        except UpdateFileError as error:
            return [*found, f"sys: {error}"]
        if sorted(section.image for section in sections) != sorted(SYS_SECTIONS):
            found.append(f"sys: holds {', '.join(section.name for section in sections)} instead of boot, kernel, "
                         "rootfs and qte, each once")
        for section in sections:
            if section.model != update.model:
                found.append(f"sys: the {section.name} section is of the {section.model} model")
            found += [f"sys: {problem}" for problem in problems(section)]
    return found
