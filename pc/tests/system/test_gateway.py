"""The gateway beside the real daemon: every result of an analyzer reaches the LIS, whatever happens on the way."""

from __future__ import annotations

import shutil
import signal
import socket
import ssl
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, Analyzer
from bench.browser import Browser
from bench.daemon import wait_until
from bench.gateway import FILES, MLLP, WEB_PORT, ZELPC, Gateway
from bench.lis import BEGIN, END, Lis, acknowledge, field
from bench.rabbit import Rabbit, rabbit_folder
from bench.sandbox import PC_ADDRESS
from bench.zelapp import CONTROL, PATIENT, PcConnection, ResultFailed, ResultSent

BROKER = """
[[destination]]
name = "broker"
type = "rabbitmq"
host = "127.0.0.1"
queue = "results"
format = "standard"
first_pause_s = 0.1
longest_pause_s = 1
answer_timeout_s = 3
"""
pytestmark = pytest.mark.skipif(not Path(ZELPC).exists(), reason="zelpc is not built (./zel test pc does)")


def send(analyzer: Analyzer, result: int, expected: type = ResultSent) -> None:
    analyzer.zelapp.send_result(CONTROL if result == CONTROL_ID else PATIENT, f"ResultID = {result}")
    analyzer.zelapp.expect(expected, 15)


@pytest.fixture
def gateway(analyzer: Analyzer) -> Iterator[Gateway]:
    """A gateway that has the analyzer."""
    gateway = Gateway(analyzer.sandbox, PASSWORD)
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    yield gateway
    if gateway.process.poll() is None:
        assert gateway.stop() == 0, gateway.log()


def test_results_reach_every_destination(analyzer: Analyzer, gateway: Gateway) -> None:
    lis = Lis(gateway.listen())
    for result in (PATIENT_ID, ANIMAL_ID, CONTROL_ID, PATIENT_ID):
        send(analyzer, result)
    wait_until(lambda: len(lis.accepted) == 3, 10, "three results at the LIS")
    wait_until(lambda: len(gateway.files()) == 3, 10, "three files")
    # The result that was sent twice is one; each message has a number of its own.
    assert [field(message, "PID", 3) for message in lis.accepted] == ["P-4711", "Rex", "QC-1"]
    assert len({field(message, "MSH", 10) for message in lis.received}) == 3
    assert field(lis.accepted[0], "OBX", 3) == "ALT^ALT^ORVELA"
    assert "|0|P|2.5.1|" in gateway.files()[0].read_text()
    # What nobody has is not acknowledged: the summary row is missing.
    send(analyzer, 999, ResultFailed)
    assert gateway.rows("SELECT times FROM aside") == [(1,)]
    # One gateway a store; the second one leaves at once, and says why.
    with pytest.raises(RuntimeError, match="another gateway uses this store"):
        analyzer.sandbox.pc.run(ZELPC, "gateway", "--config", str(gateway.config))


def test_a_lis_that_misbehaves_gets_everything_in_the_end(analyzer: Analyzer, gateway: Gateway) -> None:
    wrong = {"P-4711": [b"", None, BEGIN + b"HTTP/1.1 400 Bad Request" + END, b"\x0b" + bytes(1 << 20)],
             "Rex": ["AE", "another"], "QC-1": ["AR"]}

    def answer(message: str) -> bytes | None:
        todo = wrong[field(message, "PID", 3)]
        how = todo.pop(0) if todo else "AA"
        if how == "another":
            return acknowledge(message.replace(field(message, "MSH", 10), "4711"))
        return how if isinstance(how, bytes) or how is None else acknowledge(message, how, "so it is")

    lis = Lis(gateway.listen(), answer)
    for result in (PATIENT_ID, ANIMAL_ID, CONTROL_ID):
        send(analyzer, result)
    wait_until(lambda: len(lis.accepted) == 2, 40, "what the LIS can take")
    queue = wait_until(lambda: gateway.get("/api/queues/lis"), 10, "the one that was rejected is held")
    assert [(held["patient"], held["reason"]) for held in queue] == [("QC-1", "AR: so it is")]
    for patient in ("P-4711", "Rex"):
        assert len({message for message in lis.received if field(message, "PID", 3) == patient}) == 1, "a repeat differs"
    # Held until somebody decides, over a restart too.
    assert gateway.stop() == 0
    gateway.start()
    wait_until(lambda: "the page is" in gateway.log().split("ended")[-1], 20, "the gateway runs again")
    output = analyzer.sandbox.pc.run(ZELPC, "queue", "again", "lis", "--delivery", str(queue[0]["id"]), "--token-file",
                                  str(gateway.state / "token"))
    assert output == "one result is sent again\n"
    wait_until(lambda: len(lis.accepted) == 3, 20, "the held one")
    assert "QC-1" in lis.accepted[-1]


