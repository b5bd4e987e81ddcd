"""Results flow from real analyzers through a gateway to a LIS that comes and goes, and somebody is killed at random
moments: the gateway, or one analyzer after the other. Nothing may get lost.

    PYTHONPATH=. ZEL_PRESET=pc /usr/bin/python3 pc/tests/system/kills.py [--who analyzers] [--kills 300]

Prints what was counted; status 1 when a result was lost, doubled, or came to the LIS under two numbers.
"""

from __future__ import annotations

import argparse
import random
import sys
import threading
import time
from collections.abc import Iterator
from contextlib import ExitStack, contextmanager
from dataclasses import dataclass, field

from bench.analyzer import PASSWORD, PATIENT, PATIENT_DATA, Analyzer, insert
from bench.daemon import LOG, wait_until
from bench.gateway import Gateway
from bench.lis import Lis, acknowledge
from bench.lis import field as field_of
from bench.sandbox import ENGINE
from bench.zelapp import PATIENT as PATIENT_KIND
from bench.zelapp import ResultFailed, ResultSent

FIRST_RESULT = 1000
RUNS = "the gateway runs"  # log line
BETWEEN = {"gateway": (0.2, 5.0), "analyzers": (0.05, 0.4)}  # seconds from one kill to the next, at random
PATIENCE = 60.0  # seconds until everything that is stored has reached a LIS that stays


def patient(analyzer: int, number: int) -> str:
    return f"K-{analyzer}-{number}"


def fill_database(analyzer: Analyzer, place: int, count: int) -> None:
    database = analyzer.database()
    with database:
        for number in range(count):
            row = dict(ResultID=FIRST_RESULT + number, PatientID=patient(place, number))
            insert(database, "Tb_Result_Summary", PATIENT | row)
            for value in PATIENT_DATA:
                insert(database, "Tb_Result_Data", dict(ResultID=FIRST_RESULT + number) | value)
    database.close()


class Operator(threading.Thread):
    """Sends one result after the other from an analyzer, again and again until the PC has it. The analyzer is killed
    here too, since who waits for its answer must know."""

    def __init__(self, analyzer: Analyzer, count: int, chance: random.Random):
        super().__init__(daemon=True)
        self.analyzer, self.count, self.chance = analyzer, count, chance
        self.sent = self.tries = self.kills = 0
        self.ending, self.kill = threading.Event(), threading.Event()
        self.error: BaseException | None = None

    def run(self) -> None:
        try:
            for number in range(self.count):
                while not self.send(FIRST_RESULT + number):
                    time.sleep(0.05)
                self.sent += 1
                if self.ending.is_set():
                    return
        except BaseException as error:  # its maker shows it
            self.error = error

    def send(self, result: int) -> bool:
        self.tries += 1
        try:
            self.analyzer.zelapp.send_result(PATIENT_KIND, f"ResultID = {result}")
            if self.kill.is_set():
                time.sleep(self.chance.uniform(0, 0.15))  # a result takes about a tenth of a second
                if self.analyzer.daemon.status is None:
                    self.analyzer.daemon.kill()
                self.kills += 1
                self.kill.clear()
                self.start_analyzer()
                return False
            while True:
                message = self.analyzer.zelapp.receive(15)
                if isinstance(message, (ResultSent, ResultFailed)):
                    return isinstance(message, ResultSent)
        except ConnectionError:
            # A PC that goes while it is written to ends the daemon, too: that is how it is built.
            if self.analyzer.daemon.wait(5) != 1:
                raise
            self.start_analyzer()
            return False

    def start_analyzer(self) -> None:
        self.analyzer.zelapp.close()
        for log in self.analyzer.sandbox.path(LOG).parent.iterdir():
            log.unlink()
        self.analyzer.start()


class Weather(threading.Thread):
    """Lets the LIS come and go, reject for a while, and leave without a word."""

    def __init__(self, gateway: Gateway, chance: random.Random):
        super().__init__(daemon=True)
        self.gateway, self.random = gateway, chance
        self.messages: list[str] = []  # that were taken
        self.ending = threading.Event()

    def answer(self, message: str) -> bytes | None:
        chance = self.random.random()
        if chance < 0.1:
            return None
        if chance < 0.2:
            return acknowledge(message, "AE", "busy")
        # Taken, and the answer may get lost on its way.
        self.messages.append(message)
        return None if chance < 0.25 else acknowledge(message)

    def run(self) -> None:
        while not self.ending.is_set():
            lis = Lis(self.gateway.listen(), self.answer)
            self.ending.wait(self.random.uniform(1, 4))
            lis.close()
            self.ending.wait(self.random.uniform(0.1, 1.5))


@dataclass
class Count:
    kills: int = 0
    results: int = 0
    tries: int = 0
    messages: int = 0
    wrong: list[str] = field(default_factory=list)

    def __str__(self) -> str:
        return (f"{self.kills} kills, {self.results} results, {self.tries} tries, {self.messages} messages at the LIS; "
                + ("; ".join(self.wrong) or "lost 0"))


