"""What can be typed at, or piped into, `./zel run`."""

from __future__ import annotations

import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from bench.run.results import add
from bench.run.unit import Unit

USB, BY_PC, INTERNET, FROM_PC, QC = 1, 2, 3, 4, 6  # ways of an update


@dataclass(frozen=True)
class Command:
    words: str  # what is typed; capitals stand for something else
    help: str
    do: Callable[[Unit, str], None]
    needs_zelapp: bool = True


def accept(unit: Unit, _: str) -> None:
    unit.analyzer.zelapp.answer_update_request(possible=True)
    unit.analyzer.zelapp.start_update(FROM_PC)


def update_from_stick(unit: Unit, _: str) -> None:
    unit.plug_stick()
    unit.analyzer.zelapp.start_update(USB)


def send_file(unit: Unit, file: str) -> None:
    name = Path(file).stem
    unit.results[name] = add(unit.analyzer, Path(file))
    unit.send_result(name)


def update(method: int) -> Callable[[Unit, str], None]:
    return lambda unit, _: unit.analyzer.zelapp.start_update(method)


COMMANDS = [
    Command("send NAME", "sends a result to the PC", lambda unit, name: unit.send_result(name)),
    Command("result FILE", "adds the result of a JSON file, and sends it", send_file),
    Command("usb", "puts the USB stick in and updates from it", update_from_stick),
    Command("pc", "updates by asking the PC for what is newer", update(BY_PC)),
    Command("server", "updates from the update server", update(INTERNET)),
    Command("qc", "fetches the QC-material document from the update server", update(QC)),
    Command("accept", "agrees to the update that the PC offers", accept),
    Command("refuse", "refuses it", lambda unit, _: unit.analyzer.zelapp.answer_update_request(possible=False)),
    Command("stick in", "puts the USB stick in", lambda unit, _: unit.plug_stick(), False),
    Command("stick out", "takes it out", lambda unit, _: unit.unplug_stick(), False),
    Command("fault NAME=VALUE", "a fault of the device on, as in: fault upImgWrite.3=fail@0",
            lambda unit, text: unit.set_fault(text), False),
    Command("fault off", "all of them off", lambda unit, _: unit.set_fault(""), False),
    Command("cable out", "pulls the network cable", lambda unit, _: unit.set_cable(False), False),
    Command("cable in", "plugs it in", lambda unit, _: unit.set_cable(True), False),
    Command("restart", "ends the service, which is started again", lambda unit, _: unit.restart(), False),
    Command("wait SECONDS", "does nothing for so long", lambda _, seconds: time.sleep(float(seconds)), False),
]


def table(several: bool, own_zelapp: bool) -> list[str]:
    lines = [f"   {command.words:17} {command.help}" for command in COMMANDS if own_zelapp or not command.needs_zelapp]
    lines.append(f"   {'quit':17} takes everything down, as Ctrl-C does")
    if several:
        lines.append("A number before a command says which analyzer, as in: 2 usb")
    return lines


def find(words: list[str]) -> tuple[Command, str]:
    """The command that these words are, and what stands for its word in capitals."""
    for command in COMMANDS:
        expected = command.words.split()
        if len(words) == len(expected) and all(known == word or known.isupper() and ("=" in word or "=" not in known)
                                               for known, word in zip(expected, words)):
            return command, words[-1]
    raise ValueError(f'"{" ".join(words)}" is no command; "help" lists them')


def carry_out(line: str, units: list[Unit], own_zelapp: bool) -> None:
    """Does what a line says; what is wrong with it raises ValueError or OSError."""
    words = line.split()
    number = 1
    if words[0].isdigit():
        number = int(words.pop(0))
        if not 1 <= number <= len(units):
            raise ValueError(f"there is no analyzer {number}")
    command, argument = find(words)
    if command.needs_zelapp and not own_zelapp:
        raise ValueError(f"{command.words} is for your ZELApp to ask")
    command.do(units[number - 1], argument)