def test_who_may_ask_for_what(analyzer: Analyzer, gateway: Gateway) -> None:
    lis = Lis(gateway.listen())
    send(analyzer, PATIENT_ID)
    wait_until(lambda: lis.accepted, 10, "the result")
    own = {"Content_Type": "application/x-www-form-urlencoded"}
    body = "delivery=1&back=/results/1"
    cases = [
        ("GET", "/", {}, 200), ("GET", "/results/1", {}, 200), ("GET", "/results/99", {}, 404), ("GET", "/none", {}, 404),
        ("POST", "/", {}, 405), ("HEAD", "/api/events", {}, 200), ("GET", "/api/results?since=x", {}, 400), ("GET", "/", {"Host": "evil.example"}, 421),
        ("POST", "/act/again", own, 403), ("POST", "/act/again", own | {"Authorization": "Bearer wrong"}, 403),
        ("POST", "/api/queues/lis/again", {}, 403), ("GET", "/" + "x" * 9000, {}, 400),
    ]
    for method, path, headers, status in cases:
        answer, text = gateway.request(method, path, body if method == "POST" else "", None, **headers)
        assert answer.status == status, (method, path, text)
        assert "default-src 'none'" in answer.headers["Content-Security-Policy"]
    for origin, status in (("http://evil.example", 403), (f"http://127.0.0.1:{WEB_PORT}", 303)):
        answer, _ = gateway.request("POST", "/act/again", body, Origin=origin, **own)
        assert answer.status == status
    assert answer.headers["Location"] == "/results/1"
    wait_until(lambda: len(lis.accepted) == 2, 10, "the result once more")
    # As soon as its acceptance was seen, and not only once the store knows of it.
    wait_until(lambda: any(queue["delivered"] == 2 for queue in gateway.get("/api/queues")), 10, "its acceptance")
    assert lis.accepted[0] == lis.accepted[1]
    answer, text = gateway.request("POST", "/api/queues/lis/again", "{}")
    assert answer.status == 400 and "say which" in text, "everything is sent again only when that is said"
    assert gateway.post("/api/queues/lis/again", patient="P-4711")["count"] == 1
    assert 'zelpc_results_total{outcome="stored"} 1' in gateway.request("GET", "/metrics")[1]
    # More connections than there may be, with half requests, keep nobody out, and take no place from who was answered.
    page = gateway.open_page("/api/events")
    assert b"200 OK" in page.recv(1 << 16)
    silent = [analyzer.sandbox.socket(socket.SOCK_STREAM) for _ in range(150)]
    for number, connection in enumerate(silent):
        connection.connect(("127.0.0.1", WEB_PORT))
        connection.sendall(b"GET /" + b"x" * number)
    assert gateway.request("GET", "/healthz")[1] == "ok\n"
    gateway.post("/api/queues/lis/again", patient="P-4711")
    page.settimeout(10)
    assert b"event:" in page.recv(1 << 16)


