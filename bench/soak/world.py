"""The simulated analyzer of a run with its registered PC, and what the operations on it share."""

from __future__ import annotations

import random
import socket
import struct
import time
import traceback
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import TypeVar

from bench.analyzer import OLD_VERSION, PASSWORD, Analyzer
from bench.daemon import LOG, preset, wait_until
from bench.pc import Pc
from bench.pcpacket import Command, Info, Packet
from bench.sandbox import PROJECT, lab_address
from bench.soak.company import Company
from bench.soak.records import Life, Records, Wrong, check
from bench.soak.results import Result, Results, check_text
from bench.soak.watch import HEAP_COUNT, Watcher
from bench.zelapp import Message, PcConnection, ResultFailed, ResultSent

RIVAL = lab_address(21)
REPORTS = PROJECT / "build/soak"
LINES_BEFORE = 200  # of the log, before the operation that failed first
# Waits that the daemon ends itself, on a machine that may be busy and a daemon that a sanitizer may slow down.
PATIENCE = 20 if preset() in ("release", "debug") else 60
ZELAPP_SILENCE = 4
LONGEST_PAUSE = 3  # between two messages to ZELApp of something that goes on
REST = 3.5  # a session that is told to end may wait as long before it looks

# Counts the daemon's heap to the byte; see HeapCount.cpp. A sanitizer has an allocator of its own.
HEAP_COUNTER = PROJECT / "build" / preset() / "lib/libzelrm_heap_count.so"
COUNTED = {"LD_PRELOAD": str(HEAP_COUNTER), "ZEL_HEAP_COUNT": HEAP_COUNT} if HEAP_COUNTER.exists() else {}

M = TypeVar("M", bound=Message)


class LifeOver(Exception):
    """The daemon ended or does not answer any more, which it should not."""


