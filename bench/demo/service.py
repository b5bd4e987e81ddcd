"""The service at work on a simulated analyzer: the steps of `./zel demo` up to the gateway, and how steps are run.

Every line is printed after the thing it tells has happened over the real sockets. The first step that does not happen
ends the demo with status 1 and the end of the daemon's log.
"""

from __future__ import annotations

import tempfile
import textwrap
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager, nullcontext
from pathlib import Path

import hl7
from rich.console import Console
from rich.markup import escape
from rich.progress import BarColumn, Progress, TaskProgressColumn, TextColumn
from rich.table import Table

from bench import pc as pc_program
from bench.analyzer import CONTROL_ID, OLD_VERSION, PASSWORD, PATIENT_ID, Analyzer
from bench.image import APP, DSP, IMAGES, SYS, XML, file_name, make_release, sample_payloads
from bench.pc import Pc
from bench.pcpacket import Command
from bench.sandbox import ENGINE
from bench.updateserver import UpdateServer
from bench.zelapp import (CONTROL, PATIENT, PcConnection, ResultSent, UpdateComplete, UpdateFailed, UpdateProgress,
                          UpdateRequested, UpdateStarts)

SAMPLE_SIZE = 4 << 20
MODEL = "human"


class Failed(Exception):
    """A step did not do what it is there for."""


class Demo:
    def __init__(self, analyzer: Analyzer, console: Console):
        self.analyzer, self.console = analyzer, console
        self.zelapp = analyzer.zelapp
        self.pc = Pc(analyzer.sandbox.socket)
        self.version = OLD_VERSION

    def close(self) -> None:
        self.pc.close()

    def log(self) -> str:
        return self.analyzer.daemon.log()

    def say(self, text: str) -> None:
        for line in textwrap.wrap(text, self.console.width - 1, initial_indent=" " * 3, subsequent_indent=" " * 5):
            self.console.print(escape(line), highlight=False)

    def check(self, condition: bool, what: str) -> None:
        if not condition:
            raise Failed(what)

    # Results

    def start(self) -> None:
        self.analyzer.start()
        self.say(f"ZELRmUp runs (process {self.analyzer.daemon.process.pid}) and has told ZELApp: no PC is connected")

    def find(self) -> None:
        found = self.pc.scan()
        self.say(f"{found.model} with serial number {found.serial} answers: it takes requests at "
                 f"{found.address}:{found.tcp_port}")
        self.check(found.pc_address == "0.0.0.0", f"the analyzer names {found.pc_address} as its PC")

    def register(self) -> None:
        self.pc.register(PASSWORD)
        self.pc.start_heartbeat()
        self.say(f'"{self.pc.name}" at {self.pc.address} gave the administrator\'s password and is registered')

    def connection_status(self) -> None:
        status = self.zelapp.expect(PcConnection, 10)
        self.check(status.connected and status.name == self.pc.name, f"ZELApp was told {status}")
        self.say(f'connected: "{status.name}" at {status.address}, peer ID {status.peer_id}')

    def patient_result(self) -> None:
        self._send_result(PATIENT, PATIENT_ID)

    def control_result(self) -> None:
        self._send_result(CONTROL, CONTROL_ID)

    def _send_result(self, kind: int, result: int) -> None:
        self.zelapp.send_result(kind, f"ResultID = {result}")
        self._print_hl7(self.pc.receive_result())
        self.zelapp.expect(ResultSent)
        self.say("the PC has acknowledged it, and ZELApp knows")

    def _print_hl7(self, text: str) -> None:
        """A segment begins a line; a field is never broken."""
        for segment in hl7.parse(text):
            name = str(segment[0])
            line, used = f"   [bold cyan]{name}[/]", 6
            for i, value in enumerate(segment):
                if not i or not str(value) or name == "MSH" and i < 3:
                    continue
                width = len(f"  {name}-{i} {value}")
                if used + width > self.console.width:
                    self.console.print(line, highlight=False)
                    line, used = " " * 6, 6
                line += f"  [dim]{name}-{i}[/] {escape(str(value))}"
                used += width
            self.console.print(line, highlight=False)

    def marks(self) -> None:
        for table, result in (("Result", PATIENT_ID), ("Ctrl", CONTROL_ID)):
            self.check(self.analyzer.synced(table, result), f"result {result} is not marked in Tb_{table}_Summary")
            self.say(f"Tb_{table}_Summary: ResultID {result} has PCSync 1")

    # Updates

    def _release(self, version: str, seed: int) -> dict[int, bytes]:
        self.version = version
        return make_release(MODEL, version, sample_payloads(SAMPLE_SIZE + seed))

    @contextmanager
    def _bars(self) -> Iterator[Progress]:
        """Progress bars, shown on a terminal only."""
        progress = Progress(TextColumn("   {task.description}"), BarColumn(), TaskProgressColumn(),
                            console=self.console)
        with progress if self.console.is_terminal else nullcontext():
            yield progress

    def _watch_update(self, progress: Progress) -> None:
        """Follows ZELApp's messages to the end of an update."""
        bars, last, reports = {}, {}, 0
        while True:
            message = self.zelapp.receive(30)
            if isinstance(message, UpdateStarts):
                self.say("ZELApp is told what will be written: "
                         + ", ".join(f"{IMAGES[image]} {version}" for image, version in message.images))
            elif isinstance(message, UpdateProgress):
                reports += 1
                last = message.percent
                for image, percent in last.items():
                    if image not in bars:
                        bars[image] = progress.add_task(f"ZELApp sees {IMAGES[image]:4}", total=100)
                    progress.update(bars[image], completed=percent)
            elif isinstance(message, UpdateFailed):
                raise Failed(f"the update failed with error 0x{message.code:08X}")
            elif isinstance(message, UpdateComplete):
                break
        self.say(f"{reports} progress reports, the last: "
                 + ", ".join(f"{IMAGES[image]} {percent} %" for image, percent in last.items()))
        self._check_written()

    def _check_written(self) -> None:
        versions = self.analyzer.read_device("versions.cfg")
        self.check(versions["APP"] == versions["SYS"] == self.version, f"the device records {versions}")
        next_partition = (self.analyzer.device / "next").read_text().strip()
        self.say(f"the device records version {versions['SYS']} and will start from partition {next_partition}")

    def update_from_usb(self) -> None:
        with tempfile.TemporaryDirectory() as stick:
            for image, data in self._release("1.01.00.0002", 0).items():
                (Path(stick) / file_name(image, MODEL)).write_bytes(data)
            self.analyzer.insert_stick(Path(stick))
        self.say(f"a stick with version {self.version} is plugged in; the user starts the update at ZELApp")
        self.zelapp.start_update(method=1)
        with self._bars() as progress:
            self._watch_update(progress)
        self.analyzer.pull_stick()

    def update_from_pc(self) -> None:
        files = self._release("1.02.00.0003", 1)
        offered = {SYS: pc_program.SYS, APP: pc_program.APP, XML: pc_program.XML, DSP: pc_program.DSP}
        self.pc.offer_update(offered.values())
        self.zelapp.expect(UpdateRequested)
        self.zelapp.answer_update_request(possible=True)
        self.zelapp.start_update(method=4)
        self.pc.expect(Command.UPDATE_ACCEPTED, 10)
        self.say(f"the PC offers version {self.version}, ZELApp agrees, the analyzer asks the PC to go on")
        with self._bars() as progress, ThreadPoolExecutor(1) as worker:
            pushing = worker.submit(self._push, [files[image] for image in offered], progress)
            self._watch_update(progress)
            pushing.result()

    def _push(self, files: list[bytes], progress: Progress) -> None:
        bar = progress.add_task("the PC sends    ", total=sum(map(len, files)))
        for data in files:
            self.pc.push_image(data, lambda count: progress.advance(bar, count))

    def update_from_server(self) -> None:
        server = UpdateServer(self.analyzer.sandbox)
        files = self._release("1.03.00.0004", 2)
        server.publish(MODEL, {image: data for image, data in files.items() if image != DSP})
        self.say(f"an update server ({server.name}) offers version {self.version}; the user starts the update at "
                 "ZELApp")
        self.zelapp.start_update(method=3)
        with self._bars() as progress:
            self._watch_update(progress)
        for request in server.requests():
            self.say(f"the server saw: {request}")

    def history(self) -> None:
        rows = self.analyzer.rows("SELECT ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, Method "
                                  "FROM Tb_Update_History")
        self.check({row[-1] for row in rows} == {"USB", "From PC", "INTERNET"}, f"the history holds {rows}")
        table = Table("module", "completed", "took", "from", "to", "method", box=None, pad_edge=False, padding=(0, 1, 0, 0))
        for row in rows:
            table.add_row(*map(str, row))
        self.console.print(table)


