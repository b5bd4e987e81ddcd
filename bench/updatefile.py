"""The release engineer's tool for update files.

    python3 -m bench.updatefile make PAYLOADS --model human --version 1.02.03.0004 --output STICK
    python3 -m bench.updatefile inspect FILE...
    python3 -m bench.updatefile verify STICK

PAYLOADS is a directory with boot.img, kernel.img, rootfs.img and qte.img (these four make the SYS file), app.img and
xml.zip (SYS, APP and XML only come together), and dsp.img. STICK is copied onto a USB stick as it is.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

from rich.console import Console
from rich.table import Table

from bench.updateformat import (APP, IMAGES, MODELS, SYS, XML, UpdateFile, UpdateFileError, check_version, file_name,
                                make_release, parse, problems, sample_payloads)

PAYLOAD_NAMES = {image: f"{name}.zip" if image == XML else f"{name}.img"
                 for image, name in enumerate(IMAGES) if image != SYS}


def load(path: Path) -> UpdateFile:
    try:
        return parse(path.read_bytes())
    except OSError as error:
        raise UpdateFileError(f"{path}: {error.strerror}") from None
    except UpdateFileError as error:
        raise UpdateFileError(f"{path}: {error}") from None


def update_files(paths: list[Path]) -> list[Path]:
    """The paths themselves, and what a directory among them holds."""
    files = []
    for path in paths:
        found = sorted(path.glob("zel_*.bin")) if path.is_dir() else [path]
        if not found:
            raise UpdateFileError(f"{path}: no update file in this directory")
        files += found
    return files


def command_make(options: argparse.Namespace) -> int:
    if options.sample is not None:
        payloads = sample_payloads(options.sample)
    elif options.payloads:
        payloads = {image: (options.payloads / name).read_bytes() for image, name in PAYLOAD_NAMES.items()
                    if (options.payloads / name).exists()}
        if not payloads:
            raise UpdateFileError(f"{options.payloads}: none of {', '.join(PAYLOAD_NAMES.values())} is there")
    else:
        raise UpdateFileError("give a directory of payloads, or --sample")
    versions = {}
    for text in options.set:
        name, _, version = text.partition("=")
        if name not in IMAGES:
            raise UpdateFileError(f'"{name}" is none of {", ".join(IMAGES)}')
        versions[IMAGES.index(name)] = check_version(version)
    files = make_release(options.model, check_version(options.version), payloads, versions)
    options.output.mkdir(parents=True, exist_ok=True)
    for image, data in files.items():
        path = options.output / file_name(image, options.model)
        path.write_bytes(data)
        print(f"{path}: {len(data)} bytes")
    return 0


def command_inspect(options: argparse.Namespace) -> int:
    table = Table("file", "image", "model", "version", "bytes", "package", "state")
    for column in table.columns[:-1]:
        column.no_wrap = True
    worst = 0
    for path in update_files(options.files):
        try:
            update = load(path)
        except UpdateFileError as error:
            table.add_row(path.name, "", "", "", "", "", f"[red]{error}")
            worst = 1
            continue
        found = problems(update)
        worst = max(worst, bool(found))
        package = update.package() if update.image == APP else None
        table.add_row(path.name, update.name, update.model, update.version, str(update.size),
                      "\n".join(f"{name} {text}" for name, text in zip(("APP", "SYS", "XML"), package or ())),
                      "[red]" + "\n".join(found) if found else "[green]good")
        if update.image == SYS and not found:
            for section in update.sections():
                table.add_row("", f"  {section.name}", section.model, section.version, str(section.size), "", "")
    console = Console()
    Console(width=None if console.is_terminal else 110).print(table)
    return worst


def verify_set(updates: dict[Path, UpdateFile]) -> list[str]:
    """What the analyzer would refuse, or a maker would regret, about files on one stick."""
    found = []
    for path, update in updates.items():
        found += [f"{path}: {problem}" for problem in problems(update)]
        if path.name != file_name(update.image, update.model):
            found.append(f"{path}: the analyzer looks for {file_name(update.image, update.model)}")
    if len({update.model for update in updates.values()}) > 1:
        found.append("the files are of different models")
    by_image = {update.image: update for update in updates.values()}
    together = {APP, SYS, XML} & by_image.keys()
    if 0 < len(together) < 3:
        found.append(f"only {', '.join(IMAGES[image] for image in sorted(together))} of app, sys and xml, which are "
                     "only taken together")
    if len(together) == 3:
        package = by_image[APP].package()
        here = tuple(by_image[image].version for image in (APP, SYS, XML))
        if package is None:
            found.append("app: names no package versions")
        elif package != here:
            found.append(f"app: belongs with APP, SYS, XML {', '.join(package)}, but here are {', '.join(here)}")
    return found


def command_verify(options: argparse.Namespace) -> int:
    updates, found = {}, []
    for path in update_files(options.files):
        try:
            updates[path] = load(path)
        except UpdateFileError as error:
            found.append(str(error))
    found += verify_set(updates)
    for problem in found:
        print(problem, file=sys.stderr)
    if not found:
        print(f"{len(updates)} files are good")
    return 1 if found else 0


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(prog="updatefile", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(required=True, metavar="make|inspect|verify")
    make = commands.add_parser("make", help="make the update files of a release")
    make.add_argument("payloads", nargs="?", type=Path, help="directory with the payloads")
    make.add_argument("--sample", type=int, metavar="BYTES", help="payloads of this size that mean nothing, for tests")
    make.add_argument("--model", required=True, choices=MODELS)
    make.add_argument("--version", required=True, help="the release's version")
    make.add_argument("--set", action="append", default=[], metavar="IMAGE=VERSION",
                      help="an image whose version differs from the release's")
    make.add_argument("--output", required=True, type=Path, help="directory to write the files to")
    make.set_defaults(run=command_make)
    for name, run, text in (("inspect", command_inspect, "show what update files hold"),
                            ("verify", command_verify, "check the files of a stick; status 1 when something is wrong")):
        command = commands.add_parser(name, help=text)
        command.add_argument("files", nargs="+", type=Path, help="update files, or directories of them")
        command.set_defaults(run=run)
    options = parser.parse_args(arguments)
    try:
        return options.run(options)
    except (UpdateFileError, OSError) as error:
        print(f"updatefile: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
