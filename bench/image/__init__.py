"""Update files: what `./zel image` makes, looks into, publishes and puts on sticks. docs/updates.md describes them.

What the other programs of the bench use is imported from here.
"""

from bench.image.catalogue import (APP, BOOT, DSP, IMAGES, INFO_PATH, KERNEL, QC_PATHS, QTE, ROOTFS, SYS, XML,
                                   UpdateFileError, file_name, server_path)
from bench.image.format import HEADER_SIZE, UpdateFile, archive_problems, make, make_sys, parse
from bench.image.publication import document
from bench.image.release import make_release
from bench.image.samples import archive, pattern, sample_payloads

__all__ = ["APP", "BOOT", "DSP", "HEADER_SIZE", "IMAGES", "INFO_PATH", "KERNEL", "QC_PATHS", "QTE", "ROOTFS", "SYS",
           "XML", "UpdateFile", "UpdateFileError", "archive", "archive_problems", "document", "file_name", "make",
           "make_release", "make_sys", "parse", "pattern", "sample_payloads", "server_path"]
