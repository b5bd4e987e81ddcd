"""Simulated analyzers that stay up until Ctrl-C, for other programs to be tried on.

What is typed or piped in is done by ZELApp, which is played here, or happens to the device; "help" lists it.
"""

from __future__ import annotations

import argparse
import os
import queue
import signal
import sys
import threading
from contextlib import ExitStack
from pathlib import Path
from typing import Any

from bench.analyzer import CONFIG, DATABASE, DEVICE, PASSWORD, Analyzer
from bench.daemon import LOG
from bench.run import commands
from bench.run.expose import HOST, TCP_PORT, UDP_PORT, Expose
from bench.run.report import Reporter
from bench.run.results import SAMPLES, add
from bench.run.surroundings import make_publication, make_stick
from bench.run.unit import Unit
from bench.sandbox import ENGINE, PC_ADDRESS, USB_ANALYZER_ADDRESS, USB_PC_ADDRESS, SandboxError
from bench.updateserver import UpdateServer
from bench.zelapp import SOCKET_PATH


def count(text: str) -> int:
    if not text.isdigit() or not 1 <= int(text) <= ENGINE.MOST_ANALYZERS:
        most = ENGINE.MOST_ANALYZERS
        raise argparse.ArgumentTypeError(f"1 to {most} can be had" if most > 1 else "without namespaces there is one")
    return int(text)


def parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="./zel run", description=__doc__)
    parser.add_argument("--veterinary", action="store_true", help="Veterinary analyzers instead of Human ones")
    parser.add_argument("--analyzers", type=count, default=1, metavar="N", help="how many, side by side on one network")
    parser.add_argument("--expose", type=int, metavar="PORT", help=f"reachable from this machine: TCP {TCP_PORT} at "
                        f"PORT of {HOST}, UDP {UDP_PORT} at the one after; the next analyzer has the next two")
    parser.add_argument("--result", action="append", default=[], type=Path, metavar="FILE",
                        help="one more result, to be sent by the file's name; samples are in bench/run/samples")
    parser.add_argument("--stick", type=Path, metavar="DIR",
                        help="what the USB stick holds; made with a sample release when it is missing")
    parser.add_argument("--server", type=Path, metavar="DIR",
                        help="what the update server serves; made with a sample release when it is missing")
    parser.add_argument("--no-zelapp", action="store_true", help="leave the local socket to a ZELApp of yours")
    parser.add_argument("--json", action="store_true", help="for programs: each event is a JSON object on a line")
    return parser


