"""The gateway with receivers that others wrote, with updates under way, and when it must not go on."""

from __future__ import annotations

import signal
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.gateway import FILES, LIS_PORT, MLLP, ZELPC, Gateway
from bench.machine import PROJECT
from bench.sandbox import ENGINE
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultSent
from benchmarks.npm_packages import DIRECTORY, NoPackages, install

pytestmark = pytest.mark.skipif(not Path(ZELPC).exists(), reason="zelpc is not built (./zel test pc does)")
RECEIVERS = {"python-hl7": ["/usr/bin/python3", f"{PROJECT}/benchmarks/gateway_peers.py"],
             "simple-hl7": ["node", f"{PROJECT}/benchmarks/gateway_peers.cjs"]}
SENT = (PATIENT_ID, ANIMAL_ID, CONTROL_ID)


@pytest.fixture
def begin(analyzer: Analyzer) -> Iterator[Callable[..., Gateway]]:
    """Starts a gateway that has the analyzer; it must end well and at once, whatever is under way."""
    made: list[Gateway] = []

    def make(*arguments: str, **values: str) -> Gateway:
        made.append(Gateway(analyzer.sandbox, PASSWORD, *arguments, **values))
        made[-1].start()
        analyzer.zelapp.expect(PcConnection, 30)
        return made[-1]

    yield make
    for gateway in made:
        assert gateway.stop() == 0, gateway.log()


def send(analyzer: Analyzer, result: int) -> None:
    analyzer.zelapp.send_result(CONTROL if result == CONTROL_ID else PATIENT, f"ResultID = {result}")
    analyzer.zelapp.expect(ResultSent, 15)


@pytest.mark.parametrize("name", RECEIVERS)
@pytest.mark.parametrize("text", ["standard", "as-is"])
def test_receivers_of_others_take_every_result(name: str, text: str, analyzer: Analyzer,
                                               begin: Callable[..., Gateway]) -> None:
    """Catches a frame, a message or a number that only our own reader understands."""
    if name == "simple-hl7":
        try:
            install()
        except NoPackages as error:
            pytest.skip(str(error))
    Gateway.stop_listening()
    told = analyzer.sandbox.root / "told"
    with open(told, "wb") as output:
        analyzer.sandbox.pc.spawn(["sh", "-c", f"(echo count {len(SENT)}; sleep 900) | {' '.join(RECEIVERS[name])} "
                                   f"receive {LIS_PORT}"], output, output,
                                  {"NODE_PATH": str(DIRECTORY / "node_modules")})
    standard = 'format = "standard"\nreceiving_application = "LIS"\n'
    gateway = begin(MLLP if text == "standard" else MLLP.replace(standard, ""))
    for result in SENT:
        send(analyzer, result)
    wait_until(lambda: "seconds" in told.read_text(), 30, "all results at the receiver")
    queue = wait_until(lambda: [one for one in gateway.get("/api/queues") if one["delivered"] == len(SENT)], 10,
                       "its answers")[0]
    assert (queue["waiting"], queue["held"]) == (0, 0), gateway.log()


def test_a_store_that_cannot_be_written_is_refused(analyzer: Analyzer) -> None:
    """Catches a gateway that acknowledges into nowhere, and one that changes what it refuses."""
    pc, folder = analyzer.sandbox.pc, analyzer.sandbox.root / "fixed"
    if not ENGINE.OWN_NETWORK:
        pytest.skip("needs a file system of its own (there are no namespaces)")
    folder.mkdir()
    pc.run("mount", "-t", "tmpfs", "none", str(folder))
    first = Gateway(analyzer.sandbox, PASSWORD, FILES, store=f"{folder}/store.db")
    first.start()
    analyzer.zelapp.expect(PcConnection, 30)
    send(analyzer, PATIENT_ID)
    assert first.stop() == 0
    for damage in ("mount -o remount,ro {0}", "mount -o remount,rw {0}; echo x | dd of={0}/store.db conv=notrunc bs=1"):
        pc.run("sh", "-c", damage.format(folder))
        before = pc.run("sha256sum", f"{folder}/store.db")
        first.start()
        assert first.process.wait(20) not in (0, -signal.SIGSEGV, -signal.SIGABRT), first.log()
        assert f"{folder}/store.db" in first.log().splitlines()[-1], first.log()
        assert pc.run("sha256sum", f"{folder}/store.db") == before
