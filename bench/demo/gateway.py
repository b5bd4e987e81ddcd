"""The PC's side at work: the steps of `./zel demo` that follow once zelpc is built."""

from __future__ import annotations

import contextlib
import select
import socket
import sys
import threading

from rich.console import Console

from bench.analyzer import PASSWORD, PATIENT_ID, Analyzer
from bench.daemon import wait_until
from bench.demo.service import STEPS, Demo, run
from bench.gateway import MLLP, WEB_PORT, Gateway
from bench.lis import Lis, field
from bench.machine import PROJECT
from bench.run.expose import HOST, pump
from bench.sandbox import ANALYZER_ADDRESS, PC_ADDRESS
from bench.zelapp import PATIENT, PcConnection, ResultSent

PROGRAM = PROJECT / "build/pc/bin/zelpc"
OPEN_FOR = 60  # seconds, on a terminal

HOLD = """
[[analyzer]]
address = "{address}"
password_file = "{state}/password"
"""


class GatewayDemo(Demo):
    """The same analyzer, and zelpc's gateway as its PC."""

    def __init__(self, analyzer: Analyzer, console: Console):
        super().__init__(analyzer, console)
        self.pc.close()  # the gateway is the PC
        state = analyzer.sandbox.root / "gateway"
        self.gateway = Gateway(analyzer.sandbox, PASSWORD, MLLP, HOLD.format(address=ANALYZER_ADDRESS, state=state),
                               scan=False, program=str(PROGRAM))
        self.lis = Lis(self.gateway.listen())

    def take(self) -> None:
        self.analyzer.start()
        self.gateway.start()
        wait_until(lambda: "registered" in self.gateway.log(), 30, "the gateway registered")
        status = self.zelapp.expect(PcConnection, 30)
        self.say(f'zelpc found the analyzer and is its PC: ZELApp is told of "{status.name}" at {status.address}')

    def deliver(self) -> None:
        self.zelapp.send_result(PATIENT, f"ResultID = {PATIENT_ID}")
        self.zelapp.expect(ResultSent)
        self.say("the result is on the gateway's disk, and only then acknowledged to the analyzer")
        wait_until(lambda: bool(self.lis.accepted), 20, "the LIS got the result")
        message = self.lis.accepted[0]
        self._print_hl7(message)
        self.say(f"the LIS at {PC_ADDRESS} answered AA for message {field(message, 'MSH', 10)}")
        wait_until(lambda: self.gateway.get("/api/queues")[0]["delivered"] == 1, 20, "the gateway noted the answer")
        self.say("the gateway's queue is empty again")

    def page(self) -> None:
        response, text = self.gateway.request("GET", "/")
        self.check(response.status == 200 and "P-4711" in text, "the page does not show the result")
        with Relay(self.analyzer.sandbox.socket) as address:
            self.say(f"the gateway's page shows it: http://{address}/")
            if self.console.is_terminal and sys.stdin.isatty():
                self.say(f"it is there for {OPEN_FOR} s, or until Enter")
                select.select([sys.stdin], [], [], OPEN_FOR)

    def end(self) -> None:
        status = self.gateway.stop()
        self.check(status == 0, f"the gateway ended with status {status}")
        self.say("SIGTERM: it has ended in order")

    def close(self) -> None:
        self.lis.close()

    def log(self) -> str:
        return "\n".join([*super().log().splitlines()[-10:], "The gateway:", *self.gateway.log().splitlines()[-9:]])


class Relay(contextlib.AbstractContextManager[str]):
    """Makes the page of the sandbox's PC one of this machine."""

    def __init__(self, make_socket):
        self._make_socket = make_socket
        self._listener = socket.create_server((HOST, 0))
        threading.Thread(target=self._serve, daemon=True).start()

    def __enter__(self) -> str:
        return "{}:{}".format(*self._listener.getsockname())

    def __exit__(self, *_: object) -> None:
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def _serve(self) -> None:
        while True:
            try:
                browser, _ = self._listener.accept()
            except OSError:
                return
            page = self._make_socket(socket.SOCK_STREAM)
            page.connect(("127.0.0.1", WEB_PORT))
            for source, target in ((browser, page), (page, browser)):
                threading.Thread(target=pump, args=(source, target), daemon=True).start()


GATEWAY_STEPS = [
    ("The laboratory's gateway takes the analyzer", GatewayDemo.take),
    ("A result goes through the gateway to the laboratory's system", GatewayDemo.deliver),
    ("The gateway's page", GatewayDemo.page),
    ("The gateway ends", GatewayDemo.end),
]


def show(console: Console) -> int:
    return run(GATEWAY_STEPS, console, GatewayDemo, first=len(STEPS) + 1)


