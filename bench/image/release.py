"""The update files of a release: made from payloads, read from where they lie, and whether they belong together."""

from __future__ import annotations

import io
import os
from collections.abc import Iterable
from pathlib import Path

from bench.image.catalogue import (APP, DSP, IMAGES, LOGO_NAME, MODELS, PACKAGE, STICK_IMAGES, SYS, SYS_SECTIONS, XML,
                                   Refused, UpdateFileError, check_version, file_name)
from bench.image.format import (HEADER_SIZE, UpdateFile, header_version, image_of, make, make_app, make_sys, parse,
                                problems, read_package)

VERSIONS_NAME = "versions.cfg"
PAYLOAD_NAMES = {image: f"{name}.{'zip' if image == XML else 'img'}" for image, name in enumerate(IMAGES)}

Files = dict[Path, UpdateFile]


def make_release(model: str, version: str, payloads: dict[int, bytes],
                 versions: dict[int, str] | None = None) -> dict[int, bytes]:
    """The update files of one release from its payloads; images may have versions that differ from the release's.

    An APP payload that already ends with a package-version block is taken as it is.
    """
    version_of = {image: version for image in range(len(IMAGES))} | (versions or {})
    files = {image: make(image, model, version_of[image], payloads[image])
             for image in (DSP, XML, SYS) if image in payloads}
    if APP in payloads:
        files[APP] = make(APP, model, version_of[APP], payloads[APP]) if read_package(payloads[APP]) \
            else make_app(model, version_of[APP], payloads[APP], version_of[SYS], version_of[XML])
    sections = [make(image, model, version_of[image], payloads[image]) for image in SYS_SECTIONS if image in payloads]
    if sections and SYS in files:
        raise UpdateFileError("give a whole SYS file or its four parts, not both")
    if sections:
        if len(sections) < len(SYS_SECTIONS):
            missing = [IMAGES[image] for image in SYS_SECTIONS if image not in payloads]
            raise UpdateFileError(f"a SYS file holds boot, kernel, rootfs and qte; missing: {', '.join(missing)}")
        files[SYS] = make_sys(model, version_of[SYS], sections)
    return dict(sorted(files.items()))


class Build:
    """A release on its way from files to update files: what each image is made from, and its version."""

    def __init__(self, model: str):
        self.model = model
        self._payloads: dict[int, bytes] = {}
        self._read: dict[int, str] = {}  # versions that stand in the files themselves

    def add(self, image: int, path: Path) -> None:
        """Takes a payload, or an update file of this image, which then has its version already."""
        data = path.read_bytes()
        kind = image_of(data)
        if kind is None:
            self._payloads[image] = data
            return
        if kind != (image, self.model):
            raise UpdateFileError(f"{path}: is the {IMAGES[kind[0]]} image of the {kind[1]} model, not {IMAGES[image]} "
                                  f"of the {self.model} one")
        update = load(path)
        self._payloads[image], self._read[image] = update.data, update.version

    def add_directory(self, directory: Path) -> None:
        """Takes what a directory holds by its name: payloads, update files, and a list of versions."""
        before = len(self._payloads)
        for image in range(len(IMAGES)):
            for name in (PAYLOAD_NAMES[image], file_name(image, self.model)):
                if (directory / name).exists():
                    self.add(image, directory / name)
        if len(self._payloads) == before:
            raise Refused(f"{directory}: none of {', '.join(PAYLOAD_NAMES.values())} is there")
        if (directory / VERSIONS_NAME).exists():
            self._read |= read_versions(directory / VERSIONS_NAME)

    def add_payloads(self, payloads: dict[int, bytes]) -> None:
        self._payloads |= payloads

    def files(self, version: str | None, versions: dict[int, str]) -> dict[int, bytes]:
        """The update files; they belong together. `version` is the release's, `versions` are those of single images."""
        block = read_package(self._payloads.get(APP, b""))
        read = (dict(zip(PACKAGE, block)) if block else {}) | self._read
        needed = self._payloads.keys() | ({SYS} if self._payloads.keys() & set(SYS_SECTIONS) else set())
        for image in sorted(needed - versions.keys()):
            if (read.get(image) or version) is None:
                raise UpdateFileError(f"{IMAGES[image]}: has no version that is given or can be read")
            if version is not None and read.get(image, version) != version:
                raise UpdateFileError(f"{IMAGES[image]}: is version {read[image]} as read and {version} as given; "
                                      "--set says which")
        files = make_release(self.model, version or "", self._payloads, read | versions)
        found = check({Path(file_name(image, self.model)): parse(data) for image, data in files.items()})
        if found:
            raise UpdateFileError("; ".join(found))
        return files


