"""A real RabbitMQ broker on the PC."""

from __future__ import annotations

from bench.daemon import wait_until
from bench.sandbox import Sandbox

SERVER = "/usr/lib/rabbitmq/bin/rabbitmq-server"
ENVIRONMENT = {
    "RABBITMQ_NODENAME": "zel@localhost", "RABBITMQ_NODE_IP_ADDRESS": "127.0.0.1", "ERL_EPMD_ADDRESS": "127.0.0.1",
    "RABBITMQ_MNESIA_BASE": "{home}/mnesia", "RABBITMQ_PID_FILE": "{home}/pid", "RABBITMQ_LOGS": "-", "HOME": "{home}",
    "RABBITMQ_LOG_BASE": "{home}", "RABBITMQ_UPGRADE_LOG": "{home}/upgrade.log", "ERL_CRASH_DUMP": "{home}/crash.dump",
    "RABBITMQ_ENABLED_PLUGINS_FILE": "{home}/plugins", "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS": "+S 1:1 +sbwt none",
}


class Rabbit:
    def __init__(self, sandbox: Sandbox):
        self.sandbox = sandbox
        self._home = sandbox.root / "rabbit"
        self._home.mkdir()
        self._environment = {name: text.format(home=self._home) for name, text in ENVIRONMENT.items()}
        self._log = sandbox.root / "rabbit.log"
        self._started = 0
        self.start()

    def start(self) -> None:
        with open(self._log, "ab") as log:
            self._process = self.sandbox.pc.spawn([SERVER], log, log, self._environment)
        self._started += 1
        wait_until(lambda: self._log.read_text().count("Server startup complete") == self._started, 60, "the broker")

    def kill(self) -> None:
        """As a crash: the broker itself, whose number stands in its file, not the shell around it."""
        self.sandbox.pc.run("sh", "-c", f"kill -9 $(cat {self._home}/pid)")
        self._process.wait(20)

    def queues(self) -> str:
        with open(self.sandbox.root / "rabbitctl", "wb") as output, open("/dev/null", "wb") as null:
            control = self.sandbox.pc.spawn(["/usr/lib/rabbitmq/bin/rabbitmqctl", "-q", "list_queues", "name", "type",
                                          "durable", "messages"], output, null, self._environment)
            control.wait(60)
        return (self.sandbox.root / "rabbitctl").read_text()

    def take(self, queue: str, count: int) -> list[str]:
        """So many messages of the queue, removed from it."""
        return [self.sandbox.pc.run("amqp-get", "-s", "127.0.0.1", "-q", queue) for _ in range(count)]
