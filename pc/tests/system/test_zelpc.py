"""zelpc's tool beside the real daemon."""

from __future__ import annotations

import os
import pty
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Callable
from pathlib import Path

import pytest

from bench.analyzer import ANIMAL_ID, CONTROL_ID, PASSWORD, PATIENT_ID, SERIAL, Analyzer
from bench.daemon import RUNNERS, wait_until
from bench.image import APP, DSP, SYS, XML, file_name, make_sys
from bench.machine import preset
from bench.pc import Pc
from bench.sandbox import ANALYZER_ADDRESS, ENGINE, PC_ADDRESS, lab_address
from bench.zelapp import (CONTROL, PATIENT, NothingToUpdate, PcConnection, ResultFailed, ResultSent, UpdateComplete,
                          UpdateFailed, UpdateRequested)
from tests.system.conftest import OTHER_PC
from bench.updates import BY_PC, FROM_PC, NEW, NEWER, OLD, header_with, release, replace, sections_of, start
from zelpc import PROGRAM, Tool, run, watch

pytestmark = pytest.mark.skipif(not PROGRAM.exists(), reason="zelpc is not built (./zel test pc does)")
HOST = ANALYZER_ADDRESS
NOBODY = lab_address(99)


def test_finding_registering_and_leaving(analyzer: Analyzer, make_pc: Callable[..., Pc]) -> None:
    """Catches answers that are read wrongly, a registration taken from another PC unasked, refusals without words."""
    sandbox = analyzer.sandbox
    free = {"serial": SERIAL, "model": "N62", "address": HOST, "busy": False, "pc": None}
    where = [] if ENGINE.OWN_NETWORK else ["--to", HOST]
    assert run(sandbox, "scan", "--seconds", "1", "--json", *where).events("analyzer", **free), "by broadcast"
    assert f"{SERIAL}      N62       {HOST:17}free" in run(sandbox, "scan", "--to", HOST, "--seconds", "1").output()
    if ENGINE.OWN_NETWORK:  # on loopback every address is the analyzer's
        assert "no analyzer answers" in run(sandbox, "scan", "--to", NOBODY, "--seconds", "0.2", status=3).errors()
        run(sandbox, "info", NOBODY, status=3)

    wrong = run(sandbox, "register", HOST, env={"ZELPC_PASSWORD": "wrong"}, status=4)
    assert "the administrator password is not correct" in wrong.errors()
    assert "give --password-file" in run(sandbox, "register", HOST, env={}, status=2).errors()
    password = sandbox.root / "password"
    password.write_text(f"{PASSWORD}\n")
    run(sandbox, "register", HOST, "--password-file", str(password), env={})
    assert analyzer.setting("PCIPAddress") == PC_ADDRESS and analyzer.setting("PCUDPPort") == "9036"
    assert analyzer.setting("PCSWName") == "zelpc"
    assert run(sandbox, "info", HOST, "--json").events("info", registered=True, serial=SERIAL[:10], app_version=OLD)

    sandbox.laboratory.add_pc_address(OTHER_PC)
    other = run(sandbox, "info", HOST, "--json", address=OTHER_PC)
    assert other.events("info", registered=False, pc={"address": PC_ADDRESS, "name": "zelpc"})
    refused = run(sandbox, "register", HOST, address=OTHER_PC, status=4)
    assert f'{PC_ADDRESS} "zelpc" is registered; --take-over replaces it' in refused.errors()
    assert "not this PC is registered" in run(sandbox, "unregister", HOST, address=OTHER_PC, status=4).errors()
    run(sandbox, "unregister", HOST)
    assert analyzer.setting("PCIPAddress") == "0.0.0.0"
    assert "no PC is registered" in run(sandbox, "unregister", HOST, status=4).errors()

    # A program that holds the registration keeps it, until it is forced.
    holder = make_pc(name="zelpc")
    holder.register(PASSWORD)
    holder.start_heartbeat()
    assert analyzer.zelapp.expect(PcConnection).connected
    scanned = run(sandbox, "scan", "--to", HOST, "--seconds", "0.5").output()
    assert f'taken by {PC_ADDRESS} "zelpc"' in scanned
    assert "another program of this PC" in run(sandbox, "unregister", HOST, status=4).errors()
    run(sandbox, "unregister", HOST, "--force")
    assert analyzer.setting("PCIPAddress") == "0.0.0.0"


