"""The release engineer's tool for update files: `./zel image`."""

from __future__ import annotations

import argparse
import json
import os
import re
import signal
import sys
import textwrap
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, NoReturn

from bench.image.catalogue import (APP, IMAGES, LOGO_NAME, MODELS, PACKAGE, STICK_IMAGES, SYS, Refused,
                                   UpdateFileError, check_version, file_name)
from bench.image.comparison import compare
from bench.image.format import HEADER_SIZE, UpdateFile, problems
from bench.image.publication import publish
from bench.image.release import (PAYLOAD_NAMES, VERSIONS_NAME, Build, check, leftovers, load, load_good, put,
                                 update_files)
from bench.image.samples import sample_payloads
from bench.image.server import PORT, serve
from bench.image.stick import Allowed, fill

DONE, NOT_GOOD, NOT_DONE = 0, 1, 2
WIDTH = 79

# How it is called: from the project's tree, or from its package.
PROGRAM = "./zel image" if (Path(__file__).parents[2] / "zel").exists() else "zelrmup-image"

STATUSES = """exit status:
  0  done; what was looked at is good, or the same
  1  what was given is not good, or differs; nothing was written
  2  not done: a wrong call, a file that cannot be read or written, a refusal"""


@dataclass
class Outcome:
    """How a command ended: for a person as lines, for a program as data."""
    lines: list[str]
    data: dict[str, Any] = field(default_factory=dict)
    status: int = DONE


def assignments(texts: list[str], keys: tuple[str, ...]) -> dict[str, str]:
    """KEY=VALUE options."""
    found = {}
    for text in texts:
        key, sign, value = text.partition("=")
        if key not in keys or not sign:
            raise Refused(f'"{text}" is not one of {", ".join(keys)}, "=" and a value')
        found[key] = value
    return found


def command_make(options: argparse.Namespace) -> Outcome:
    build = Build(options.model)
    if options.sample is not None:
        build.add_payloads(sample_payloads(options.sample))
    if options.payloads:
        build.add_directory(options.payloads)
    for name, path in assignments(options.file, IMAGES).items():
        build.add(IMAGES.index(name), Path(path))
    if options.sample is None and not options.payloads and not options.file:
        raise Refused("nothing to make an update file from; give a directory of payloads, --file or --sample")
    versions = {IMAGES.index(name): check_version(text) for name, text in assignments(options.set, IMAGES).items()}
    files = build.files(options.version and check_version(options.version), versions)
    names = {image: file_name(image, options.model) for image in files}
    options.output.mkdir(parents=True, exist_ok=True)
    for path in leftovers(options.output, options.model, files):
        raise Refused(f"{path}: is there from another release; remove it first")
    for image, data in files.items():
        put(options.output / names[image], data)
    return listing("files", {options.output / names[image]: len(data) for image, data in files.items()})


def listing(what: str, sizes: dict[Path, int]) -> Outcome:
    return Outcome([f"{path}: {size} bytes" for path, size in sizes.items()],
                   {what: [{"file": str(path), "bytes": size} for path, size in sizes.items()]})


def describe(update: UpdateFile) -> dict[str, Any]:
    data: dict[str, Any] = {"image": update.name, "model": update.model, "version": update.version,
                            "bytes": update.size, "tail": update.tail.hex(), "tail_is_md5": update.tail_is_md5}
    package = update.package() if update.image == APP else None
    if package:
        data["package"] = dict(zip((IMAGES[image] for image in PACKAGE), package))
    return data


def command_inspect(options: argparse.Namespace) -> Outcome:
    lines, found, status = [], [], DONE
    for path in update_files(options.files):
        try:
            update = load(path)
        except UpdateFileError as error:
            lines, status = [*lines, str(error)], NOT_GOOD
            found.append({"file": str(path), "problems": [str(error).removeprefix(f"{path}: ")]})
            continue
        wrong, row = problems(update), describe(update)
        status = max(status, NOT_GOOD if wrong else DONE)
        lines.append(f"{path}: {update.name}, {update.model}, {update.version}, {update.size} bytes"
                     + ("" if wrong else ", good"))
        if "package" in row:
            lines.append("  belongs with " + ", ".join(f"{name} {text}" for name, text in row["package"].items()))
        if update.image == SYS and not wrong:
            row["sections"], at = [], 2 * HEADER_SIZE
            for section in update.sections():
                row["sections"].append(describe(section) | {"offset": at})
                lines.append(f"  {section.name:7} {section.version:15} {section.size} bytes from {at} on")
                at += HEADER_SIZE + section.size
        lines += [f"  {problem}" for problem in wrong]
        lines.append(f"  tail {update.tail.hex()}, {'' if update.tail_is_md5 else 'not '}the MD5 of the data")
        found.append({"file": str(path), **row, "problems": wrong})
    return Outcome(lines, {"files": found}, status)


