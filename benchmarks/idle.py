"""What the service takes while nothing happens, beside two update services that do nothing either.

A minute is cut into pieces, so that there is a spread; all three are watched at the same time.
"""

from __future__ import annotations

import contextlib
import json
import signal
import socket
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterator
from pathlib import Path

from bench.analyzer import Analyzer
from bench.daemon import wait_until
from benchmarks.measure import MissingPeer, run
from benchmarks.model import BELOW, BYTES, PER_SECOND, SHARE, Group, Row, at_most
from benchmarks.packages import program, provide

PROBE = Path(__file__).parent / "probe.py"
PIECES, PIECE, QUICK_PIECE = 4, 15, 2
SETTLED = 3  # seconds after which nobody starts up any more

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={folder}/bus</listen><auth>EXTERNAL</auth>
<policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
"""
RAUC = """[system]
compatible=benchmark
bootloader=noop
[keyring]
path={folder}/keyring.pem
[slot.rootfs.0]
device={folder}/slot0
type=raw
[slot.rootfs.1]
device={folder}/slot1
type=raw
"""

Use = dict[str, float]


class Peers:
    """The two other services, as far as they can be had."""

    def __init__(self, folder: Path):
        self._folder = folder
        self._started: list[subprocess.Popen[bytes]] = []
        self.pids: dict[str, int] = {}
        self.missing: dict[str, str] = {}
        for name, start in (("rauc's service", self._rauc), ("swupdate", self._swupdate)):
            try:
                provide()
                self.pids[name] = start().pid
            except (OSError, RuntimeError) as error:
                self.missing[name] = str(error)

    def _start(self, command: list[str], **environment: str) -> subprocess.Popen[bytes]:
        with open(self._folder / "output", "ab") as output:
            self._started.append(subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                                  env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", **environment}))
        return self._started[-1]

    def _rauc(self) -> subprocess.Popen[bytes]:
        """On a message bus of its own, which is not counted."""
        (self._folder / "bus.conf").write_text(BUS.format(folder=self._folder))
        (self._folder / "system.conf").write_text(RAUC.format(folder=self._folder))
        for name in ("keyring.pem", "slot0", "slot1"):
            (self._folder / name).touch()
        self._start([*program("dbus-daemon"), f"--config-file={self._folder}/bus.conf", "--nofork"])
        wait_until((self._folder / "bus").exists, 10, "the message bus is there")
        bus = {"DBUS_STARTER_BUS_TYPE": "session", "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self._folder}/bus"}
        return self._start([*program("rauc"), f"--conf={self._folder}/system.conf", "--override-boot-slot=rootfs.0",
                            "service"], **bus)

    def _swupdate(self) -> subprocess.Popen[bytes]:
        """With its web server, which is what it waits with. It insists on a certificate."""
        (self._folder / "www").mkdir()
        certificate, key = self._folder / "certificate.pem", self._folder / "key.pem"
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=benchmark", "-keyout", key,
            "-out", certificate)
        with socket.create_server(("127.0.0.1", 0)) as probe:
            port = probe.getsockname()[1]
        return self._start([*program("swupdate"), "-k", str(certificate), "-w", f"-r {self._folder}/www -p {port}"],
                           TMPDIR=str(self._folder))

    def check(self) -> None:
        for name, pid in list(self.pids.items()):
            process = next(each for each in self._started if each.pid == pid)
            if process.poll() is not None:
                del self.pids[name]
                text = (self._folder / "output").read_text(errors="replace").strip().splitlines()
                self.missing[name] = f"it ended with status {process.returncode}: {' '.join(text[-2:])}"

    def close(self) -> None:
        for process in reversed(self._started):
            process.send_signal(signal.SIGTERM)
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


class Idle:
    """What everybody took in each piece of the minute."""

    def __init__(self, analyzer: Analyzer, peers: Peers, piece: float):
        self._analyzer, self._peers = analyzer, peers
        self._turn: dict[tuple[str, str], int] = {}
        time.sleep(SETTLED)
        peers.check()
        self.missing = peers.missing
        self._pieces: list[dict[str, Use]] = []
        before = self._uses()
        for _ in range(PIECES):
            if sys.stdout.isatty():
                print(".", end="", flush=True)
            start = time.monotonic()
            time.sleep(piece)
            after, taken = self._uses(), time.monotonic() - start
            self._pieces.append({name: {"cpu": (use["cpu"] - before[name]["cpu"]) / taken,
                                        "switches": (use["switches"] - before[name]["switches"]) / taken,
                                        "resident": use["resident"], "private": use["private"]}
                                 for name, use in after.items()})
            before = after

    def _uses(self) -> dict[str, Use]:
        pid = self._analyzer.daemon.process.pid
        uses = {"ours": json.loads(self._analyzer.sandbox.run("/usr/bin/python3", "-I", str(PROBE), str(pid)))}
        for name, pid in self._peers.pids.items():
            uses[name] = json.loads(run("/usr/bin/python3", "-I", PROBE, str(pid)))
        return uses

    def next(self, name: str, what: str) -> float:
        """The value of the next piece, in the order of the minute."""
        if name in self.missing:
            raise MissingPeer(self.missing[name])
        turn = self._turn.get((name, what), 0)
        self._turn[name, what] = turn + 1
        return self._pieces[turn][name][what]


@contextlib.contextmanager
def open_idle(quick: bool) -> Iterator[Idle]:
    with tempfile.TemporaryDirectory() as folder, Analyzer() as analyzer:
        analyzer.start()
        peers = Peers(Path(folder))
        try:
            yield Idle(analyzer, peers, QUICK_PIECE if quick else PIECE)
        finally:
            peers.close()
        analyzer.daemon.stop()


def taken(name: str, what: str) -> Callable[[Idle], float]:
    return lambda idle: idle.next(name, what)


def peers(what: str) -> dict[str, Callable[[Idle], float]]:
    return {name: taken(name, what) for name in ("rauc's service", "swupdate")}


GROUP = Group("idle", open_idle, [
    Row("idle-cpu", "Idle for a minute: processor time", SHARE, taken("ours", "cpu"), peers("cpu"), turns=PIECES),
    Row("idle-wakeups", "Idle for a minute: wake-ups", PER_SECOND, taken("ours", "switches"), peers("switches"),
        at_most(2), turns=PIECES),
    Row("idle-resident", "Idle for a minute: resident memory", BYTES, taken("ours", "resident"), peers("resident"),
        BELOW, turns=PIECES),
    Row("idle-private", "Idle for a minute: memory of its own that was changed", BYTES, taken("ours", "private"),
        peers("private"), BELOW, turns=PIECES)], needs=("service", "packages"))