class World:
    def __init__(self, analyzer: Analyzer, records: Records, seed: int):
        self.analyzer, self.records, self.seed = analyzer, records, seed
        self.chance = random.Random(seed)
        self.zelapp = analyzer.zelapp
        analyzer.sandbox.laboratory.add_pc_address(RIVAL)
        self.pc = Pc(analyzer.sandbox.socket)
        self.pc.start_heartbeat()
        self.rival = Pc(analyzer.sandbox.socket, address=RIVAL, name="Rival", peer_id="2")
        self.results = Results(analyzer, self.chance)
        self.company = Company(analyzer, records, seed, self.fail)
        self.watcher = Watcher(analyzer, records)
        self.log = self.watcher.log
        self.reported: PcConnection | None = None  # what ZELApp heard last
        self.served = 0.0  # when the daemon had served ZELApp's last request
        self.active = False  # whether a scan must tell that a PC is registered or the analyzer busy
        self.release = 0  # number of the last release of update files
        self.installed = OLD_VERSION
        self.largest_release = 0
        self.report: Path | None = None
        self._mark = 0  # in the log, where the operation began

    def close(self) -> None:
        self.company.stop()
        self.watcher.close()
        self.pc.close()
        self.rival.close()

    # The daemon

    def start(self) -> None:
        """Starts the daemon. Its log is kept by the follower; the files begin anew with each life."""
        for path in self.analyzer.sandbox.path(LOG).parent.iterdir():
            path.unlink()
        for name in ("stdout", "stderr"):
            (self.analyzer.sandbox.root / name).write_bytes(b"")
        self.zelapp.close()
        self.zelapp.history.clear()
        self.records.lives.append(Life(len(self.records.lives) + 1, time.monotonic()))
        with self.records.measure("start of the daemon"):
            self.analyzer.start(COUNTED)
        self.reported, self.active = None, False

    def ended(self, reason: str) -> None:
        life = self.records.life
        life.ended, life.end = time.monotonic(), reason
        self.log.poll()

    def check_sanitizer(self) -> None:
        report = self.analyzer.daemon.sanitizer_report()
        check(not report, f"a sanitizer reports: {report[:2000]}")

    def check_files(self) -> None:
        """No unknown file is left, and those that there are do not grow.

        The images of an update lie there twice: in the SYS file and by themselves.
        """
        problems = self.watcher.leftovers(2 * self.largest_release + (64 << 10))
        check(not problems, "; ".join(problems))

    # Failures

    def fail(self, text: str, trace: str) -> None:
        """Notes a failure; the first one with the daemon's state and last lines in a file."""
        if not self.records.fail(text):
            return
        REPORTS.mkdir(parents=True, exist_ok=True)
        daemon = self.analyzer.daemon
        self.report = REPORTS / f"seed-{self.seed}-{time.strftime('%Y%m%d-%H%M%S')}.log"
        self.report.write_text("\n".join([
            f"seed {self.seed}, life {len(self.records.lives)}: {text}", trace, self._state(),
            "--- its log since shortly before the operation", *self.log.since(self._mark, LINES_BEFORE),
            "--- standard output", daemon.stdout()[-8000:], "--- standard error", daemon.stderr()[-20000:]]) + "\n")

    def _state(self) -> str:
        """The daemon's state, as far as there is still somebody to ask."""
        try:
            status = self.analyzer.daemon.status
            return f"the daemon ended with status {status}" if status is not None \
                else f"the daemon's descriptors: {self.watcher.descriptors()}"
        except (OSError, RuntimeError, AssertionError) as error:
            return f"the daemon's state cannot be told: {error}"

    @contextmanager
    def operation(self, name: str) -> Iterator[None]:
        """One operation of the main sequence. A failure is noted, and the next operation finds the PC connected."""
        self._mark = self.log.mark()
        try:
            with self.records.measure(name, call=False):
                yield
                check(self.analyzer.daemon.status is None, "the daemon ended")
        except Exception as error:  # whatever it is, the operation did not do what it is there for
            self.fail(f"{name}: {type(error).__name__}: {error}", traceback.format_exc())
            self._recover()

    def fail_now(self, error: Exception) -> None:
        """Notes a failure that no operation stands for."""
        self.fail(f"{type(error).__name__}: {error}", "".join(traceback.format_exception(error)))

    def _recover(self) -> None:
        company = self.company.stop()
        try:
            self.rival.stop_heartbeat()
            self.rival.disconnect()
            self.pc.disconnect()
            self.pc.start_heartbeat()
            check(self.analyzer.daemon.status is None, "the daemon ended")
            self._forget_messages()
            self.results.take_marks()
            self.register()
        except Exception as error:
            self.give_up(error)
        if company:
            self.company.start()

    def _forget_messages(self) -> None:
        """What an operation that failed has begun may go on for a while without a PC."""
        deadline = time.monotonic() + 2 * PATIENCE
        while time.monotonic() < deadline:
            try:
                self.receive(LONGEST_PAUSE)
            except TimeoutError:
                return

    def give_up(self, error: Exception) -> None:
        """Ends a life that cannot go on."""
        self.company.stop()
        daemon = self.analyzer.daemon
        reason = f"ended by itself: {last_line(daemon.stdout())}"
        if daemon.status is None:
            daemon.kill()
            reason = "did not answer any more and was killed"
        daemon.running = False
        self.fail(f"the daemon {reason}", traceback.format_exc())
        self.ended(reason)
        raise LifeOver(reason) from error

    # ZELApp

    def receive(self, timeout: float = PATIENCE) -> Message:
        """ZELApp's next message, whatever it is."""
        message = self.zelapp.receive(timeout)
        if isinstance(message, PcConnection):
            self.reported = message
        return message

    def hear(self, kind: type[M], timeout: float = PATIENCE) -> M:
        """ZELApp's next message, which must be of this class."""
        try:
            message = self.receive(timeout)
        except TimeoutError:
            raise TimeoutError(f"ZELApp heard no {kind.__name__} within {timeout:g} s") from None
        check(isinstance(message, kind), f"ZELApp heard {message} instead of {kind.__name__}")
        return message

    def hear_connected(self, pc: Pc, connected: bool = True, timeout: float = PATIENCE) -> None:
        """ZELApp's next message must tell that this PC is connected or not."""
        status = self.hear(PcConnection, timeout)
        expected = (connected, pc.name, pc.address, pc.peer_id)
        heard = (status.connected, status.name, status.address, status.peer_id)
        check(heard == expected, f"ZELApp heard of the connection {heard} instead of {expected}")
        self.active = connected

    def hear_nothing(self) -> None:
        try:
            message = self.receive(0.01)
        except TimeoutError:
            return
        raise Wrong(f"ZELApp heard {message} while nothing happened")

    # The registered PC

    def connect(self) -> None:
        """The registered PC, which had no session, connects; it is current at once."""
        with self.records.measure("connect to connection status"):
            self.pc.connect()
            self.hear_connected(self.pc)

    def wake(self) -> None:
        """Ends the pauses of a second that the daemon makes on links over which nothing came for a while."""
        self.zelapp.send(0x0999)
        wait_until(lambda: self.zelapp.unread() == 0, PATIENCE, "the daemon reads what ZELApp sends")
        self.pc.get_info(Info.ACTIVITY)

    def wait_closed(self, pc: Pc) -> None:
        """The analyzer ends the PC's session."""
        while True:
            try:
                pc.receive(PATIENCE)
            except ConnectionError:
                pc.disconnect()
                return

    def lose(self) -> None:
        """The PC is gone; ZELApp must hear of it."""
        with self.records.measure("disconnect to connection status"):
            self.pc.disconnect()
            self.hear_connected(self.pc, connected=False)

    def register(self) -> None:
        """The PC registers, whoever did before it and whatever is under way, and becomes current."""
        deadline = time.monotonic() + PATIENCE
        while True:
            began = time.monotonic()
            try:
                self.pc.register(PASSWORD)
                break
            except ConnectionError:  # the session was ended with the one before
                self.pc.disconnect()
                check(time.monotonic() < deadline, "no session lasts for a registration")
        self.records.add("register", time.monotonic() - began)
        self.settle(self.pc)

    def settle(self, pc: Pc) -> None:
        """The registered PC connects again whenever its session is ended, until a result has reached it and ZELApp
        knows that it is connected.

        Who registers in another PC's place may lose a session or two before ZELApp and the analyzer are of one mind.
        """
        deadline = time.monotonic() + 2 * PATIENCE
        while time.monotonic() < deadline:
            if not pc.tcp:
                pc.connect()
            try:
                while True:
                    pc.receive(1.5)  # a registration takes its effect after a second
            except ConnectionError:
                pc.disconnect()
                continue
            except TimeoutError:
                pass
            if self._result_reaches(pc):
                self.active = True
                return
        raise Wrong(f"{pc.name} is not current within {2 * PATIENCE} s")

    def _result_reaches(self, pc: Pc) -> bool:
        self._hear_connections()
        result = self.results.pick()
        self.request(result)
        try:
            text = pc.receive_result(2)
        except (TimeoutError, ConnectionError):
            text = None
        while isinstance(outcome := self.receive(), PcConnection):
            pass
        self.wait_outcome_over()
        if text is None:
            check(isinstance(outcome, ResultFailed), f"ZELApp heard {outcome} of a result that nobody received")
            return False
        check_text(text, result)
        check(isinstance(outcome, ResultSent), f"ZELApp heard {outcome} of a result that was acknowledged")
        self.results.acknowledged(result)
        reported = self.reported
        return reported is not None and (reported.connected, reported.name) == (True, pc.name)

    def _hear_connections(self) -> None:
        while True:
            try:
                message = self.receive(0.05)
            except TimeoutError:
                return
            check(isinstance(message, PcConnection), f"ZELApp heard {message}")

    def forget_datagrams(self, pc: Pc) -> None:
        """Takes notices out of the way: what comes after a scan's answer came after it."""
        tag = self.chance.randrange(1, 256)
        pc.send_datagram(scan_request(pc, tag))
        while (packet := pc.datagrams.get(timeout=PATIENCE)).command != Command.SCAN_RESPONSE or packet.tag != tag:
            check(packet.command == Command.NOTICE, f"{packet} came over UDP")

    # Results

    def wait_outcome_over(self) -> None:
        """The status goes back just after ZELApp has heard a result's outcome; until then nobody can register."""
        def over() -> bool:
            self.log.poll()
            return self.log.status != "Transfer Result"
        wait_until(over, PATIENCE, "the status is back after a result")

    def request(self, result: Result) -> None:
        self.zelapp.send_result(result.kind, f"ResultID = {result.number}")

    def transfer(self) -> None:
        """A result to the PC and back to its mark."""
        result = self.results.pick()
        # The daemon pauses for a second after it waited five in vain for ZELApp, and after what it could not use.
        rested = time.monotonic() - self.served > ZELAPP_SILENCE
        with self.records.measure("result: request to packet" + ", after a pause" * rested):
            self.request(result)
            text = self.pc.receive_result(PATIENCE, acknowledge=False)
        check_text(text, result)
        self.results.check_marks("before the PC acknowledged")
        with self.records.measure("result: acknowledgement to 0x0513"):
            self.pc.send(Command.RESULT)
            self.hear(ResultSent)
        self.results.acknowledged(result)
        self.results.check_marks("after the PC acknowledged")
        self.active = True
        self.wait_outcome_over()
        self.served = time.monotonic()

    # Rest

    def rest(self) -> None:
        """Everybody leaves. The daemon must come to the state that it had in the beginning of its life."""
        self.company.stop()
        self.hear_nothing()
        self.lose()
        life = self.records.life
        if life.fresh is None:
            life.fresh = self.watcher.settled(REST, PATIENCE)
        else:
            base = life.fresh
            life.rest.append(self.watcher.settled(0.3 if life.rest else REST, PATIENCE, lambda now: (
                now.descriptors, now.threads) == (base.descriptors, base.threads)))
        self.check_files()
        self.check_sanitizer()
        self.zelapp.history.clear()
        self.connect()
        self.company.start()


def scan_request(pc: Pc, tag: int) -> bytes:
    return Packet(Command.SCAN, tag, 0, struct.pack(">H4s4x", pc.udp_port, socket.inet_aton(pc.address))).encode()


def last_line(text: str) -> str:
    lines = text.strip().splitlines()
    return lines[-1] if lines else "no output"
