"""Every way the daemon ends, also while all of its threads work, and that the one started after it serves the same PC."""

from __future__ import annotations

import random
import signal
import socket
import threading
import time
import timeit
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress

import pytest

from bench.analyzer import PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import Daemon, preset, wait_until
from bench.pc import ANALYZER_TCP_PORT, Pc, Refused
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS, lab_address
from bench.updates import USB, insert_stick, release
from bench.zelapp import PATIENT, SOCKET_PATH, PcConnection, ResultSent, frame

CAUGHT = [signal.SIGHUP, signal.SIGQUIT, signal.SIGABRT, signal.SIGPIPE, signal.SIGTERM]
# A sanitizer looks for leaks on the way out, and takes its time for the start as well.
SANITIZED = preset() not in ("release", "debug")
EXIT_TIME = 15 if SANITIZED else 1  # seconds
ENDS = 3 if SANITIZED else 25
PIECES = int(0.005 / min(timeit.repeat(lambda: sum(range(10_000)), number=1, repeat=200)))
INFO_REQUEST = Packet(Command.GET_INFO, 1, ord("1"), b"\x1f\xff").encode()


def work() -> None:
    """What takes 5 ms where nobody else wants the processor, and longer where the daemon has to wait for it as well."""
    for _ in range(PIECES):
        sum(range(10_000))


def end(analyzer: Analyzer, number: int, status: int = 1) -> None:
    """The end must come within the time of so many rounds of rest and work, each of them 10 ms on a quiet machine."""
    analyzer.daemon.signal(number)
    for _ in range(100 * EXIT_TIME):
        with suppress(TimeoutError):
            assert analyzer.daemon.wait(0.005) == status, analyzer.daemon.stderr()
            return
        work()
    raise AssertionError(f"it still runs after {EXIT_TIME} s")


def check_regained(analyzer: Analyzer, pc: Pc, result: int = PATIENT_ID) -> None:
    """Starts the daemon as a supervisor would; the PC only connects, and gets its results again."""
    pc.disconnect()
    analyzer.zelapp.close()
    analyzer.start()
    pc.start_heartbeat(0.1)
    pc.connect()
    assert analyzer.zelapp.expect(PcConnection, 20).name == pc.name
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {result}")
    pc.receive_result()
    analyzer.zelapp.expect(ResultSent)


@pytest.mark.parametrize("number", CAUGHT)
def test_a_signal_ends_with_status_1(analyzer: Analyzer, connected_pc: Pc, number: int) -> None:
    end(analyzer, number)
    assert f"ZELRmUp received signal(#{int(number)})\n" in analyzer.daemon.stdout()
    check_regained(analyzer, connected_pc)


def test_a_new_address_ends_the_daemon(analyzer: Analyzer, connected_pc: Pc) -> None:
    """The PC is told of the address until it says that it knows; only then it is looked after."""
    analyzer.zelapp.address_changed()
    assert analyzer.daemon.wait(30) == 1
    assert "ZELRmUp killself" in analyzer.daemon.log()
    check_regained(analyzer, connected_pc)
    assert analyzer.setting("IPChanged") == "0"


def test_zelapp_that_is_gone_ends_the_daemon(analyzer: Analyzer, connected_pc: Pc) -> None:
    analyzer.zelapp.close()
    connected_pc.disconnect()
    assert analyzer.daemon.wait(30) == 1
    assert f"ZELRmUp received signal(#{int(signal.SIGPIPE)})" in analyzer.daemon.stdout()
    check_regained(analyzer, connected_pc)


def test_a_socket_that_cannot_be_made_ends_the_daemon(analyzer: Analyzer, connected_pc: Pc) -> None:
    end(analyzer, signal.SIGTERM)
    path = analyzer.sandbox.path(SOCKET_PATH)
    path.unlink()
    (path / "in the way").mkdir(parents=True)
    begin = time.monotonic()
    analyzer.daemon.start()
    assert analyzer.daemon.wait(60) == 1
    assert 3.9 < time.monotonic() - begin < 60
    log = analyzer.daemon.log()
    assert log.count("[ZELRmUp::StartUDSServer][D] Retry to open UDS server") == 4
    assert "Server open failed, program exit" in log
    assert log.count("UDP server thread start") == 1, "the ports were opened"
    (path / "in the way").rmdir()
    path.rmdir()
    check_regained(analyzer, connected_pc)