def command_verify(options: argparse.Namespace) -> Outcome:
    files, found = {}, []
    for path in update_files(options.files):
        try:
            files[path] = load(path)
        except UpdateFileError as error:
            found.append(str(error))
    found += check(files)
    count = f"{len(files)} file{'s are' if len(files) != 1 else ' is'} good"
    return Outcome(found or [count], {"good": not found, "files": len(files), "problems": found},
                   NOT_GOOD if found else DONE)


def command_extract(options: argparse.Namespace) -> Outcome:
    updates = [load(path) for path in update_files(options.files)]
    parts = [part for update in updates for part in (update.sections() if update.image == SYS else [update])]
    if len({part.image for part in parts}) < len(parts):
        raise Refused("several of these files hold the same image; extract them one after the other")
    options.output.mkdir(parents=True, exist_ok=True)
    for part in parts:
        put(options.output / PAYLOAD_NAMES[part.image], part.data)
    versions = {update.name.upper(): update.version for update in [*parts, *updates]}
    put(options.output / VERSIONS_NAME, "".join(f"{name}={text}\n" for name, text in versions.items()).encode())
    return listing("payloads", {options.output / PAYLOAD_NAMES[part.image]: part.size for part in parts})


def command_diff(options: argparse.Namespace) -> Outcome:
    sides = [{(update.model, update.name): update for update in map(load, update_files([path]))}
             for path in (options.old, options.new)]
    rows = {f"{model} {name}": compare(sides[0].get((model, name)), sides[1].get((model, name)))
            for model, name in sorted(sides[0].keys() | sides[1].keys())}
    different = {name: texts for name, texts in rows.items() if texts}
    return Outcome([f"{name}: {text}" for name, texts in different.items() for text in texts] or ["the same"],
                   {"same": not different, "differences": different}, NOT_GOOD if different else DONE)


def command_publish(options: argparse.Namespace) -> Outcome:
    qc = {model: Path(path) for model, path in assignments(options.qc, tuple(MODELS)).items()}
    files = load_good(options.files)
    offered = {path: update for path, update in files.items() if update.image in PACKAGE}
    if not offered and not qc:
        raise Refused("nothing to publish; give files of APP, SYS and XML, or --qc")
    written = publish(options.directory, offered, qc, options.force)
    outcome = listing("files", {path: path.stat().st_size for path in written})
    left_out = [str(path) for path in files if path not in offered]
    outcome.lines += [f"{path}: left out, analyzers do not take it from a server" for path in left_out]
    outcome.data["left_out"] = left_out
    return outcome


def command_serve(options: argparse.Namespace) -> Outcome:
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        serve(options.directory, options.bind, options.port, options.json)
    except KeyboardInterrupt:
        pass
    return Outcome([])


def command_stick(options: argparse.Namespace) -> Outcome:
    files = load_good(options.files)
    sources = {path.name: path for path in files} | ({LOGO_NAME: options.logo} if options.logo else {})
    models = {update.model for update in files.values()}
    others = {LOGO_NAME, *(file_name(image, model) for model in models for image in STICK_IMAGES)} - sources.keys()
    allowed = Allowed(options.anywhere, options.clear, options.force)
    removed = fill(options.target, sources, others, allowed)
    lines = [f"{name}: {path.stat().st_size} bytes, read back" for name, path in sources.items()]
    return Outcome([*(f"{name}: removed" for name in removed), *lines],
                   {"files": list(sources), "removed": removed, "read_back": True})


def shell_line(command: str) -> str:
    """A command as it can be typed, on several lines where one is too wide."""
    together = re.sub(r"( --[\w-]+) (?!-)", r"\1\0", command)  # an option and its value
    return " \\\n".join(wrapped(together, WIDTH - 2, "  ", "      ")).replace("\0", " ")


def wrapped(line: str, width: int, first: str, following: str) -> list[str]:
    """Breaks a line between words; a path stays whole, however long."""
    return textwrap.wrap(line, width, initial_indent=first, subsequent_indent=following, break_long_words=False,
                         break_on_hyphens=False)


Command = Callable[[argparse.Namespace], Outcome]


class Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.print_usage(sys.stderr)
        print(*wrapped(f"{self.prog}: error: {message}", WIDTH, "", "    "), sep="\n", file=sys.stderr)
        sys.exit(NOT_DONE)


