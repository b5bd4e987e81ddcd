"""A soak run: a PC and ZELApp without pause, with lost connections, garbage and restarts.

A life of the daemon begins with a warm-up in which every kind of operation happens once; it takes about a minute. Then
operations follow each other in random order, and about every twenty seconds everybody leaves and the daemon is looked
at while it rests. A long life ends by design, and a short one by each of the other designs; any other end is a failure.
A run of less than three minutes says nothing about drift of latency. Status 1 when anything failed.
"""

from __future__ import annotations

import argparse
import sys
import time
from collections.abc import Callable

from rich.console import Console
from rich.markup import escape

from bench.analyzer import Analyzer
from bench.daemon import preset
from bench.soak import disturbances, operations, report, updates
from bench.soak.endings import ENDINGS, end
from bench.soak.records import Records, Wrong, check, latency_drift, memory_drift
from bench.soak.world import LifeOver, World

# Operation -> how often it comes in a round; the daemon is mostly asked, and some things take their time.
OPERATIONS: dict[Callable[[World], None], int] = {
    operations.scans: 6,
    operations.device_information_requests: 8,
    operations.heartbeat: 4,
    operations.results: 16,
    operations.result_that_does_not_exist: 3,
    operations.request_file_that_is_not_usable: 3,
    operations.result_without_acknowledgement: 2,
    operations.acknowledgement_beside_an_answer: 2,
    disturbances.pc_lost_during_a_result: 1,
    operations.register_again: 2,
    operations.wrong_password: 3,
    operations.another_pc_takes_over: 1,
    operations.fight: 1,
    disturbances.lost_connection: 6,
    disturbances.second_session: 3,
    disturbances.connect_flood: 2,
    disturbances.silent_pc: 1,
    disturbances.malformed_datagrams: 2,
    disturbances.garbage_from_zelapp: 3,
    disturbances.message_in_pieces: 2,
    updates.push_release: 3,
    updates.asked_for_release: 2,
    updates.nothing_newer: 1,
    updates.refused_push: 1,
    updates.cancelled_push: 1,
    updates.broken_push: 1,
    updates.pc_lost_during_a_push: 1,
    updates.stalled_push: 1,
}

BETWEEN_RESTS = 18.0
LONG_LIFE = 270.0  # at least, when the run is long enough
MOST_LONG_LIVES = 4
ENDINGS_TIME = 20.0
MOST_FAILURES = 10


class Soak:
    def __init__(self, world: World, console: Console):
        self.world, self.console, self.records = world, console, world.records
        self.deadline = 0.0
        self._round: list[Callable[[World], None]] = []
        self._began = time.monotonic()

    def run(self, minutes: float) -> None:
        self._began = time.monotonic()
        self.deadline = self._began + 60 * minutes
        lives = max(1, min(MOST_LONG_LIVES, int(60 * minutes / LONG_LIFE)))
        running = False
        for left in range(lives, 0, -1):
            now = time.monotonic()
            try:
                if not running:
                    self._begin()
                self._long_life(now + max((self.deadline - now) / left - ENDINGS_TIME, 0))
                self._endings()  # after which the daemon runs again
                running = True
            except LifeOver:
                running = False
            if self._enough():
                break
        if running:
            self._stop()

    def _begin(self) -> None:
        self.world.start()
        with self.world.operation("first registration"):
            self.world.register()

    def _enough(self) -> bool:
        return len(self.records.failures) >= MOST_FAILURES

    def _long_life(self, until: float) -> None:
        world = self.world
        with world.operation("everybody leaves and comes back"):
            world.rest()
        for run in world.chance.sample(list(OPERATIONS), len(OPERATIONS)):
            self._operate(run)
        while True:
            with world.operation("everybody leaves and comes back"):
                world.rest()
            self._tell()
            if time.monotonic() >= until or self._enough():
                break
            next_rest = min(time.monotonic() + BETWEEN_RESTS, until)
            while time.monotonic() < next_rest and not self._enough():
                self._operate(self._next())
        world.company.stop()

    def _next(self) -> Callable[[World], None]:
        if not self._round:
            self._round = [run for run, times in OPERATIONS.items() for _ in range(times - 1)]
            self.world.chance.shuffle(self._round)
            # Each once first, those that come most before the others, so that a short run has done them between two rests.
            self._round += sorted(OPERATIONS, key=lambda run: OPERATIONS[run])
        return self._round.pop()

    def _operate(self, run: Callable[[World], None]) -> None:
        with self.world.operation(run.__name__.replace("_", " ")):
            run(self.world)

    def _endings(self) -> None:
        for name in self.world.chance.sample(list(ENDINGS), len(ENDINGS)):
            with self.world.operation(f"an end: {name}"):
                end(self.world, name)
            self._tell()

    def _stop(self) -> None:
        world = self.world
        world.company.stop()
        try:
            status = world.analyzer.daemon.stop()
            check(status == 1, f"the daemon ended with status {status}")
            world.check_sanitizer()
            world.check_files()
        except (Wrong, TimeoutError) as error:
            world.fail_now(error)
        world.ended("the end of the run")

    def _tell(self) -> None:
        life = self.records.life
        seconds = int(time.monotonic() - self._began)
        done = sum(kind.done for kind in self.records.kinds.values())
        rest = life.rest[-1] if life.rest else None
        state = f"{rest.descriptors} descriptors, {rest.threads} threads, {rest.resident} KiB resident, " \
                f"{rest.heap} bytes of heap in {rest.blocks} blocks" if rest else "not warm yet"
        self.console.print(f"{seconds // 60:3}:{seconds % 60:02} life {life.number}: {done} operations, "
                           f"{len(self.records.failures)} failures; {state}", highlight=False)


def judge(records: Records) -> None:
    """Adds what only the whole run tells."""
    for problem in latency_drift(records):
        records.fail(problem)
    if preset() in ("release", "debug"):  # a sanitizer or an emulator keeps memory of its own
        for life in records.lives:
            for problem in memory_drift(life):
                records.fail(problem)


def parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="./zel soak", description=__doc__)
    parser.add_argument("minutes", nargs="?", type=float, default=5, help="how long; 5 unless given")
    parser.add_argument("--seed", type=int, help="repeats the choices of an earlier run")
    return parser


def main() -> int:
    options = parser().parse_args()
    seed = options.seed if options.seed is not None else time.time_ns() % 1_000_000
    console = Console(width=None if sys.stdout.isatty() else 160)
    console.print(f"seed {seed}, {options.minutes:g} minutes, {preset()} build", highlight=False)
    records = Records()
    status = 0
    with Analyzer() as analyzer:
        world = World(analyzer, records, seed)
        soak = Soak(world, console)
        try:
            soak.run(options.minutes)
            judge(records)
        except KeyboardInterrupt:
            status = 130
        except Exception as error:  # the daemon cannot be started any more, or the bench itself is at fault
            world.fail_now(error)
        finally:
            world.close()
    report.show(records, list(ENDINGS), console)
    for failure in records.failures:
        console.print(f"[bold red]Failed:[/] {escape(failure)}", highlight=False, soft_wrap=True)
    if world.report:
        console.print(f"The first failure with the daemon's log: {world.report}", highlight=False, soft_wrap=True)
    if not status and not records.failures:
        console.print("[bold green]Everything held.")
    return status or (1 if records.failures else 0)


if __name__ == "__main__":
    sys.exit(main())
