"""The gateway with receivers that others wrote, with updates under way, and when it must not go on."""

from __future__ import annotations

import signal
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.gateway import FILES, LIS_PORT, MLLP, WEB_PORT, ZELPC, Gateway
from bench.image import APP, file_name
from bench.machine import PROJECT
from bench.sandbox import ANALYZER_ADDRESS, ENGINE, lab_address
from bench.updates import FROM_PC, NEW, release, start
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultSent, UpdateComplete, UpdateFailed, UpdateRequested
from benchmarks.npm_packages import DIRECTORY, NoPackages, install
from zelpc import Tool

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
    queue = wait_until(lambda: [one for one in gateway.get("/api/queues")
                                if (one["delivered"], one["waiting"]) == (len(SENT), 0)], 10, "its answers")[0]
    assert queue["held"] == 0, gateway.log()


def put_release(gateway: Gateway, name: str, **values: object) -> None:
    folder = gateway.state / "releases" / name
    folder.mkdir(parents=True)
    for image, data in release(**values).items():
        (folder / file_name(image, str(values.get("model", "human")))).write_bytes(data)


def update_of(gateway: Gateway) -> dict:
    return gateway.get("/api/analyzers")[0]["update"] or {}


def test_updates_by_the_api(analyzer: Analyzer, begin: Callable[..., Gateway]) -> None:
    """Catches a release that goes to an analyzer of the other model or from another folder, progress that is not told,
    and an update that cannot be called off."""
    gateway = begin(FILES)
    serial = gateway.get("/api/analyzers")[0]["serial"]
    put_release(gateway, "good")
    put_release(gateway, "large", sizes={APP: 80_000_000})
    put_release(gateway, "animals", model="veterinary")
    (gateway.state / "releases/half").mkdir()
    assert gateway.get("/api/releases") == ["animals", "good", "half", "large"]
    push = f"/api/analyzers/{serial}/push"
    for name, status in (("animals", 422), ("half", 422), ("none", 404), ("../releases/good", 404), (".", 404)):
        answer, text = gateway.request("POST", push, f'{{"release": "{name}"}}')
        assert answer.status == status, (name, text)
    assert gateway.request("POST", push.replace(serial, "N62A9"), '{"release": "good"}')[0].status == 404

    gateway.post(push, release="good")
    analyzer.zelapp.expect(UpdateRequested, 20)
    assert gateway.request("POST", push, '{"release": "good"}')[0].status == 409, "one at a time"
    analyzer.zelapp.answer_update_request(True)
    start(analyzer, FROM_PC)
    analyzer.zelapp.expect(UpdateComplete, 30)
    assert wait_until(lambda: update_of(gateway).get("over"), 20, "its end")
    assert {image["image"] for image in update_of(gateway)["images"] if image["stored"]} == {"SYS", "APP", "XML", "DSP"}
    assert set(analyzer.read_device("versions.cfg").values()) == {NEW}

    gateway.post(push, release="large")
    analyzer.zelapp.expect(UpdateRequested, 20)
    gateway.post(f"/api/analyzers/{serial}/cancel")
    analyzer.zelapp.answer_update_request(True)
    start(analyzer, FROM_PC)
    analyzer.zelapp.expect(UpdateFailed, 30)
    assert wait_until(lambda: update_of(gateway).get("over"), 20, "its end")
    assert "cancel" in update_of(gateway)["step"], update_of(gateway)