def parser() -> Parser:
    top = Parser(prog=PROGRAM, formatter_class=argparse.RawDescriptionHelpFormatter,
                                  description="Makes, checks, publishes and delivers update files, which "
                                              "docs/updates.md\ndescribes.",
                                  epilog=f"{PROGRAM} COMMAND --help has examples.\n\n" + STATUSES)
    commands = top.add_subparsers(required=True, metavar="COMMAND")

    def add(name: str, run: Command, text: str, *examples: str) -> Parser:
        lines = "".join(f"{shell_line(f'{PROGRAM} {name} {example}')}\n" for example in examples)
        command = commands.add_parser(name, help=text, description=text[0].upper() + text[1:] + ".",
                                      formatter_class=argparse.RawDescriptionHelpFormatter,
                                      epilog=f"examples:\n{lines}\n{STATUSES}")
        command.add_argument("--json", action="store_true", help="tell the outcome as JSON")
        command.set_defaults(run=run)
        return command

    make = add("make", command_make, "make the update files of a release, when they belong together",
               "payloads --model human --version 1.02.03.0004 --output release",
               "payloads --model veterinary --output release",
               "--file dsp=out/dsp.bin --set dsp=1.00.00.0007 --model human --output release")
    make.add_argument("payloads", nargs="?", type=Path,
                      help=f"directory with {', '.join(name for name in PAYLOAD_NAMES.values() if name != 'sys.img')}, "
                           f"or update files in their place; IMAGE=VERSION lines in {VERSIONS_NAME}")
    make.add_argument("--model", required=True, choices=MODELS)
    make.add_argument("--version", help="the release's, of every image that has no other")
    make.add_argument("--set", action="append", default=[], metavar="IMAGE=VERSION", help="the version of an image")
    make.add_argument("--file", action="append", default=[], metavar="IMAGE=FILE", help="a payload from elsewhere")
    make.add_argument("--sample", type=int, metavar="BYTES", help="payloads of this size that mean nothing, for trying")
    make.add_argument("--output", required=True, type=Path, metavar="DIR", help="where the update files go")

    inspect = add("inspect", command_inspect, "show what update files hold", "release", "--json zel_sys.n62.bin")
    verify = add("verify", command_verify, "check update files, and whether those of a model belong together",
                 "release", "/media/stick")
    extract = add("extract", command_extract, "take update files apart into payloads, of which make makes them again",
                  "release/zel_sys.n62.bin --output parts")
    extract.add_argument("--output", required=True, type=Path, metavar="DIR", help="where the payloads go")
    diff = add("diff", command_diff, "tell what differs between two update files or two releases", "old new")
    diff.add_argument("old", type=Path, help="an update file or a directory of them")
    diff.add_argument("new", type=Path, help="the same")
    publication = add("publish", command_publish, "write what the update server serves: the document and the images",
                      "www release", "www release-human release-veterinary --qc human=material.xml")
    publication.add_argument("directory", type=Path, metavar="DIR", help="what the server serves; what is there of a "
                             "model that is not published now stays")
    publication.add_argument("--qc", action="append", default=[], metavar="MODEL=FILE", help="a QC-material document")
    server = add("serve", command_serve, "serve a published directory, a line for each request", "www",
                 "www --port 8080 --json")
    server.add_argument("directory", type=Path, metavar="DIR", help="what publish wrote")
    server.add_argument("--port", type=int, choices=range(1, 1 << 16), metavar="PORT", default=PORT,
                        help=f"default {PORT}, the only one an analyzer asks")
    server.add_argument("--bind", default="", metavar="ADDRESS", help="serve on this address only")
    stick = add("stick", command_stick, "fill a USB stick and read back what was written; nothing is formatted",
                "/media/stick release", "/dev/sdX release --clear")
    stick.add_argument("target", type=Path, help="where a stick is mounted, or its device")
    stick.add_argument("--logo", type=Path, metavar="FILE", help="a boot logo to be installed with the update")
    stick.add_argument("--clear", action="store_true", help="remove other update files of these models from it")
    stick.add_argument("--anywhere", action="store_true", help="take a directory that is on no removable device")
    for command in (publication, stick):
        command.add_argument("--force", action="store_true", help="put an older release in the place of a newer one")
    for command, several in ((inspect, "+"), (verify, "+"), (extract, "+"), (publication, "*"), (stick, "+")):
        command.add_argument("files", nargs=several, type=Path, help="update files, or directories of them")
    return top


def main(arguments: list[str] | None = None) -> int:
    options = parser().parse_args(arguments)
    try:
        outcome = options.run(options)
    except (UpdateFileError, Refused, OSError) as error:
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) and error.filename else str(error)
        status = NOT_GOOD if isinstance(error, UpdateFileError) else NOT_DONE
        outcome = Outcome([text], {"error": text}, status)
    if options.json and outcome.data:
        lines, show = [json.dumps(outcome.data, indent=2)], sys.stdout
    else:
        lines = ["\n".join([line] if len(line) <= WIDTH else wrapped(line, WIDTH, "", "    ")) for line in outcome.lines]
        show = sys.stdout if outcome.status == DONE or options.run in (command_inspect, command_diff) else sys.stderr
    try:
        for line in lines:
            print(line, file=show, flush=True)
    except BrokenPipeError:  # nobody reads any more; keep the interpreter from trying once again
        os.dup2(os.open(os.devnull, os.O_WRONLY), show.fileno())
    return outcome.status


if __name__ == "__main__":
    sys.exit(main())
