"""A simulated analyzer that stays up until Ctrl-C, for other programs to be tried on: what `./zel run` starts."""

from __future__ import annotations

import argparse
import os
import select
import signal
import sys
import threading
from collections.abc import Callable

from bench.analyzer import ANIMAL_ID, CONFIG, CONTROL_ID, DATABASE, DEVICE, PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import LOG
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS, USB_ANALYZER_ADDRESS, USB_PC_ADDRESS
from bench.zelapp import CONTROL, PATIENT, ZelApp

def accept_update(zelapp: ZelApp) -> None:
    zelapp.answer_update_request(possible=True)
    zelapp.start_update(4)


COMMANDS: dict[str, tuple[str, Callable[[ZelApp], None]]] = {
    "patient": ("send the sample patient result", lambda app: app.send_result(PATIENT, f"ResultID = {PATIENT_ID}")),
    "animal": ("send the sample animal result", lambda app: app.send_result(PATIENT, f"ResultID = {ANIMAL_ID}")),
    "control": ("send the sample control result", lambda app: app.send_result(CONTROL, f"ResultID = {CONTROL_ID}")),
    "usb": ("update from the USB stick", lambda app: app.start_update(1)),
    "pc": ("update by the PC", lambda app: app.start_update(2)),
    "server": ("update from the update server", lambda app: app.start_update(3)),
    "accept": ("accept the update that the PC offered", accept_update),
}


def explain(analyzer: Analyzer, own_zelapp: bool) -> None:
    sandbox = analyzer.sandbox
    user = "" if os.geteuid() == 0 else "-U --preserve-credentials "
    print(f"""A simulated analyzer is up (process {analyzer.daemon.process.pid} inside).

network      the analyzer is {ANALYZER_ADDRESS} (UDP 9035, TCP 9034), a PC is {PC_ADDRESS};
             over the USB network link {USB_ANALYZER_ADDRESS} and {USB_PC_ADDRESS}
PC program   nsenter -t {sandbox.init_pid} {user}-n PROGRAM        (your program, on the PC's network)
inside       nsenter -t {sandbox.init_pid} {user}-n -m -p sh       (a shell on the analyzer)
password     {PASSWORD}
log          {sandbox.path(LOG)}
settings     {sandbox.path(CONFIG)}
database     {sandbox.path(DATABASE)}
device       {sandbox.path(DEVICE)}   (a USB stick is a directory "usb" in it)
ZELApp       {"played here" if own_zelapp else f"waits for yours at {sandbox.path('/tmp/.rm_proc')}"}
""")
    if own_zelapp:
        print("Type one of these for ZELApp to do, or Ctrl-C to end:")
        for name, (text, _) in COMMANDS.items():
            print(f"   {name:8} {text}")
    sys.stdout.flush()


def print_messages(zelapp: ZelApp, stopped: threading.Event) -> None:
    while not stopped.is_set():
        try:
            print(f"ZELApp receives {zelapp.receive(0.2)}", flush=True)
        except TimeoutError:
            continue
        except (ConnectionError, OSError, ValueError) as error:
            print(f"ZELApp: {error}", flush=True)
            return


def watch(analyzer: Analyzer, zelapp: ZelApp | None) -> None:
    """Takes commands until the daemon ends; Ctrl-C leaves by its exception."""
    inputs = [sys.stdin] if zelapp and sys.stdin.isatty() else []
    while analyzer.daemon.status is None:
        if not select.select(inputs, [], [], 0.5)[0]:
            continue
        line = sys.stdin.readline()
        if not line:
            inputs = []
        elif line.strip() in COMMANDS:
            COMMANDS[line.strip()][1](zelapp)
        elif line.strip():
            print(f"unknown; one of {', '.join(COMMANDS)}", flush=True)
    print(f"The daemon ended with status {analyzer.daemon.status}")


def parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="./zel run", description=__doc__)
    parser.add_argument("--veterinary", action="store_true", help="a Veterinary analyzer instead of a Human one")
    parser.add_argument("--no-zelapp", action="store_true", help="leave the local socket to a ZELApp of yours")
    return parser


def main() -> int:
    options = parser().parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    stopped = threading.Event()
    with Analyzer("Veterinary" if options.veterinary else "Human") as analyzer:
        printer = threading.Thread(target=print_messages, args=(analyzer.zelapp, stopped))
        try:
            if options.no_zelapp:
                analyzer.daemon.start()
                explain(analyzer, own_zelapp=False)
                watch(analyzer, None)
            else:
                analyzer.start()
                explain(analyzer, own_zelapp=True)
                printer.start()
                watch(analyzer, analyzer.zelapp)
        except KeyboardInterrupt:
            print("\nThe simulated analyzer is taken down.")
            return 0
        finally:
            stopped.set()
            if printer.is_alive():
                printer.join()
    return 1


if __name__ == "__main__":
    sys.exit(main())
