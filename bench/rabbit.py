"""A real RabbitMQ broker inside a sandbox."""

from __future__ import annotations

from bench.daemon import wait_until
from bench.sandbox import Sandbox

SERVER = "/usr/lib/rabbitmq/bin/rabbitmq-server"
HOME = "/tmp/rabbit"
ENVIRONMENT = {
    "RABBITMQ_NODENAME": "zel@localhost", "RABBITMQ_NODE_IP_ADDRESS": "127.0.0.1", "ERL_EPMD_ADDRESS": "127.0.0.1",
    "RABBITMQ_MNESIA_BASE": f"{HOME}/mnesia", "RABBITMQ_PID_FILE": f"{HOME}/pid", "RABBITMQ_LOGS": "-",
    "RABBITMQ_ENABLED_PLUGINS_FILE": f"{HOME}/plugins", "RABBITMQ_SERVER_ADDITIONAL_ERL_ARGS": "+S 1:1 +sbwt none",
}


class Rabbit:
    def __init__(self, sandbox: Sandbox):
        self.sandbox = sandbox
        sandbox.path(HOME).mkdir()
        self._log = sandbox.root / "rabbit.log"
        self._started = 0
        self.start()

    def start(self) -> None:
        with open(self._log, "ab") as log:
            self._process = self.sandbox.spawn([SERVER], log, log, ENVIRONMENT)
        self._started += 1
        wait_until(lambda: self._log.read_text().count("Server startup complete") == self._started, 60, "the broker")

    def kill(self) -> None:
        """As a crash: the broker itself, whose number stands in its file, not the shell around it."""
        self.sandbox.run("sh", "-c", f"kill -9 $(cat {HOME}/pid)")
        self._process.wait(20)

    def queues(self) -> str:
        with open(self.sandbox.root / "rabbitctl", "wb") as output, open("/dev/null", "wb") as null:
            control = self.sandbox.spawn(["/usr/lib/rabbitmq/bin/rabbitmqctl", "-q", "list_queues", "name", "type",
                                          "durable", "messages"], output, null, ENVIRONMENT)
            control.wait(60)
        return (self.sandbox.root / "rabbitctl").read_text()

    def take(self, queue: str, count: int) -> list[str]:
        """So many messages of the queue, removed from it."""
        return [self.sandbox.run("amqp-get", "-s", "127.0.0.1", "-q", queue) for _ in range(count)]
