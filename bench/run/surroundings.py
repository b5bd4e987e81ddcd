"""What a simulated analyzer's surroundings offer it: a USB stick and an update server's directory, made where missing."""

from __future__ import annotations

from pathlib import Path

from bench.image import (APP, INFO_PATH, QC_PATHS, SYS, XML, document, file_name, make_release, parse, sample_payloads,
                         server_path)

STICK_VERSION, SERVER_VERSION = "1.01.00.0002", "1.02.00.0003"  # newer than what is installed
SAMPLE_SIZE = 1 << 20


def sample_release(model: str, version: str) -> dict[int, bytes]:
    return make_release(model, version, sample_payloads(SAMPLE_SIZE))


def make_stick(directory: Path, model: str) -> bool:
    """Fills a directory that is not there with what a stick holds. False: it is there, and stays as it is."""
    if directory.exists():
        return False
    directory.mkdir(parents=True)
    for image, data in sample_release(model, STICK_VERSION).items():
        (directory / file_name(image, model)).write_bytes(data)
    return True


def make_publication(directory: Path, model: str) -> bool:
    """The same for what an update server serves."""
    if directory.exists():
        return False
    release = sample_release(model, SERVER_VERSION)
    files = {image: release[image] for image in (APP, SYS, XML)}  # all that is taken from a server
    contents = {server_path(image, model): data for image, data in files.items()} \
        | {QC_PATHS[model]: b"<control_material/>\n",
           INFO_PATH: document({model: {image: parse(data).version for image, data in files.items()}})}
    for name, data in contents.items():
        (directory / name).parent.mkdir(parents=True, exist_ok=True)
        (directory / name).write_bytes(data)
    return True