# While all threads work

@contextmanager
def repeating(daemon: Daemon, *actions: Callable[[], None]) -> Iterator[None]:
    """Each action again and again in a thread of its own, whatever fails, as the daemon comes and goes."""
    stopped = threading.Event()

    def repeat(action: Callable[[], None]) -> None:
        while not stopped.is_set():
            with suppress(OSError, ValueError):
                action()

    threads = [threading.Thread(target=repeat, args=(action,)) for action in actions]
    for thread in threads:
        thread.start()
    try:
        yield
    finally:
        stopped.set()
        if daemon.running:
            daemon.kill()  # for those who wait for it
        for thread in threads:
            thread.join()


@pytest.mark.parametrize("part", range(4))
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
def test_ends_while_all_threads_work(new_analyzer: Analyzer, make_pc: Callable[..., Pc], number: int,
                                     part: int) -> None:
    """A worker that uses what the exiting main thread destroys would crash or hang here."""
    analyzer = new_analyzer
    insert_stick(analyzer, release())
    analyzer.set_faults(**{"upImgWrite.delay_ms": "1"})
    registered = make_pc()
    # From an address of its own: a session from the registered PC's address may be given results.
    analyzer.sandbox.laboratory.add_pc_address(lab_address(21))
    asking = make_pc(address=lab_address(21))
    open_socket = analyzer.sandbox.socket

    def scan() -> None:
        registered.send_datagram(bytes.fromhex("0a01010001002223a0c0a8281400000000"))
        time.sleep(0.005)

    def receive_results() -> None:
        time.sleep(0.01)
        registered.connect()
        with suppress(Refused, ValueError, TimeoutError):  # a result may come first, or be under way
            registered.register(PASSWORD)
        # Kept until the daemon closes it: leaving while it sends would be an end of another kind.
        while True:
            packet = registered.receive(60)
            if packet.command == Command.RESULT:
                registered.send(Command.RESULT, tag=packet.tag)

    def ask() -> None:
        try:
            asking.connect()
            for _ in range(20):
                asking.send_raw(INFO_REQUEST)
                asking.receive(60)
        finally:
            asking.disconnect()
            time.sleep(0.01)

    def knock() -> None:
        with open_socket(socket.SOCK_STREAM) as stranger:
            stranger.settimeout(1)
            stranger.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
            stranger.send(INFO_REQUEST[:7])
        time.sleep(0.005)

    def use() -> None:
        with analyzer.sandbox.connect_unix(SOCKET_PATH) as zelapp:
            zelapp.settimeout(60)
            while True:
                zelapp.sendall(frame(0x0510, b"\0\1") + frame(0x0561, bytes([0, USB])))
                zelapp.recv(65536)

    registered.start_heartbeat(0.005)
    analyzer.zelapp.write_request(f"{PATIENT},ResultID = {PATIENT_ID}".encode())
    work = ("Scan device sequence complete", "Update Start", "New session start", "Get device info sequence complete",
            'Status changed to "Transfer Result"')
    seen: Counter[str] = Counter()
    moments = random.Random(part)
    with repeating(analyzer.daemon, scan, receive_results, ask, knock, use):
        for _ in range(ENDS):
            analyzer.daemon.start()
            wait_until(lambda: "Update Start" in analyzer.daemon.log() or analyzer.daemon.status is not None, 20,
                       "an update starts")
            assert analyzer.daemon.status is None, analyzer.daemon.stdout()[-300:]
            time.sleep(moments.uniform(0, 0.3))
            end(analyzer, number)
            log = analyzer.daemon.log()
            seen.update(text for text in work if text in log)
            for path in analyzer.sandbox.path("/data/log").iterdir():
                path.unlink()
    assert analyzer.daemon.stdout().count(f"ZELRmUp received signal(#{int(number)})") == ENDS
    assert not analyzer.daemon.stderr(), analyzer.daemon.stderr()
    assert min(seen[text] for text in work) > ENDS / 3, seen
