"""The release engineer's tool: what it makes is laid out right, and what is wrong is found."""

from __future__ import annotations

import struct
from pathlib import Path

import pytest

from bench import updatefile
from bench.updateformat import archive

VERSION = "1.02.03.0004"


@pytest.fixture
def stick(tmp_path: Path) -> Path:
    payloads = tmp_path / "payloads"
    payloads.mkdir()
    for name in ("boot", "kernel", "rootfs", "qte", "app", "dsp"):
        (payloads / f"{name}.img").write_bytes(name.encode() * 1000)
    (payloads / "xml.zip").write_bytes(archive({"a.xml": b"<a/>"}))
    assert updatefile.main(["make", str(payloads), "--model", "veterinary", "--version", VERSION, "--set",
                            "boot=1.00.00.0001", "--output", str(tmp_path / "stick")]) == 0
    return tmp_path / "stick"


def test_the_layout_of_what_it_makes(stick: Path) -> None:
    app = (stick / "zel_app.n62v.bin").read_bytes()
    magic, size, version = struct.unpack("<4si16s", app[:24])
    assert (magic, version) == (b"ZV6A", VERSION.encode().ljust(16, b"\0"))
    assert size == len(app) - 40
    assert app[size - 40:size + 8] == VERSION.encode().ljust(16, b"\0") * 3
    sections = (stick / "zel_sys.n62v.bin").read_bytes()[40:]
    found = []
    while sections:
        magic, size, version = struct.unpack("<4si16s", sections[:24])
        found.append((magic, size, version.rstrip(b"\0")))
        sections = sections[40 + size:]
    assert found == [(b"ZV6B", 4000, b"1.00.00.0001"), (b"ZV6K", 6000, VERSION.encode()),
                     (b"ZV6R", 6000, VERSION.encode()), (b"ZV6Q", 3000, VERSION.encode())]


def test_it_inspects_and_verifies(stick: Path, capsys: pytest.CaptureFixture[str]) -> None:
    assert updatefile.main(["verify", str(stick)]) == 0
    assert updatefile.main(["inspect", str(stick)]) == 0
    assert "1.00.00.0001" in capsys.readouterr().out


@pytest.mark.parametrize("name,begin,replaced,complaint", [
    ("zel_app.n62v.bin", 500, b"x", "the data does not match its checksum"),
    ("zel_app.n62v.bin", 0, b"ABCD", "unknown magic b'ABCD'"),
    ("zel_dsp.n62v.bin", 4, b"\xff\xff\xff\xff", "the header of the dsp image says -1 bytes"),
    ("zel_dsp.n62v.bin", 8, b"newest\0", '"newest" is not a version'),
    ("zel_sys.n62v.bin", 40, b"ZV6K", "holds kernel, kernel, rootfs, qte"),
    ("zel_sys.n62v.bin", 44, b"\xff\xff\xff\x7f", "the header of the boot image says 2147483647 bytes"),
    ("zel_xml.n62v.bin", 8, b"1.02.03.0005", "app: belongs with APP, SYS, XML"),
    ("zel_dsp.n62v.bin", 0, b"ZN6D", "the files are of different models")])
def test_it_finds_what_is_wrong(stick: Path, capsys: pytest.CaptureFixture[str], name: str, begin: int,
                                replaced: bytes, complaint: str) -> None:
    data = bytearray((stick / name).read_bytes())
    data[begin:begin + len(replaced)] = replaced
    (stick / name).write_bytes(data)
    assert updatefile.main(["verify", str(stick)]) == 1
    assert complaint in capsys.readouterr().err


def test_it_refuses_half_a_release(stick: Path, capsys: pytest.CaptureFixture[str]) -> None:
    (stick / "zel_sys.n62v.bin").unlink()
    assert updatefile.main(["verify", str(stick)]) == 1
    payloads = stick.parent / "payloads"
    (payloads / "kernel.img").unlink()
    make = ["make", str(payloads), "--model", "human", "--version", VERSION, "--output", str(stick)]
    assert updatefile.main(make) == 1
    assert updatefile.main(["verify", "/nowhere"]) == 1
    error = capsys.readouterr().err
    assert "only taken together" in error and "missing: kernel" in error and "/nowhere: No such file" in error
