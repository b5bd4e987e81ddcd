"""The layout of update files.

An update file is a 40-byte header and image data. The header, little-endian: magic (4), size of the data (4), version
text (16, zero-padded), tail (16); this tool puts the MD5 of the data into the tail, the analyzer does not look at it.
The data of a SYS file are four sections (boot loader, kernel, root file system, QTE), each with a header of its own.
The data of an APP file hold the versions of APP, SYS and XML that belong together, 3 x 16 bytes, beginning at the
absolute file offset (size field - 40), that is 80 bytes before the end of the file.
"""

from __future__ import annotations

import hashlib
import io
import stat
import struct
import zipfile
import zlib
from dataclasses import dataclass

from bench.image.catalogue import (APP, IMAGES, MODELS, SYS, SYS_SECTIONS, XML, UpdateFileError, check_version,
                                   is_version, magic)

HEADER_SIZE = 40
MAX_SIZE = 0x7FFFFFFF
PACKAGE_SIZE = 48
PACKAGE_FROM_END = 80
UNZIP_METHODS = (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED)
ENCRYPTED = 1  # flag of an archive's entry
KIND_FIELD = 0x756E  # an extra field by which an entry can be a link


@dataclass(frozen=True)
class UpdateFile:
    """One update file or one section of a SYS file."""
    image: int
    model: str
    version: str
    data: bytes
    tail: bytes

    @property
    def name(self) -> str:
        return IMAGES[self.image]

    @property
    def size(self) -> int:
        return len(self.data)

    @property
    def tail_is_md5(self) -> bool:
        return self.tail == md5(self.data)

    def package(self) -> tuple[str, str, str] | None:
        """The versions of APP, SYS and XML that an APP file names, None when it holds no block."""
        return read_package(self.data)

    def sections(self) -> list[UpdateFile]:
        """The sections of a SYS file."""
        found, rest = [], self.data
        while rest:
            section = parse(rest, whole=False)
            found.append(section)
            rest = rest[HEADER_SIZE + section.size:]
        return found


def md5(data: bytes) -> bytes:
    return hashlib.md5(data, usedforsecurity=False).digest()


def fixed_text(raw: bytes) -> str:
    return raw.split(b"\0", 1)[0].decode("latin-1")


def read_package(data: bytes) -> tuple[str, str, str] | None:
    """The package-version block in the data of an APP file."""
    start = len(data) - PACKAGE_FROM_END  # the offset is absolute: 40 bytes of header are before the data
    block = data[start:start + PACKAGE_SIZE] if start >= 0 else b""
    texts = [fixed_text(block[i:i + 16]) for i in range(0, len(block), 16)]
    return (texts[0], texts[1], texts[2]) if texts and all(map(is_version, texts)) else None


def package_block(app: str, sys: str, xml: str) -> bytes:
    """The block and what follows it up to the file's end."""
    texts = (check_version(text).encode().ljust(16, b"\0") for text in (app, sys, xml))
    return b"".join(texts).ljust(PACKAGE_FROM_END, b"\0")


def make(image: int, model: str, version: str, payload: bytes) -> bytes:
    """An update file of any image but SYS and, when it shall name its package, APP."""
    if len(payload) > MAX_SIZE:
        raise UpdateFileError(f"{IMAGES[image]}: {len(payload)} bytes are more than the header can tell")
    return struct.pack("<4si16s16s", magic(image, model).encode(), len(payload), check_version(version).encode(),
                       md5(payload)) + payload


def make_app(model: str, version: str, payload: bytes, sys_version: str, xml_version: str) -> bytes:
    """An APP file that names the versions it belongs together with; the block is appended to the payload."""
    return make(APP, model, version, payload + package_block(version, sys_version, xml_version))


def make_sys(model: str, version: str, sections: list[bytes]) -> bytes:
    """A SYS file from four update files."""
    return make(SYS, model, version, b"".join(sections))


def image_of(data: bytes) -> tuple[int, str] | None:
    """The image and the model that the magic at the front of an update file stands for."""
    kinds = {magic(image, model).encode(): (image, model) for model in MODELS for image in range(len(IMAGES))}
    return kinds.get(data[:4])


