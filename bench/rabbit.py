"""A real RabbitMQ broker on the PC."""

from __future__ import annotations

import os
import shutil
from pathlib import Path

from bench.daemon import wait_until
from bench.sandbox import PROJECT, Sandbox

UNPACKED = PROJECT / "build/rabbitmq/usr"
ENVIRONMENT = {
    "PATH": f"{UNPACKED}/lib/erlang/bin:{os.environ['PATH']}",
    "RABBITMQ_NODENAME": "zel@localhost", "RABBITMQ_NODE_IP_ADDRESS": "127.0.0.1", "ERL_EPMD_ADDRESS": "127.0.0.1",
    "RABBITMQ_MNESIA_BASE": "{home}/mnesia", "RABBITMQ_PID_FILE": "{home}/pid", "RABBITMQ_LOGS": "-", "HOME": "{home}",
    "RABBITMQ_LOG_BASE": "{home}", "RABBITMQ_UPGRADE_LOG": "{home}/upgrade.log", "ERL_CRASH_DUMP": "{home}/crash.dump",
    "RABBITMQ_ENABLED_PLUGINS_FILE": "{home}/plugins", "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS": "+S 1:1 +sbwt none",
}


def rabbit_folder() -> Path | None:
    """Where the broker's programs lie: on the machine, or as `./zel` has unpacked them; None when there are none."""
    if not shutil.which("amqp-get"):
        return None
    folders = (usr / "lib/rabbitmq/bin" for usr in (UNPACKED, Path("/usr")))
    return next((folder for folder in folders if (folder / "rabbitmq-server").exists()), None)


class Rabbit:
    def __init__(self, sandbox: Sandbox):
        folder = rabbit_folder()
        assert folder
        self.sandbox, self._programs = sandbox, folder
        self._home = sandbox.root / "rabbit"
        self._home.mkdir()
        self._environment = {name: text.format(home=self._home) for name, text in ENVIRONMENT.items()}
        self._log = sandbox.root / "rabbit.log"
        self._started = 0
        self.start()

    def start(self) -> None:
        server = str(self._programs / "rabbitmq-server")
        with open(self._log, "ab") as log:
            self._process = self.sandbox.pc.spawn([server], log, log, self._environment)
        self._started += 1
        wait_until(lambda: self._log.read_text().count("Server startup complete") == self._started, 120, "the broker")

    def kill(self) -> None:
        """As a crash: the broker itself, whose number stands in its file, not the shell around it."""
        self.sandbox.pc.run("sh", "-c", f"kill -9 $(cat {self._home}/pid)")
        self._process.wait(20)

    def queues(self) -> str:
        with open(self.sandbox.root / "rabbitctl", "w+b") as output, open(self._log, "ab") as log:
            control = self.sandbox.pc.spawn([str(self._programs / "rabbitmqctl"), "-q", "list_queues", "name", "type",
                                             "durable", "messages"], output, log, self._environment)
            control.wait(60)
            output.seek(0)
            return output.read().decode()

    def take(self, queue: str, count: int) -> list[str]:
        """So many messages of the queue, removed from it."""
        return [self.sandbox.pc.run("amqp-get", "-s", "127.0.0.1", "-q", queue) for _ in range(count)]