def test_what_was_delivered_long_ago_goes(analyzer: Analyzer) -> None:
    """Catches a limit in days that is another one, and a result that goes though the LIS has not got it."""
    gateway = Gateway(analyzer.sandbox, PASSWORD, MLLP, keep_days=30)
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    lis = Lis(gateway.listen(), lambda message: acknowledge(message, "AR" if "Rex" in message else "AA"))
    for result in (PATIENT_ID, ANIMAL_ID, CONTROL_ID):
        send(analyzer, result)
    wait_until(lambda: len(lis.received) == 3, 20, "all at the LIS")
    assert gateway.stop() == 0, gateway.log()
    days = 86_400_000
    for patient, age in (("P-4711", 31), ("Rex", 31), ("QC-1", 29)):
        which = f"SELECT id FROM result WHERE patient = '{patient}'"
        gateway.rows(f"UPDATE delivery SET queued = queued - {age * days}, changed = changed - {age * days} "
                     f"WHERE result = ({which})")
        gateway.rows(f"UPDATE result SET received = received - {age * days} WHERE id = ({which})")
    gateway.start()
    gateway.wait_for_log("the gateway runs", count=2)
    wait_until(lambda: "zelpc_results_removed_total 1" in gateway.request("GET", "/metrics")[1], 20, "one goes")
    assert {result["patient"] for result in gateway.get("/api/results")} == {"Rex", "QC-1"}
    lis.answer = acknowledge
    assert gateway.post("/api/queues/lis/again", patient="Rex")["count"] == 1
    wait_until(lambda: lis.accepted[-1:] and "Rex" in lis.accepted[-1], 20, "what was rejected, a month later")
    assert gateway.stop() == 0, gateway.log()


def test_a_full_disk_acknowledges_nothing_and_says_so(analyzer: Analyzer) -> None:
    pc, small = analyzer.sandbox.pc, analyzer.sandbox.root / "small"
    small.mkdir()
    pc.run("mount", "-t", "tmpfs", "-o", "size=2m", "none", str(small))
    gateway = Gateway(analyzer.sandbox, PASSWORD, FILES, store=f"{small}/store.db")
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    send(analyzer, PATIENT_ID)
    pc.run("sh", "-c", f"cat /dev/zero > {small}/filler; true")
    send(analyzer, ANIMAL_ID, ResultFailed)
    assert not analyzer.synced("Result", ANIMAL_ID)
    answer, _ = gateway.request("GET", "/healthz")
    assert answer.status == 503
    assert "full" in gateway.get("/api/status")["store"]["problem"]
    wait_until(lambda: [alarm["kind"] for alarm in gateway.get("/api/status")["alarms"]] == ["store"], 10, "the alarm")
    assert "Results are not stored and not acknowledged" in gateway.request("GET", "/")[1]
    pc.run("rm", f"{small}/filler")
    wait_until(lambda: gateway.request("GET", "/healthz")[0].status == 200, 20, "room again")
    send(analyzer, ANIMAL_ID)
    wait_until(lambda: [result["patient"] for result in gateway.get("/api/results")] == ["Rex", "P-4711"], 10, "both")
    assert gateway.stop() == 0, gateway.log()


def test_an_alarm_begins_and_ends(analyzer: Analyzer) -> None:
    program, alarms = analyzer.sandbox.root / "alarm", analyzer.sandbox.root / "alarms"
    program.write_text(f'#!/bin/sh\necho "$ZELPC_ALARM $ZELPC_ALARM_KIND $ZELPC_ALARM_NAME" >> {alarms}\n')
    program.chmod(0o755)
    gateway = Gateway(analyzer.sandbox, PASSWORD, MLLP + "alarm_after_s = 1\n", f'[alarm]\ncommand = "{program}"\n')
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    send(analyzer, PATIENT_ID)
    wait_until(lambda: alarms.exists() and "begins down lis" in alarms.read_text(), 20, "the alarm")
    wait_until(lambda: "begins behind lis" in alarms.read_text(), 20, "the other one")
    assert {alarm["kind"] for alarm in gateway.get("/api/status")["alarms"]} == {"down", "behind"}
    lis = Lis(gateway.listen(), lambda message: acknowledge(message, "AE"))
    wait_until(lambda: "ends down lis" in alarms.read_text(), 20, "whoever refuses is there")
    assert {alarm["kind"] for alarm in gateway.get("/api/status")["alarms"]} == {"behind"}
    lis.answer = acknowledge
    wait_until(lambda: alarms.read_text().count("ends") == 2, 20, "the other one's end")
    assert len(lis.accepted) == 1
    # Ended in the middle of everything: in order and at once.
    gateway.process.signal(signal.SIGTERM)
    assert gateway.process.wait(15) == 0, gateway.log()