def header_version(header: bytes) -> str:
    """The version that the header at the front of an update file tells; empty when it is none."""
    version = fixed_text(header[8:24])
    return version if image_of(header) and is_version(version) else ""


def parse(data: bytes, whole: bool = True) -> UpdateFile:
    """Reads an update file, or with `whole` false a section at the front of the data."""
    if len(data) < HEADER_SIZE:
        raise UpdateFileError(f"{len(data)} bytes are too few for the {HEADER_SIZE}-byte header")
    kind = image_of(data)
    if kind is None:
        raise UpdateFileError(f"unknown magic \"{data[:4].decode('ascii', 'backslashreplace')}\"")
    size, version, tail = struct.unpack("<i16s16s", data[4:HEADER_SIZE])
    rest = len(data) - HEADER_SIZE
    if size < 0 or size > rest or whole and size != rest:
        raise UpdateFileError(f"the header of the {IMAGES[kind[0]]} image says {size} bytes, but {rest} follow")
    return UpdateFile(*kind, fixed_text(version), data[HEADER_SIZE:HEADER_SIZE + size], tail)


def problems(update: UpdateFile) -> list[str]:
    """Everything that is wrong within one update file. The header's tail can be anything."""
    found = []
    if not is_version(update.version):
        found.append(f'{update.name}: "{update.version}" is not a version')
    if not update.data:
        found.append(f"{update.name}: there is no data")
    elif update.image == XML:
        found += [f"xml: {problem}" for problem in archive_problems(update.data)]
    elif update.image == SYS:
        found += [f"sys: {problem}" for problem in section_problems(update)]
    return found


def section_problems(update: UpdateFile) -> list[str]:
    try:
        sections = update.sections()
    except UpdateFileError as error:
        return [str(error)]
    found = []
    if sorted(section.image for section in sections) != sorted(SYS_SECTIONS):
        found.append(f"holds {', '.join(section.name for section in sections)} instead of boot, kernel, rootfs and "
                     "qte, each once")
    for section in sections:
        if section.model != update.model:
            found.append(f"the {section.name} section is of the {section.model} model")
        found += problems(section)
    return found


def archive_problems(data: bytes) -> list[str]:
    """What keeps an analyzer from unpacking an archive whole, into its folder and without a question."""
    try:
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            members = archive.infolist()
            if any(member.flag_bits & ENCRYPTED for member in members):
                return ["the archive is encrypted"]
            if any(member.compress_type not in UNZIP_METHODS for member in members):
                return ["the archive is compressed by another method than deflate"]
            damaged = archive.testzip()
    except (zipfile.BadZipFile, zlib.error, EOFError, NotImplementedError) as error:
        return [f"the data is not a good zip archive ({error})"]
    if damaged is not None:
        return [f'"{damaged}" in the archive is damaged']
    if not is_plainly_listed(data, len(members)):
        return ["the archive has more than its files, their list and the record at its end"]
    return [f'"{member.filename}" is no file or directory inside the archive\'s folder' for member in members
            if not is_harmless(member)]


def is_plainly_listed(data: bytes, members: int) -> bool:
    """Whether there is one list of so many entries, just before the record that says where it is."""
    end = data.rfind(b"PK\5\6")
    disk, list_disk, count, total, size, begin = struct.unpack_from("<HHHHII", data, end + 4)
    return disk == list_disk == 0 and count == total == members and begin + size == end \
        and data[end - 20:end - 16] != b"PK\6\7"


def is_harmless(member: zipfile.ZipInfo) -> bool:
    """Whether an entry is a regular file or a directory that stays where it is unpacked."""
    kind = stat.S_IFMT(member.external_attr >> 16)
    extra, fields = member.extra, []
    while len(extra) >= 4:
        fields.append(int.from_bytes(extra[:2], "little"))
        extra = extra[4 + int.from_bytes(extra[2:4], "little"):]
    path = member.orig_filename.replace("\\", "/")
    return kind in (0, stat.S_IFREG, stat.S_IFDIR) and KIND_FIELD not in fields and not path.startswith("/") \
        and ".." not in path.split("/") and "\0" not in path
