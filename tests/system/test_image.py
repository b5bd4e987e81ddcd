"""The release engineer's tool: its page is true, an analyzer takes what it makes, and what is wrong is found."""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path

import pytest

from bench.analyzer import Analyzer
from bench.daemon import wait_until
from bench.image import BOOT, KERNEL, QTE, ROOTFS, archive, stick
from bench.image.__main__ import main
from bench.image.catalogue import Refused
from bench.sandbox import PROJECT, SERVER_ADDRESS
from bench.updates import INTERNET, USB, start, succeed, wait_idle, written

VERSION = "1.02.03.0004"


PAGE = (PROJECT / "docs/updates.md").read_text()


def examples() -> dict[str, list[str]]:
    """The commands on the page, with their prompts, and what each shows."""
    found: dict[str, list[str]] = {}
    for block in PAGE.split("\n\n"):
        if block.startswith(("    $ ", "    # ")):
            for line in block.splitlines():
                if line.startswith(("    $ ", "    # ")):
                    found[line[4:]] = output = []
                else:
                    output.append(line[4:])
    return found


def test_the_page(analyzer: Analyzer) -> None:
    """Catches a page that is not true any more, and files, documents or sticks that an analyzer does not take."""
    sandbox = analyzer.sandbox
    page = sandbox.root / "page"
    page.mkdir()
    (page / "zel").symlink_to(PROJECT / "zel")
    shown = examples()
    for command, output in shown.items():
        if command.startswith("$ "):
            done = subprocess.run(["sh", "-c", command[2:]], cwd=page, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            assert done.stdout.decode().splitlines() == output and done.returncode == 0, command
    assert f"Content-Length: {(page / 'www/bca_update_xml_vorn.xml').stat().st_size}`" in PAGE

    with open(page / "log", "wb") as log:
        sandbox.pc.spawn([f"{PROJECT}/zel", "image", "serve", f"{page}/www", "--bind", SERVER_ADDRESS, "--port",
                          str(sandbox.laboratory.server_port)], log, log)
    wait_until(lambda: b"serving" in (page / "log").read_bytes(), 20, "the server serves")
    start(analyzer, INTERNET)
    succeed(analyzer)
    requests = shown["# ./zel image serve www"]  # each is told once it is answered, perhaps after the next has come
    wait_until(lambda: len((page / "log").read_text().splitlines()) > len(requests), 20, "all requests are told")
    told = (page / "log").read_text().splitlines()[1:]
    assert sorted(line.split(" ", 2)[2] for line in told) == sorted(line.split(" ", 2)[2] for line in requests)
    wait_idle(analyzer)
    (page / "stick").rename(analyzer.device / "usb")
    start(analyzer, USB)
    succeed(analyzer)
    names = {BOOT: "boot", KERNEL: "kernel", ROOTFS: "rootfs", QTE: "qte"}
    assert written(analyzer).items() >= {image: f"the {name}".encode() for image, name in names.items()}.items()
    assert set(analyzer.read_device("versions.cfg").values()) == {VERSION}
    assert sandbox.path("/data/xml_bank/2nd/analytes.xml").read_text() == "<analytes/>"


@pytest.fixture
def release(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """A release made from the payloads beside it; both directories are where the tool is called."""
    monkeypatch.chdir(tmp_path)
    Path("payloads").mkdir()
    for name in ("boot", "kernel", "rootfs", "qte", "app", "dsp"):
        Path(f"payloads/{name}.img").write_bytes(name.encode() * 1000)
    Path("payloads/xml.zip").write_bytes(archive({"a.xml": b"<a/>" * 100}))
    assert run("make payloads --model veterinary", f"--version {VERSION} --set boot=1.00.00.0001 --output release") == 0
    return Path("release")


def run(*arguments: str) -> int:
    return main(" ".join(arguments).split())


WRONG = {("zel_app", 0, b"ABCD"): "zel_app.n62v.bin: unknown magic \"ABCD\"",
         ("zel_dsp", 4, b"\xff\xff\xff\xff"): "the header of the dsp image says -1 bytes",
         ("zel_dsp", 8, b"newest\0"): '"newest" is not a version',
         ("zel_sys", 40, b"ZV6K"): "holds kernel, kernel, rootfs, qte",
         ("zel_sys", 44, b"\xff\xff\xff\x7f"): "the header of the boot image says 2147483647 bytes",
         ("zel_xml", 8, b"1.02.03.0005"): "zel_app.n62v.bin: belongs with APP, SYS, XML",
         ("zel_xml", 78, b"xx"): "xml: ", ("zel_xml", 40, b"garbage" * 40): "not a good zip archive",
         ("zel_app", 24, b"another's tail.."): ""}


def test_what_is_wrong_is_found(release: Path, capsys: pytest.CaptureFixture[str]) -> None:
    """Catches a fault that an analyzer would meet first, and a foreign tail that passes for one."""
    for (name, begin, replaced), complaint in WRONG.items():
        path = release / f"{name}.n62v.bin"
        good = path.read_bytes()
        path.write_bytes((good[:begin] + replaced + good[begin + len(replaced):])[:len(good)])
        assert run("verify --json release") == bool(complaint), complaint
        told = json.loads(capsys.readouterr().out)
        assert complaint in " ".join(told["problems"]) and told["good"] == (not complaint)
        assert run("publish www release") == bool(complaint) and Path("www").exists() != bool(complaint)
        path.write_bytes(good)
    stale = Path("www/n62v_vorn/zel_dsp.n62v.bin")
    stale.touch()
    assert run("publish www release") == 0 and not stale.exists(), "no analyzer takes it from a server"
    assert run("make payloads --model veterinary --version 1.02.03.0005 --output newer") == 0
    assert run("publish www newer") == 0 and run("publish www release") == 2 and "--force" in capsys.readouterr().err
    assert run("publish www release --force") == 0 and run("diff www/n62v_vorn/zel_sys.n62v.bin release/zel_sys.n62v.bin") == 0
    (release / "zel_sys.n62v.bin").unlink()
    assert run("verify release") == 1 and "only taken together" in capsys.readouterr().err


def test_sticks(release: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]) -> None:
    """Catches a disk that is taken for a stick, what another release left on one, and one that does not keep files."""
    disks = {"sda": (0, "pci0", 0, []), "sdb": (16, "pci0/usb1", 0, ["sdb1"]), "sdc": (32, "pci0", 1, ["sdc1", "sdc2"])}
    numbers = Path("sys/dev/block").absolute()
    numbers.mkdir(parents=True)
    for name, (minor, bus, removable, partitions) in disks.items():
        disk = Path("sys", bus, name).absolute()
        for i, part in enumerate(["", *partitions]):
            (disk / part).mkdir(parents=True)
            (numbers / f"8:{minor + i}").symlink_to(disk / part)
        (disk / "removable").write_text(f"{removable}\n")
        for part in partitions:
            (disk / part / "partition").touch()
    monkeypatch.setattr(stick, "SYS", Path("sys"))
    assert [stick.is_stick(os.makedev(8, minor)) for minor in (0, 16, 17, 32, 33, 48)] == [False, *[True] * 4, False]
    assert stick.partition_of(os.makedev(8, 16), Path("/dev/sdb")) == Path("/dev/sdb1")
    for minor, reason in ((0, "not a removable device"), (32, "several partitions")):
        with pytest.raises(Refused, match=reason):
            stick.partition_of(os.makedev(8, minor), Path("/dev/sdx"))
    Path("stick").mkdir()
    Path("stick/zel_dsp.n62v.bin").write_bytes(b"of another release")
    Path("stick/zel_logo.n62v.bin").touch()
    assert run("stick stick release") == 2 and run("stick stick release --anywhere") == 2
    assert run("stick stick release --anywhere --clear") == 0 and not Path("stick/zel_logo.n62v.bin").exists()
    error = capsys.readouterr().err
    assert "not on a removable device" in error and "stick/zel_logo.n62v.bin: is not of this release" in error
    assert run("make payloads --model veterinary --version 1.02.03.0003 --output older") == 0
    assert run("stick stick older --anywhere") == 2 and "which is older" in " ".join(capsys.readouterr().err.split())
    monkeypatch.setattr(stick, "put", lambda path, data: path.write_bytes(data[:-1]))
    assert run("stick stick release --anywhere") == 2 and "reads back otherwise" in capsys.readouterr().err