def read_versions(path: Path) -> dict[int, str]:
    """Lines IMAGE=VERSION, as the device keeps them itself."""
    versions = {}
    for line in path.read_text().splitlines():
        name, _, version = line.strip().partition("=")
        if name:
            try:
                versions[IMAGES.index(name.lower())] = check_version(version)
            except ValueError as error:
                raise UpdateFileError(f"{path}: {error if version else f'{line!r} is not IMAGE=VERSION'}") from None
    return versions


# Reading and writing

def load(path: Path) -> UpdateFile:
    try:
        return parse(path.read_bytes())
    except UpdateFileError as error:
        raise UpdateFileError(f"{path}: {error}") from None


def update_files(paths: Iterable[Path]) -> list[Path]:
    """The paths themselves, and what a directory among them holds."""
    files = []
    for path in paths:
        found = [file for file in sorted(path.glob("zel_*.bin")) if file.name != LOGO_NAME] if path.is_dir() else [path]
        if not found:
            raise Refused(f"{path}: no update file in this directory")
        files += found
    return files


def load_good(paths: Iterable[Path]) -> Files:
    """The update files of one or both models, for something that is only done with good ones."""
    files = {path: load(path) for path in update_files(paths)}
    found = check(files)
    if found:
        raise UpdateFileError("; ".join(found))
    return files


def keep_newer(there: Path, update: Path) -> None:
    """Refuses to put an update file in the place of a newer one; any other file there is nothing to be kept."""
    versions = []
    for path in (there, update):
        with open(path, "rb") if path.exists() else io.BytesIO() as file:
            versions.append(header_version(file.read(HEADER_SIZE)))
    old, new = versions
    if old and new and numbers(old) > numbers(new):
        raise Refused(f"{there}: is version {old} and would become {new}, which is older; --force does it")


def numbers(version: str) -> list[int]:
    return [int(number) for number in version.split(".")]


def put(path: Path, data: bytes) -> None:
    """Writes a file whole or not at all."""
    part = path.with_name(f".{path.name}.part")
    try:
        with open(part, "wb") as file:
            file.write(data)
            file.flush()
            os.fsync(file.fileno())
        part.replace(path)
    finally:
        part.unlink(missing_ok=True)


def leftovers(directory: Path, model: str, images: Iterable[int]) -> list[Path]:
    """What an analyzer of this model would find in a directory besides these images."""
    paths = [directory / file_name(image, model) for image in STICK_IMAGES if image not in images]
    return [path for path in paths if path.exists()]


# What belongs together

def check(files: Files) -> list[str]:
    """What the analyzer would refuse, or a maker would regret, about files that lie in one place."""
    found = []
    for path, update in files.items():
        found += [f"{path}: {problem}" for problem in problems(update)]
        if path.name != file_name(update.image, update.model):
            found.append(f"{path}: the analyzer looks for {file_name(update.image, update.model)}")
    for model in MODELS:
        found += check_model([(path, update) for path, update in files.items() if update.model == model])
    return found


def check_model(files: list[tuple[Path, UpdateFile]]) -> list[str]:
    by_image = {update.image: (path, update) for path, update in files}
    if len(by_image) < len(files):
        return [f"{files[0][0]}: one of several files of the same image"]
    together = [image for image in PACKAGE if image in by_image]
    if 0 < len(together) < len(PACKAGE):
        return [f"{by_image[together[0]][0]}: app, sys and xml are only taken together, but here is only "
                f"{' and '.join(IMAGES[image] for image in together)}"]
    if together:
        path, app = by_image[APP]
        here = tuple(by_image[image][1].version for image in PACKAGE)
        if app.package() is None:
            return [f"{path}: names no package versions"]
        if app.package() != here:
            return [f"{path}: belongs with APP, SYS, XML {', '.join(app.package())}, but here are {', '.join(here)}"]
    return []
