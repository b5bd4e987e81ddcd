"""What a newcomer sees first: the one command, the demo, and that neither hides a failure."""

from __future__ import annotations

import io
import re
import subprocess
from pathlib import Path

from rich.console import Console

from bench.demo import service
from bench.sandbox import PROJECT


def run(steps: list[service.Step]) -> tuple[int, str]:
    output = io.StringIO()
    status = service.run(steps, Console(file=output, width=80))
    return status, output.getvalue()


def test_the_demo_shows_every_step() -> None:
    status, text = run(service.STEPS)
    assert status == 0, text
    assert max(map(len, text.splitlines())) <= 80
    for title, _ in service.STEPS:
        assert title in text
    for shown in ("P-4711", "QC-1", "38.250000-42.750000", "ResultID 5 has PCSync 1", "All of it happened."):
        assert shown in text


def zel(*arguments: str, path: Path | None = None) -> tuple[int, str]:
    """What the one command says; programs in `path` come before the machine's."""
    search = f"{path}:/usr/bin:/bin" if path else "/usr/sbin:/usr/bin:/bin"
    done = subprocess.run([PROJECT / "zel", *arguments], env={"PATH": search}, stdin=subprocess.DEVNULL, timeout=60,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert max(map(len, done.stdout.splitlines())) <= 80, done.stdout
    return done.returncode, done.stdout


def test_the_command_explains_itself() -> None:
    commands = re.findall(r"^  ([a-z]+) ", zel()[1], re.MULTILINE)
    assert {"demo", "run", "test", "build", "image"} <= set(commands)
    for command in commands[:-1]:
        assert f"./zel {command}" in zel(command, "--help")[1]
    for arguments, named in ((["dance"], "'dance'"), (["dance", "--help"], "'dance'"), (["demo", "--fast"], "'--fast'"),
                             (["test", "tssan"], "'tssan'"), (["run", "--fast"], "--fast"), (["soak", "x"], "'x'"),
                             (["fuzz", "1", "pc"], "'pc'"), (["image", "x"], "'x'"), (["help", "x"], "'x'")):
        status, text = zel(*arguments)
        assert status == 2 and named in text


def test_what_is_missing_is_named(tmp_path: Path) -> None:
    """On a machine without one of the packages, for a user without rights, and for root without a network."""
    def script(name: str, text: str) -> None:
        (tmp_path / name).write_text(f"#!/bin/sh\n{text}\n")
        (tmp_path / name).chmod(0o755)

    script("dpkg-query", "exit 1")
    script("sudo", "exit 1")
    script("id", "echo 1000")
    status, text = zel("demo", path=tmp_path)
    assert status == 1 and "sudo asks for a password" in text and "apt-get install g++" in text
    script("id", "echo 0")
    script("apt-get", "echo \"E: Failed to fetch http://example/x  Temporary failure resolving 'example'\"; exit 100")
    status, text = zel("demo", path=tmp_path)
    assert status == 1 and "package servers cannot be reached" in text and "apt-get install g++" in text