@contextmanager
def laboratory(count: int) -> Iterator[list[Analyzer]]:
    with ExitStack() as stack:
        shared = None
        if count > 1:
            shared = ENGINE.laboratory(count)
            stack.callback(shared.close)
        analyzers = [stack.enter_context(Analyzer(laboratory=shared, number=number)) for number in range(count)]
        for analyzer in analyzers:
            analyzer.start()
        yield analyzers


def run(who: str, kills: int, analyzers: list[Analyzer], results: int, wanted: int = 0, pace: float = 1,
        seed: int = 20261121) -> Count:
    """Kills so many times, and goes on until so many results are `wanted` in all; each analyzer has `results` at most.
    `pace`: what the time between two kills is multiplied with."""
    chance = random.Random(seed)
    for place, analyzer in enumerate(analyzers):
        fill_database(analyzer, place, results)
    gateway = Gateway(analyzers[0].sandbox, PASSWORD)
    weather = Weather(gateway, random.Random(seed + 1))
    operators = [Operator(analyzer, results, random.Random(seed + 2 + place))
                 for place, analyzer in enumerate(analyzers)]
    gateway.start()
    for thread in (weather, *operators):
        thread.start()
    count, lives = Count(), 0
    while (count.kills < kills or count.results < wanted) and any(operator.is_alive() for operator in operators):
        pause = chance.uniform(*BETWEEN[who]) * pace
        if who == "gateway":
            time.sleep(pause)
            gateway.kill()
            lives = gateway.log().count(RUNS)
            gateway.start()
            count.kills += 1
        else:
            time.sleep(pause * 10 / len(operators))
            chance.choice(operators).kill.set()
            count.kills = sum(operator.kills for operator in operators)
        count.results = sum(operator.sent for operator in operators)
    for operator in operators:
        operator.ending.set()
    for operator in operators:
        operator.join()
        if operator.error:
            daemon = operator.analyzer.daemon
            print(f"{daemon.log()[-3000:]}\nthe daemon's status: {daemon.status}\n{daemon.stderr()}")
            raise operator.error
    count.results = sum(operator.sent for operator in operators)
    count.tries = sum(operator.tries for operator in operators)
    weather.ending.set()
    weather.join()
    lis = Lis(gateway.listen())
    wait_until(lambda: not gateway.rows("SELECT 1 FROM delivery WHERE state = 0 UNION ALL SELECT 1 FROM original WHERE "
                                        "id NOT IN (SELECT id FROM result) LIMIT 1"), PATIENCE, "empty queues")
    gateway.wait_for_log(RUNS, count=lives + 1)  # only then does it end in order
    if status := gateway.stop():
        count.wrong.append(f"the gateway ended with {status}: {gateway.log()[-1000:]}")
    judge(count, analyzers, gateway, weather.messages + lis.accepted)
    return count


def judge(count: Count, analyzers: list[Analyzer], gateway: Gateway, messages: list[str]) -> None:
    count.messages = len(messages)
    marked = {row[0] for analyzer in analyzers
              for row in analyzer.rows("SELECT PatientID FROM Tb_Result_Summary WHERE PCSync = 1")}
    stored = [row[0] for row in gateway.rows("SELECT patient FROM result")]
    numbers = {(field_of(message, "PID", 3), field_of(message, "MSH", 10)) for message in messages}
    at_lis = {name for name, _ in numbers}
    files = {path.read_text().split("PID|||")[1].split("|")[0] for path in gateway.files()}
    for wrong, names in (("lost: not in the store", marked - set(stored)), ("lost: not at the LIS", marked - at_lis),
                         ("lost: no file", marked - files), ("delivered but unknown", at_lis - set(stored))):
        if names:
            count.wrong.append(f"{wrong}: {sorted(names)}")
    if len(marked) != count.results:
        count.wrong.append(f"{count.results} results were reported as sent and {len(marked)} are marked")
    if len(stored) != len(set(stored)):
        count.wrong.append("a result is in the store twice")
    if len(numbers) != len(at_lis):
        count.wrong.append("a repeated message came under another number")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--who", choices=("gateway", "analyzers"), default="gateway", help="who is killed")
    parser.add_argument("--kills", type=int, default=300)
    parser.add_argument("--analyzers", type=int, default=10 if ENGINE.OWN_NETWORK else 1)
    parser.add_argument("--results", type=int, default=3000, help="at most, of each analyzer")
    parser.add_argument("--wanted", type=int, default=2000, help="in all, at least")
    parser.add_argument("--pace", type=float, default=1, help="of the time between two kills; more of it, more results")
    options = parser.parse_args()
    with laboratory(options.analyzers) as analyzers:
        count = run(options.who, options.kills, analyzers, options.results, options.wanted, options.pace)
    print(count)
    return 1 if count.wrong or count.kills < options.kills or count.results < options.wanted else 0


if __name__ == "__main__":
    sys.exit(main())
