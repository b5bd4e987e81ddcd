"""Fixtures of the system tests: the unmodified daemon, each test with a simulated analyzer of its own."""

from __future__ import annotations

import faulthandler
import signal
import threading
from collections.abc import Callable, Iterator
from typing import Any

import pytest

from bench.analyzer import PASSWORD, Analyzer
from bench.pc import Pc
from bench.sandbox import ENGINE, USB_PC_ADDRESS, Unsupported, lab_address
from bench.zelapp import PcConnection

OTHER_PC = lab_address(21)
TEST_TIMEOUT = 180  # seconds; one of them compiles a whole library


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol(item: pytest.Item) -> Iterator[None]:
    """Ends a test that is stuck with a message, and the whole process when even that does not help."""
    def expired(*_: object) -> None:
        raise TimeoutError(f"{item.nodeid} was stuck for {TEST_TIMEOUT} s")

    in_main_thread = threading.current_thread() is threading.main_thread()
    if in_main_thread:
        signal.signal(signal.SIGALRM, expired)
        signal.alarm(TEST_TIMEOUT)
    faulthandler.dump_traceback_later(TEST_TIMEOUT + 30, exit=True)
    yield
    faulthandler.cancel_dump_traceback_later()
    if in_main_thread:
        signal.alarm(0)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[None]) -> Iterator[Any]:
    """Adds the end of the daemon's log and what it printed to the report of a failed test.

    A test that needs what this machine's sandbox cannot do is skipped, and its report says what that is.
    """
    report = (yield).get_result()
    if call.excinfo and call.excinfo.errisinstance(Unsupported):
        path, line, _ = item.location
        report.outcome, report.longrepr = "skipped", (path, line, f"Skipped: {call.excinfo.value}")
    analyzer = getattr(item, "funcargs", {}).get("new_analyzer")
    if report.failed and isinstance(analyzer, Analyzer) and analyzer.sandbox.root.exists():
        report.sections.append(("daemon log", "\n".join(analyzer.daemon.log().splitlines()[-60:])))
        report.sections.append(("daemon output", analyzer.daemon.stdout() + analyzer.daemon.stderr()[-8000:]))


@pytest.fixture
def model() -> str | None:
    """The analyzer's model; a test overrides it by parametrizing."""
    return "Human"


@pytest.fixture
def tmp_size() -> int | None:
    return None


@pytest.fixture
def data_size() -> int | None:
    return None


@pytest.fixture
def new_analyzer(model: str | None, tmp_size: int | None, data_size: int | None) -> Iterator[Analyzer]:
    """An analyzer whose daemon the test starts. Whatever the test did, the daemon must end as it should."""
    with Analyzer(model, tmp_size, data_size) as analyzer:
        yield analyzer
        daemon = analyzer.daemon
        if daemon.running:
            assert daemon.status is None, f"the daemon ended by itself with status {daemon.status}"
            assert daemon.stop() == 1, daemon.stderr()
        assert not daemon.sanitizer_report(), daemon.sanitizer_report()


@pytest.fixture
def analyzer(new_analyzer: Analyzer) -> Analyzer:
    """An analyzer whose daemon serves."""
    new_analyzer.start()
    return new_analyzer


@pytest.fixture
def make_pc(new_analyzer: Analyzer) -> Iterator[Callable[..., Pc]]:
    """Makes PC programs; they are closed at the end of the test."""
    made: list[Pc] = []

    def make(**values: Any) -> Pc:
        if values.get("address") == USB_PC_ADDRESS and not ENGINE.OWN_NETWORK:
            raise Unsupported("needs the USB network link (there are no namespaces)")
        made.append(Pc(new_analyzer.sandbox.socket, **values))
        return made[-1]

    yield make
    for pc in made:
        pc.close()


@pytest.fixture
def pc(make_pc: Callable[..., Pc]) -> Pc:
    return make_pc()


@pytest.fixture
def connected_pc(analyzer: Analyzer, pc: Pc) -> Pc:
    """A PC that has registered and that ZELApp knows to be connected."""
    pc.register(PASSWORD)
    pc.start_heartbeat()
    assert analyzer.zelapp.expect(PcConnection).connected
    return pc


@pytest.fixture
def other_pc(analyzer: Analyzer, make_pc: Callable[..., Pc]) -> Pc:
    """A PC at an address of its own, which is not registered."""
    analyzer.sandbox.laboratory.add_pc_address(OTHER_PC)
    return make_pc(address=OTHER_PC, name="OtherPC", peer_id="2")
