"""What an update server offers: the document that names the images, and the images in a folder a model."""

from __future__ import annotations

from pathlib import Path
from xml.sax.saxutils import quoteattr

from bench.image.catalogue import INFO_PATH, MODELS, PACKAGE, QC_PATHS, file_name, server_path
from bench.image.release import Files, keep_newer, leftovers, load_good, put

Offers = dict[str, dict[int, str]]  # versions by model and image


def document(offers: Offers) -> bytes:
    """The document that says which images the server offers."""
    lines = ['<?xml version="1.0" encoding="utf-8"?>', "<update>"]
    for model, versions in offers.items():
        lines.append(f"  <model name={quoteattr(MODELS[model].title)}>")
        for image, version in versions.items():
            major, minor, patch, build = version.split(".")
            lines += [f'    <file_info name="{file_name(image, model)}"',
                      f'        major_version="{major}" minor_version="{minor}" release_patch="{patch}" '
                      f'build_number="{build}"', f'        file_path="/{server_path(image, model)}"/>']
        lines.append("  </model>")
    return "\n".join([*lines, "</update>", ""]).encode()


def publish(root: Path, files: Files, qc: dict[str, Path], force: bool) -> list[Path]:
    """Puts good files of APP, SYS and XML and QC-material documents into a server's directory. What it offers for a
    model of these files is replaced, by an older release only with `force`; what it offers for the other stays. Returns
    what was written.

    An analyzer that asks meanwhile gets whole files, though perhaps of two releases; that it refuses.
    """
    for path, update in files.items():
        if not force:
            keep_newer(root / server_path(update.image, update.model), path)
    offers = {model: {update.image: update.version for update in files.values() if update.model == model}
              or offered(root, model) for model in MODELS}
    sources = {server_path(update.image, update.model): path for path, update in files.items()} \
        | {QC_PATHS[model]: path for model, path in qc.items()}
    contents = {name: path.read_bytes() for name, path in sources.items()}
    for name, data in contents.items():
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        put(root / name, data)
    put(root / INFO_PATH, document({model: versions for model, versions in offers.items() if versions}))
    for model, versions in offers.items():
        for path in leftovers(root / MODELS[model].folder, model, versions):
            path.unlink()
    return [root / name for name in (*contents, INFO_PATH)]


def offered(root: Path, model: str) -> dict[int, str]:
    """The versions of the images of a model that lie in a server's directory."""
    paths = [root / server_path(image, model) for image in PACKAGE]
    return {update.image: update.version for update in load_good(filter(Path.exists, paths)).values()}