def test_the_password_is_asked_for_unseen() -> None:
    """Catches a password that is shown, or asked for where nobody is."""
    on_a_terminal = "import os, pty, sys; sys.exit(os.waitstatus_to_exitcode(pty.spawn(sys.argv[1:])))"
    environment = {name: value for name, value in os.environ.items() if name != "ZELPC_PASSWORD"}
    # An address of its own, so that no analyzer that is tried on this machine answers.
    command = [*RUNNERS.get(preset(), []), str(PROGRAM), "register", "127.77.0.1", "--udp-port", "0"]
    with subprocess.Popen([sys.executable, "-c", on_a_terminal, *command], env=environment, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        shown = b""
        while b"password of 127.77.0.1: " not in shown:
            piece = process.stdout.read(1)
            assert piece, shown
            shown += piece
        process.stdin.write(b"secret\n")
        process.stdin.flush()
        shown += process.stdout.read()
    assert process.returncode == 3, shown
    assert b"secret" not in shown and b"Connection refused" in shown


def test_watching(analyzer: Analyzer) -> None:
    """Catches a result that is acknowledged though it is not on disk, stored twice, changed, or lost in a restart."""
    sandbox, zelapp = analyzer.sandbox, analyzer.zelapp
    folder = sandbox.root / "results"
    tool = watch(sandbox, "--save", str(folder))

    def send(kind: int, result: int, acknowledged: bool) -> dict:
        before = len(tool.events("result"))
        zelapp.send_result(kind, f"ResultID = {result}")
        zelapp.expect(ResultSent if acknowledged else ResultFailed, 20)
        event = tool.expect("result", before + 1)
        assert event["acknowledged"] == acknowledged, event
        return event

    patient = send(PATIENT, PATIENT_ID, True)
    assert (patient["patient"], patient["kind"], patient["panel"]) == ("P-4711", "patient", "Liver 6")
    assert [value["value"] for value in patient["values"]] == ["31.5", "52.25", "0.75"]
    assert Path(patient["saved"]).read_bytes().decode() == patient["text"]
    control = send(CONTROL, CONTROL_ID, True)
    assert control["kind"] == "control" and control["saved"] != patient["saved"]
    again = send(PATIENT, PATIENT_ID, True)
    assert again["again"] and again["saved"] == patient["saved"]
    assert analyzer.synced("Result", PATIENT_ID) and analyzer.synced("Ctrl", CONTROL_ID)
    assert "there is no result in it" in send(PATIENT, 99, False)["problem"]

    folder.rename(folder.with_name("elsewhere"))
    assert "No such file" in send(PATIENT, ANIMAL_ID, False)["problem"]
    folder.with_name("elsewhere").rename(folder)
    assert not analyzer.synced("Result", ANIMAL_ID)

    # The analyzer restarts while results are wanted.
    analyzer.daemon.kill()
    zelapp.close()
    tool.expect("status", state="waiting")
    analyzer.start()
    tool.expect("status", count=2, state="registered")
    assert send(PATIENT, ANIMAL_ID, True)["species_name"] == "Dog"
    assert len(list(folder.iterdir())) == 3, list(folder.iterdir())
    assert tool.interrupt() == 0
    assert analyzer.setting("PCIPAddress") == PC_ADDRESS, "the registration stays"

    decoded = run(sandbox, "decode", patient["saved"]).output()
    assert "patient P-4711, measured 2023-05-17 14:03:59" in decoded and "PID-3" in decoded
    log = run(sandbox, "decode", str(sandbox.path("/data/log/ZELRmUp.log"))).output()
    assert "0x7B01 result, tag 1" in log


def test_watching_without_a_folder(analyzer: Analyzer, other_pc: Pc) -> None:
    """Catches a result that is acknowledged and only shown, a fight over an analyzer, and a password tried for ever."""
    tool = watch(analyzer.sandbox)
    analyzer.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
    analyzer.zelapp.expect(ResultFailed, 20)
    assert "without --save" in tool.expect("result")["problem"]
    wait_until(lambda: tool.events("status", state="registered"), 10, "it stays registered")

    other_pc.register(PASSWORD)
    taken = tool.expect("taken_over")
    assert taken["pc"] == {"address": OTHER_PC, "name": "OtherPC"}
    tool.expect("status", state="taken")
    assert tool.interrupt() == 0
    assert analyzer.setting("PCIPAddress") == OTHER_PC

    # The other PC is connected: the analyzer closes the connection of whoever takes its place.
    other_pc.start_heartbeat()
    while not analyzer.zelapp.expect(PcConnection, 20).connected:
        pass
    taking = watch(analyzer.sandbox, "--take-over")
    assert taking.interrupt() == 0
    refused = Tool(analyzer.sandbox, "watch", HOST, env={"ZELPC_PASSWORD": "wrong"})
    assert refused.wait() == 4 and "refused: the administrator password" in refused.output()


def test_an_analyzer_that_moves(analyzer: Analyzer) -> None:
    """Catches an analyzer that is lost when it gets another address, or goes on telling it although it was found."""
    sandbox, moved = analyzer.sandbox, lab_address(11)
    tool = watch(sandbox)
    for line in (("address", "del", f"{HOST}/24", "dev", "eth0"),
                 ("address", "add", f"{moved}/24", "brd", "+", "dev", "eth0"),
                 ("route", "replace", "default", "via", "192.168.40.1", "dev", "eth0")):
        sandbox.run("ip", *line)
    analyzer.zelapp.address_changed()
    assert analyzer.daemon.wait(20) == 1
    analyzer.zelapp.close()
    tool.expect("status", state="waiting", timeout=40)
    analyzer.start()
    tool.expect("status", state="registered", address=moved, timeout=60)
    wait_until(lambda: analyzer.setting("IPChanged") == "0", 20, "the notice is acknowledged")
    assert tool.interrupt() == 0


def put_release(analyzer: Analyzer, files: dict[int, bytes], model: str = "human") -> str:
    folder = analyzer.sandbox.root / "release"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for image, data in files.items():
        (folder / file_name(image, model)).write_bytes(data)
    return str(folder)


def take_slowly(analyzer: Analyzer, condition: Callable[[], object]) -> None:
    """Lets the analyzer work a little at a time until then, and leaves it stopped: however quick the machine is, what
    has begun is not over."""
    def step() -> object:
        analyzer.daemon.signal(signal.SIGCONT)
        time.sleep(0.002)
        analyzer.daemon.signal(signal.SIGSTOP)
        time.sleep(0.1)  # progress is told a few times a second
        return condition()

    wait_until(step, 30, "the analyzer has taken some of it")


def test_pushing(analyzer: Analyzer) -> None:
    """Catches images that are sent wrongly, an end that is told before it is there or other than it was, and a cancel
    that does not reach the analyzer."""
    sandbox, zelapp = analyzer.sandbox, analyzer.zelapp

    def push(*arguments: str) -> Tool:
        return Tool(sandbox, "push", HOST, str(sandbox.root / "release"), "--json", *arguments)

    def offered(possible: bool = True) -> Tool:
        tool = push()
        zelapp.expect(UpdateRequested, 20)
        zelapp.answer_update_request(possible)
        if possible:
            start(analyzer, FROM_PC)
        return tool

    def asked() -> Tool:
        tool = push("--when-asked")
        tool.expect("push", step="waiting")
        start(analyzer, BY_PC)
        return tool

    put_release(analyzer, release(sizes={APP: 3_000_000}))
    tool = offered()
    zelapp.expect(UpdateComplete, 30)
    assert tool.wait() == 0, tool.errors()
    done = tool.events("push", step="installed")[0]["images"]
    assert done.keys() == {"SYS", "APP", "XML", "DSP"} and all(image["stored"] for image in done.values())
    assert set(analyzer.read_device("versions.cfg").values()) == {NEW}

    tool = asked()
    zelapp.expect(NothingToUpdate, 20)
    assert tool.wait() == 0 and tool.events("push", step="not needed")
    put_release(analyzer, release(NEWER))
    tool = asked()
    zelapp.expect(UpdateComplete, 30)
    assert tool.wait() == 0 and tool.events("push", step="installed")
    assert analyzer.read_device("versions.cfg")["SYS"] == NEWER

    assert offered(possible=False).wait() == 1
    put_release(analyzer, release(sizes={APP: 80_000_000}))
    tool = offered()
    take_slowly(analyzer, lambda: tool.events("push")[-1]["images"].get("APP", {}).get("sent"))
    tool.process.signal(signal.SIGINT)
    analyzer.daemon.signal(signal.SIGCONT)
    assert tool.wait() == 6 and tool.events("push", step="cancelled")
    zelapp.expect(UpdateFailed, 20)
    analyzer.set_faults(**{"upImgWrite.3": "fail@0"})
    put_release(analyzer, release())
    tool = offered()
    zelapp.expect(UpdateFailed, 20)
    assert tool.wait() == 1 and "has not installed it" in tool.errors()


def test_releases_that_are_not_offered(analyzer: Analyzer) -> None:
    """Catches a release that is offered though the analyzer could not, or should not, install it."""
    good = release(without=(DSP,))
    sections = sections_of(good)
    cases = [
        ({}, "there is no update file"),
        ({SYS: good[SYS], APP: good[APP]}, "belong together, but one of them is missing"),
        (good | {XML: release(NEWER)[XML]}, "APP names other versions"),
        (good | {APP: good[APP][:-1]}, "zel_app.n62.bin is shorter than its header says"),
        (good | {APP: good[APP] + b"x"}, "zel_app.n62.bin is longer than its header says"),
        (good | {APP: header_with(good[APP], -1)}, "zel_app.n62.bin is shorter than its header says"),
        (good | {APP: good[XML]}, "zel_app.n62.bin is no APP file"),
        (good | {XML: replace(good[XML], 8, b"new\0")}, "zel_xml.n62.bin has no version"),
        (good | {SYS: good[SYS][:30]}, "zel_sys.n62.bin ends within a header"),
        (good | {SYS: make_sys("human", NEW, sections[:3])}, "zel_sys.n62.bin ends within a header"),
        (good | {SYS: make_sys("human", NEW, [*sections[:3], sections[0]])}, "boot, kernel, rootfs and QTE, each once"),
    ]
    for files, problem in cases:
        folder = put_release(analyzer, files)
        assert problem in run(analyzer.sandbox, "push", HOST, folder, status=5).errors(), problem
    folder = put_release(analyzer, release(model="veterinary"), "veterinary")
    veterinary = run(analyzer.sandbox, "push", HOST, folder, status=5).errors()
    assert "for Veterinary analyzers, but this one is a Human" in veterinary
    assert not any(isinstance(message, UpdateRequested) for message in analyzer.zelapp.history)
    run(analyzer.sandbox, "push", HOST, "/nowhere", status=2)


def test_what_people_see(analyzer: Analyzer) -> None:
    """Catches bars that are not drawn over themselves, or are drawn where no terminal is."""
    folder = put_release(analyzer, release())
    mine, theirs = pty.openpty()
    shown: list[str] = []
    for terminal in (False, True):
        output = os.fdopen(theirs, "w") if terminal else open(analyzer.sandbox.root / "shown", "w")
        command = [*RUNNERS.get(preset(), []), str(PROGRAM), "push", HOST, folder, "--from", PC_ADDRESS]
        process = analyzer.sandbox.pc.spawn(command, output, output, {"ZELPC_PASSWORD": PASSWORD})
        output.close()
        analyzer.zelapp.expect(UpdateRequested, 20)
        analyzer.zelapp.answer_update_request(True)
        start(analyzer, FROM_PC)
        text = read_terminal(mine) if terminal else ""
        assert process.wait(40) == 0
        shown.append(text or (analyzer.sandbox.root / "shown").read_text())
    assert "\x1b" not in shown[0] and "APP stored, 262184 bytes" in shown[0] and shown[0].endswith("installed\n")
    assert "\x1b[5A" in shown[1] and "APP [" + "#" * 40 + "] 100% stored" in shown[1]


def read_terminal(terminal: int) -> str:
    shown = b""
    try:
        while data := os.read(terminal, 10000):
            shown += data
    except OSError:
        pass
    return shown.decode()