def test_the_tool_through_a_gateway(analyzer: Analyzer, begin: Callable[..., Gateway]) -> None:
    """Catches a tool that takes the analyzer away from the gateway, misses or repeats a result, follows another update
    than its own, ends its watch when the gateway does, and a Ctrl-C that calls nothing off."""
    gateway = begin(FILES)
    put_release(gateway, "good", sizes={APP: 3_000_000})
    put_release(gateway, "large", sizes={APP: 80_000_000})
    through = ("--json", "--gateway", f"127.0.0.1:{WEB_PORT}", "--token-file", str(gateway.state / "token"))
    send(analyzer, PATIENT_ID)  # what was there before is not shown
    watch = Tool(analyzer.sandbox, "watch", analyzer.serial, *through, address=None)
    watch.expect("status", state="registered")
    send(analyzer, ANIMAL_ID)
    shown = watch.expect("result", patient="Rex", acknowledged=True)
    assert (shown["id"], shown["serial"], shown["host"]) == (2, analyzer.serial, ANALYZER_ADDRESS)

    def push(host: str, release: str) -> Tool:
        return Tool(analyzer.sandbox, "push", host, release, *through, address=None)

    assert push("N62A9", "good").wait() != 0 and push(analyzer.serial, "none").wait() != 0
    tool = push(ANALYZER_ADDRESS, "good")
    analyzer.zelapp.expect(UpdateRequested, 20)
    analyzer.zelapp.answer_update_request(True)
    start(analyzer, FROM_PC)
    analyzer.zelapp.expect(UpdateComplete, 30)
    assert tool.wait() == 0, tool.errors()
    done = tool.events("push", step="installed")[0]["images"]
    assert done.keys() == {"SYS", "APP", "XML", "DSP"} and all(image["stored"] for image in done.values())
    watch.expect("update")

    tool = push(analyzer.serial, "large")
    analyzer.zelapp.expect(UpdateRequested, 20)
    tool.process.signal(signal.SIGINT)
    assert tool.wait() == 6 and tool.events("push", step="cancelled"), tool.output() + tool.errors()
    analyzer.zelapp.answer_update_request(True)
    start(analyzer, FROM_PC)
    analyzer.zelapp.expect(UpdateFailed, 30)

    assert gateway.stop() == 0, gateway.log()
    wait_until(lambda: "127.0.0.1" in watch.errors(), 20, "the watch says that the gateway is gone")
    gateway.start()
    while not analyzer.zelapp.expect(PcConnection, 30).connected:
        pass
    send(analyzer, CONTROL_ID)
    assert watch.expect("result", count=2)["kind"] == "control"
    assert watch.interrupt() == 0 and len(watch.events("result")) == 2


def test_ending_with_everything_under_way(analyzer: Analyzer, begin: Callable[..., Gateway]) -> None:
    """Catches an end that waits for a LIS that is silent, a broker that is not there, an alarm program that hangs, an
    update or a page that is open, and a result that does not survive it."""
    root = analyzer.sandbox.root
    program = root / "alarm"
    program.write_text(f"#!/bin/sh\necho $$ >> {root}/alarms\nexec sleep 600\n")
    program.chmod(0o755)
    nowhere = f'host = "{lab_address(99)}"\nqueue = "x"\nanswer_timeout_s = 60\nconnect_timeout_s = 60\n'
    gateway = begin(MLLP.replace("answer_timeout_s = 2", "answer_timeout_s = 60") + "alarm_after_s = 1\n"
                    '[[destination]]\nname = "broker"\ntype = "rabbitmq"\n' + nowhere,
                    f'[alarm]\ncommand = "{program}"\n')
    silent = gateway.listen()
    put_release(gateway, "good")
    pages = [gateway.open_page("/api/events") for _ in range(3)]
    send(analyzer, PATIENT_ID)
    connection = silent.accept()[0]
    assert b"P-4711" in connection.recv(65536)
    wait_until(lambda: (root / "alarms").exists(), 30, "an alarm")
    gateway.post(f"/api/analyzers/{analyzer.serial}/push", release="good")
    analyzer.zelapp.expect(UpdateRequested, 20)
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {ANIMAL_ID}")
    gateway.process.signal(signal.SIGTERM)
    assert gateway.process.wait(30) == 0, gateway.log()
    running = analyzer.sandbox.pc.run("ps", "-e", "-o", "pid=,args=")
    assert str(program) not in running and "sleep 600" not in running, "its alarm program goes on"
    assert all(page.recv(1 << 16) is not None for page in pages)
    assert gateway.rows("SELECT state FROM delivery WHERE result = 1") == [(0,), (0,)], "nothing counts as delivered"
    silent.close()
    gateway.start()
    gateway.wait_for_log("the gateway runs", count=2)


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