def test_a_lis_by_tls_must_be_the_right_one(analyzer: Analyzer) -> None:
    for name in ("right", "wrong"):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-subj", "/CN=lis", "-addext", f"subjectAltName=IP:{PC_ADDRESS}", "-days", "2", "-keyout",
                        analyzer.sandbox.root / f"{name}.key", "-out", analyzer.sandbox.root / f"{name}.pem"],
                       check=True, capture_output=True)
    gateway = Gateway(analyzer.sandbox, PASSWORD, MLLP + f'tls = true\nca_file = "{analyzer.sandbox.root}/right.pem"\n')
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    for name in ("wrong", "right"):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(analyzer.sandbox.root / f"{name}.pem", analyzer.sandbox.root / f"{name}.key")
        lis = Lis(gateway.listen(), tls=context)
        if name == "wrong":
            send(analyzer, PATIENT_ID)
            send(analyzer, ANIMAL_ID)
            gateway.wait_for_log("certificate verify failed")
            assert not lis.received
            lis.close()
    wait_until(lambda: len(lis.accepted) == 2, 20, "both results")
    assert gateway.stop() == 0, gateway.log()


@pytest.mark.skipif(not rabbit_folder(), reason="needs rabbitmq-server and amqp-tools")
def test_a_broker_that_is_killed_has_every_result_in_the_end(analyzer: Analyzer) -> None:
    gateway = Gateway(analyzer.sandbox, PASSWORD, BROKER)
    gateway.start()
    analyzer.zelapp.expect(PcConnection, 30)
    send(analyzer, PATIENT_ID)  # before there is a broker
    rabbit = Rabbit(analyzer.sandbox)
    wait_until(lambda: gateway.get("/api/queues")[0]["waiting"] == 0, 30, "the first result at the broker")
    # A broker that is killed while it still makes the queue has a queue without a leader for ever.
    wait_until(lambda: rabbit.queues().endswith("\t1\n"), 30, "the queue is settled")
    rabbit.kill()
    send(analyzer, ANIMAL_ID)
    send(analyzer, CONTROL_ID)
    wait_until(lambda: gateway.get("/api/queues")[0]["problem"], 20, "the gateway sees it")
    rabbit.start()
    wait_until(lambda: gateway.get("/api/queues")[0]["waiting"] == 0, 30, "the others")
    wait_until(lambda: int(rabbit.queues().split()[-1]) >= 3, 30, "the broker counts them")
    *description, count = rabbit.queues().split()[-4:]
    assert description == ["results", "quorum", "true"]
    # One whose confirmation was lost is there twice, with the same number.
    messages = dict.fromkeys(rabbit.take("results", int(count)))
    assert [field(message, "PID", 3) for message in messages] == ["P-4711", "Rex", "QC-1"]
    assert gateway.stop() == 0, gateway.log()


@pytest.mark.skipif(not shutil.which("chromedriver"), reason="needs chromium-driver")
def test_the_page(analyzer: Analyzer, gateway: Gateway) -> None:
    lis = Lis(gateway.listen(), lambda message: acknowledge(message, "AR", "<b>who?</b>"))
    url = f"http://127.0.0.1:{WEB_PORT}"
    with Browser(analyzer.sandbox) as browser:
        browser.show(url, 360, 800)
        assert "None came yet." in browser.text()
        send(analyzer, ANIMAL_ID)
        wait_until(lambda: "Rex" in browser.text(), 20, "the result on the page, by itself")
        for path in ("/", "/results", "/results/1", "/queues", "/queues/lis", "/aside"):
            browser.show(url + path, 360, 800)
            assert browser.run("return document.documentElement.scrollWidth") <= 360, path + " is too wide"
        # Without scripts it reads and acts just as well.
        browser.scripts(False)
        browser.show(url + "/queues/lis")
        assert "AR: <b>who?</b>" in browser.text("table")
        lis.answer = acknowledge
        browser.type("#acts [name=token]", (gateway.state / "token").read_text().strip())
        browser.click("button[formaction^='/act/again']")
        wait_until(lambda: lis.accepted, 10, "the result that was sent again")
        assert "Nothing is held." in browser.text()
