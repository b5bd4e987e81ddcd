"""The eight images of the two models: their magics, and their names on a stick and on the update server."""

from __future__ import annotations

import re
from dataclasses import dataclass

IMAGES = ("boot", "kernel", "rootfs", "app", "qte", "dsp", "xml", "sys")
BOOT, KERNEL, ROOTFS, APP, QTE, DSP, XML, SYS = range(8)
SYS_SECTIONS = (BOOT, KERNEL, ROOTFS, QTE)
STICK_IMAGES = (APP, DSP, XML, SYS)  # those that are files of their own
PACKAGE = (APP, SYS, XML)  # one release, taken together only; in the order of the block in the APP file


@dataclass(frozen=True)
class Model:
    magic: str  # its beginning
    suffix: str  # of file names
    folder: str  # on the update server
    title: str  # in the server's document


MODELS = {"human": Model("ZN6", "n62", "n62", "Human"), "veterinary": Model("ZV6", "n62v", "n62v_vorn", "N62V")}

INFO_PATH = "bca_update_xml_vorn.xml"
QC_PATHS = {model: f"{row.folder}/control_material.xml" for model, row in MODELS.items()}
LOGO_NAME = "zel_logo.n62v.bin"  # for both models

VERSION = re.compile(r"\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,4}")


class UpdateFileError(ValueError):
    """What is wrong with an update file or a release, in words for its maker."""


class Refused(Exception):
    """Something that is not done, and why, in words for who asked for it."""


def magic(image: int, model: str) -> str:
    return MODELS[model].magic + "BKRAQDXS"[image]


def file_name(image: int, model: str) -> str:
    return f"zel_{IMAGES[image]}.{MODELS[model].suffix}.bin"


def server_path(image: int, model: str) -> str:
    return f"{MODELS[model].folder}/{file_name(image, model)}"


def is_version(text: str) -> bool:
    """Whether it is four numbers, which always fit the 16 bytes of a header's field."""
    return bool(VERSION.fullmatch(text))


def check_version(version: str) -> str:
    if not is_version(version):
        raise UpdateFileError(f'"{version}" is not a version of four numbers, such as 1.02.03.0004')
    return version
