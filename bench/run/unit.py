"""One simulated analyzer of `./zel run`: its service under supervision, and what its user and its surroundings do."""

from __future__ import annotations

import shutil
import threading
import time
from pathlib import Path

from bench.analyzer import Analyzer
from bench.run.report import Reporter
from bench.run.results import PRESENT, Result
from bench.zelapp import PcConnection

SHORT_LIFE = 3.0
MOST_SHORT_LIVES = 3


class Unit:
    """Starts the service again when it ends, as on the device; its ends are part of how it works."""

    def __init__(self, analyzer: Analyzer, number: int, own_zelapp: bool, stick: Path, reporter: Reporter):
        """`number` is counted from 1; `stick` is what a USB stick holds."""
        self.analyzer, self.number = analyzer, number
        self.results: dict[str, Result] = dict(PRESENT)
        self.alive = True  # false when the service cannot be kept up
        self._own_zelapp, self._stick, self._reporter = own_zelapp, stick, reporter
        self._stopped = threading.Event()
        self._started = 0.0
        self._short_lives = 0
        self._thread = threading.Thread(target=self._supervise)

    def start(self) -> None:
        self._start_service()
        self._thread.start()

    def close(self) -> None:
        self._stopped.set()
        if self._thread.is_alive():
            self._thread.join()

    def tell(self, event: str, text: str) -> None:
        self._reporter.tell(event, text, self.number)

    def _start_service(self) -> None:
        self._started = time.monotonic()
        if self._own_zelapp:
            self.analyzer.zelapp.close()
            self.analyzer.start()
            # A PC that was connected by then has been told of with the start.
            for message in self.analyzer.zelapp.history[-2:]:
                if isinstance(message, PcConnection):
                    self._reporter.tell_message(message, self.number)
        else:
            self.analyzer.daemon.start()

    def _supervise(self) -> None:
        while not self._stopped.is_set():
            try:
                if self._own_zelapp:
                    self._reporter.tell_message(self.analyzer.zelapp.receive(0.2), self.number)
                elif self.analyzer.daemon.status is None:
                    self._stopped.wait(0.2)
                else:
                    self._start_again()
            except TimeoutError:
                continue
            except ValueError as error:
                self.tell("error", f"ZELApp: {error}")
            except OSError:  # the connection went with the service
                self._start_again()

    def _start_again(self) -> None:
        try:
            status = self.analyzer.daemon.wait(20)
        except TimeoutError:
            self.analyzer.daemon.kill()
            status = -9
        self._short_lives = self._short_lives + 1 if time.monotonic() - self._started < SHORT_LIFE else 0
        if self._short_lives >= MOST_SHORT_LIVES:
            self.tell("gone", f"The service ended at once with status {status}, three times; see its log.")
            self.alive = False
            self._stopped.set()
            return
        self.tell("ended", f"the service ended with status {status} and is started again, as on the device")
        try:
            self._start_service()
        except (OSError, RuntimeError) as error:
            self.tell("gone", f"The service cannot be started again: {error}")
            self.alive = False
            self._stopped.set()

    # What a user or the surroundings do

    def restart(self) -> None:
        self.analyzer.daemon.signal(15)

    def send_result(self, name: str) -> None:
        if name not in self.results:
            raise ValueError(f"there is no result {name}, but {', '.join(self.results)}")
        self.results[name].send(self.analyzer)

    def plug_stick(self) -> None:
        self.unplug_stick()
        shutil.copytree(self._stick, self.analyzer.device / "new_stick")
        # At once: the service may be looking for it.
        (self.analyzer.device / "new_stick").rename(self.analyzer.device / "usb")

    def unplug_stick(self) -> None:
        shutil.rmtree(self.analyzer.device / "usb", ignore_errors=True)

    def set_fault(self, text: str) -> None:
        """`NAME=VALUE` of the device library's faults; the empty text takes all away."""
        faults = self.analyzer.read_device("faults.cfg") if (self.analyzer.device / "faults.cfg").exists() else {}
        name, _, value = text.partition("=")
        if text and not value:
            raise ValueError(f"a fault is NAME=VALUE, not {text}")
        self.analyzer.write_device("faults.cfg", faults | {name: value} if text else {})

    def set_cable(self, plugged: bool) -> None:
        self.analyzer.sandbox.laboratory.set_cable(self.number - 1, plugged)
