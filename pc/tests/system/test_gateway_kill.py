"""The gateway killed at random moments while results flow and the LIS comes and goes: nothing may get lost.

ZEL_KILLS=20 makes a longer run of it.
"""

from __future__ import annotations

import os
import random
import threading
import time
from pathlib import Path

import pytest

from bench.analyzer import PASSWORD, PATIENT, PATIENT_DATA, Analyzer, insert
from bench.daemon import wait_until
from bench.gateway import ZELPC, Gateway
from bench.lis import Lis, acknowledge, field
from bench.zelapp import PATIENT as PATIENT_KIND
from bench.zelapp import ResultFailed, ResultSent

pytestmark = pytest.mark.skipif(not Path(ZELPC).exists(), reason="zelpc is not built (./zel test pc does)")
KILLS = int(os.environ.get("ZEL_KILLS", "4"))
RESULTS_PER_KILL = 40  # more than there is time for


def fill_database(analyzer: Analyzer, count: int) -> None:
    database = analyzer.database()
    with database:
        for number in range(count):
            insert(database, "Tb_Result_Summary", PATIENT | dict(ResultID=1000 + number, PatientID=f"K-{number}"))
            for row in PATIENT_DATA:
                insert(database, "Tb_Result_Data", dict(ResultID=1000 + number) | row)
    database.close()


class Operator(threading.Thread):
    """Sends one result after the other from the analyzer, again and again until the PC has it."""

    def __init__(self, analyzer: Analyzer, count: int):
        super().__init__(daemon=True)
        self.analyzer, self.count, self.sent, self.tries = analyzer, count, 0, 0
        self.ending = threading.Event()
        self.error: BaseException | None = None

    def run(self) -> None:
        try:
            for number in range(self.count):
                while not self.send(1000 + number):
                    time.sleep(0.05)
                self.sent += 1
                if self.ending.is_set():
                    return
        except BaseException as error:  # the test shows it
            self.error = error

    def send(self, result: int) -> bool:
        self.tries += 1
        self.analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {result}")
        while True:
            message = self.analyzer.zelapp.receive(15)
            if isinstance(message, (ResultSent, ResultFailed)):
                return isinstance(message, ResultSent)


class Weather(threading.Thread):
    """Lets the LIS come and go, reject for a while, and leave without a word."""

    def __init__(self, gateway: Gateway, random_: random.Random):
        super().__init__(daemon=True)
        self.gateway, self.random = gateway, random_
        self.messages: list[tuple[str, bool]] = []  # text, and whether it was accepted
        self.ending = threading.Event()

    def answer(self, message: str) -> bytes | None:
        chance = self.random.random()
        if chance < 0.1:
            self.messages.append((message, False))
            return None
        if chance < 0.2:
            self.messages.append((message, False))
            return acknowledge(message, "AE", "busy")
        # Taken, and the answer may get lost on its way.
        self.messages.append((message, True))
        return None if chance < 0.25 else acknowledge(message)

    def run(self) -> None:
        while not self.ending.is_set():
            lis = Lis(self.gateway.listen(), self.answer)
            self.ending.wait(self.random.uniform(1, 4))
            lis.close()
            self.ending.wait(self.random.uniform(0.1, 1.5))


def test_no_result_is_lost_when_the_gateway_is_killed(analyzer: Analyzer) -> None:
    chance = random.Random(20261121)
    count = KILLS * RESULTS_PER_KILL
    fill_database(analyzer, count)
    gateway = Gateway(analyzer.sandbox, PASSWORD)
    weather = Weather(gateway, chance)
    operator = Operator(analyzer, count)
    gateway.start()
    weather.start()
    operator.start()
    for _ in range(KILLS):
        time.sleep(chance.uniform(0.2, 5))
        gateway.kill()
        gateway.start()
    operator.ending.set()
    operator.join()
    assert operator.error is None, operator.error
    weather.ending.set()
    weather.join()

    lis = Lis(gateway.listen())
    wait_until(lambda: not gateway.rows("SELECT 1 FROM delivery WHERE state = 0 LIMIT 1"), 60, "empty queues")
    assert gateway.stop() == 0, gateway.log()[-3000:]
    messages = [message for message, accepted in weather.messages if accepted] + lis.accepted
    marked = {row[0] for row in analyzer.rows("SELECT PatientID FROM Tb_Result_Summary WHERE PCSync = 1")}
    stored = [row[0] for row in gateway.rows("SELECT patient FROM result")]
    at_lis = {field(message, "PID", 3) for message in messages}
    numbers = {(field(message, "PID", 3), field(message, "MSH", 10)) for message in messages}
    files = {path.read_text().split("PID|||")[1].split("|")[0] for path in gateway.files()}
    print(f"{KILLS} kills, {operator.sent} results, {operator.tries} tries, {len(messages)} messages at the LIS, "
          f"lost {len(marked - at_lis)}")
    assert len(marked) == operator.sent >= KILLS
    assert sorted(stored) == sorted(marked), "a marked result is not in the store, or there twice"
    assert at_lis == marked and files == marked
    assert len(numbers) == len(marked), "a repeated message came under another number"