class Run:
    def __init__(self, options: argparse.Namespace):
        self.options = options
        self.reporter = Reporter(options.json, options.analyzers > 1)
        self.units: list[Unit] = []
        self.expose: Expose | None = None

    def start(self, stack: ExitStack) -> None:
        """Starts everything; the stack takes it down again."""
        options = self.options
        model = "Veterinary" if options.veterinary else "Human"
        laboratory = ENGINE.laboratory(options.analyzers)
        stack.callback(laboratory.close)
        analyzers = [stack.enter_context(Analyzer(model, laboratory=laboratory, number=number))
                     for number in range(options.analyzers)]
        first = analyzers[0].sandbox
        stick, publication = options.stick or first.root / "stick", options.server or first.root / "publication"
        for made, directory in ((make_stick, stick), (make_publication, publication)):
            if made(directory, model.lower()) and first.root not in directory.parents:
                self.reporter.tell("made", f"{directory} is made, with a sample release.", path=str(directory))
        UpdateServer(first, publication)
        for number, analyzer in enumerate(analyzers, 1):
            unit = Unit(analyzer, number, not options.no_zelapp, stick, self.reporter)
            unit.results |= {path.stem: add(analyzer, path) for path in [*sorted(SAMPLES.glob("*.json")), *options.result]}
            stack.callback(unit.close)
            self.units.append(unit)
        if options.expose is not None:
            self.expose = Expose([analyzer.sandbox for analyzer in analyzers], options.expose)
            stack.callback(self.expose.close)
        for unit in self.units:
            unit.start()

    def describe(self) -> list[dict[str, Any]]:
        """What a program needs to know about each analyzer."""
        described = []
        for i, unit in enumerate(self.units):
            sandbox = unit.analyzer.sandbox
            paths = {name: str(sandbox.path(inside)) for name, inside in
                     (("log", LOG), ("settings", CONFIG), ("database", DATABASE), ("device", DEVICE),
                      ("local_socket", SOCKET_PATH))}
            exposed = {"exposed": {"address": HOST, "tcp_port": self.expose.ports[i][0],
                                   "udp_port": self.expose.ports[i][1]}} if self.expose else {}
            described.append({"address": sandbox.address, "tcp_port": TCP_PORT, "udp_port": UDP_PORT,
                              "serial": unit.analyzer.serial, **exposed, **paths})
        return described

    def way_in(self, pid: int, *more: str) -> list[str]:
        """What stands before a program that is to run on a machine of the sandbox."""
        if not ENGINE.OWN_NETWORK:
            return []
        user = [] if os.geteuid() == 0 else ["-U", "--preserve-credentials"]
        return ["nsenter", "-t", str(pid), *user, "-n", *more]

    def explain(self) -> None:
        analyzers, first = self.describe(), self.units[0].analyzer.sandbox
        on_pc = self.way_in(first.pc.pid)
        if self.options.json:
            self.reporter.tell("up", "The simulated analyzers are up.", analyzers=analyzers, pc_address=PC_ADDRESS,
                               password=PASSWORD, on_pc=on_pc, commands=[row.words for row in commands.COMMANDS])
            return
        lines = [ENGINE.NOTICE] if ENGINE.NOTICE else []
        for number, analyzer in enumerate(analyzers, 1):
            lines += ["", f"Analyzer {number} is up, serial number {analyzer['serial']}.",
                      f"   network    {analyzer['address']}, UDP {UDP_PORT} and TCP {TCP_PORT}"]
            if self.expose:
                tcp, udp = self.expose.ports[number - 1]
                lines.append(f"   from here  {HOST}, UDP {udp} and TCP {tcp}")
            lines += [f"   {name:10} {analyzer[name]}" for name in ("log", "settings", "database", "device")]
            if self.options.no_zelapp:
                lines.append(f"   ZELApp     waits for yours at {analyzer['local_socket']}")
        lines += ["", f"The PC is {PC_ADDRESS}; the administrator's password is {PASSWORD}."]
        if ENGINE.OWN_NETWORK:
            lines += [f"Over the USB network link analyzer 1 is {USB_ANALYZER_ADDRESS}, and the PC {USB_PC_ADDRESS}.",
                      "To start a program on the PC, type before it:", f"   {' '.join(on_pc)}",
                      "To look around on analyzer 1:",
                      f"   {' '.join(self.way_in(first.analyzer.pid, '-m', '-p', 'sh'))}"]
        lines += ["", 'Type one of these, or Ctrl-C to end; "send" knows',
                  f"   {', '.join(self.units[0].results)}:",
                  *commands.table(len(self.units) > 1, not self.options.no_zelapp), ""]
        print("\n".join(lines), flush=True)

    def take_commands(self) -> int:
        """Carries out what comes over standard input; its end ends nothing."""
        lines: queue.Queue[str] = queue.Queue()
        threading.Thread(target=lambda: [lines.put(line.strip()) for line in sys.stdin], daemon=True).start()
        while all(unit.alive for unit in self.units):
            try:
                line = lines.get(timeout=0.5)
            except queue.Empty:
                continue
            if line == "quit":
                return 0
            if line == "help":
                self.explain()
            elif line:
                try:
                    commands.carry_out(line, self.units, not self.options.no_zelapp)
                except (ValueError, OSError, SandboxError) as error:
                    self.reporter.tell("error", str(error), command=line)
        return 1


def main() -> int:
    options = parser().parse_args()
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(0))
    run = Run(options)
    with ExitStack() as stack:
        try:
            run.start(stack)
            run.explain()
            return run.take_commands()
        except KeyboardInterrupt:
            print("\nThe simulated analyzers are taken down.", file=sys.stderr)
            return 0
        except (ValueError, OSError, RuntimeError, SandboxError) as error:
            print(f"zel: {error}", file=sys.stderr)
            return 1


if __name__ == "__main__":
    sys.exit(main())