Step = tuple[str, Callable[[Demo], None]]

RESULT_STEPS: list[Step] = [
    ("The analyzer's remote service starts", Demo.start),
    ("A PC looks for analyzers on the network", Demo.find),
    ("The PC registers", Demo.register),
    ("ZELApp is told of the connection", Demo.connection_status),
    ("A patient result goes to the PC as HL7", Demo.patient_result),
    ("A control result goes to the PC as HL7", Demo.control_result),
    ("Both are marked as sent in the analyzer's database", Demo.marks),
]
UPDATE_STEPS: list[Step] = [
    ("The software is updated from a USB stick", Demo.update_from_usb),
    ("The PC pushes an update", Demo.update_from_pc),
    ("The software is updated from the update server", Demo.update_from_server),
    ("The update history", Demo.history),
]
STEPS = RESULT_STEPS + UPDATE_STEPS


def run(steps: list[Step], console: Console, kind: type[Demo] = Demo, first: int = 1) -> int:
    if ENGINE.NOTICE and first == 1:
        console.print(ENGINE.NOTICE, highlight=False)
    with Analyzer() as analyzer:
        demo = kind(analyzer, console)
        for number, (title, step) in enumerate(steps, first):
            console.print(f"[bold]{number:2} {title}")
            try:
                step(demo)
            except Exception as error:  # whatever it is: the demo ends here and says what it was
                return report_failure(demo, title, error)
        demo.close()
        status = analyzer.daemon.stop()
        if status != 1 or analyzer.daemon.sanitizer_report():
            return report_failure(demo, "The service ends on SIGTERM", Failed(f"its status is {status}"))
    console.print("[bold green]All of it happened.")
    return 0


def report_failure(demo: Demo, title: str, error: Exception) -> int:
    console = demo.console
    console.print(f"[bold red]Failed: {title}[/]: {escape(f'{type(error).__name__}: {error}')}")
    console.print("[bold]The end of the service's log:")
    for line in demo.log().splitlines()[-20:]:
        console.print(f"   {escape(line)}", highlight=False, soft_wrap=True)
    console.print(escape(demo.analyzer.daemon.stderr()[-4000:]), highlight=False)
    return 1
