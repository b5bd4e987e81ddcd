"""Image data that mean nothing: for tests, for trying the tool and for simulated analyzers."""

from __future__ import annotations

import array
import io
import sys
import zipfile
from typing import Any

from bench.image.catalogue import SYS, XML


def pattern(size: int, seed: int = 0) -> bytes:
    """Bytes that tell their position, so that a wrong offset or a repeated piece shows."""
    words = array.array("I", range(seed, seed + (size + 3) // 4))
    if sys.byteorder == "big":
        words.byteswap()
    return words.tobytes()[:size]


def archive(files: dict[Any, bytes]) -> bytes:
    """A zip archive, as an XML image carries it, of files under their names or zipfile's entries."""
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w", zipfile.ZIP_DEFLATED) as zipped:
        for name, content in files.items():
            zipped.writestr(name, content)
    return buffer.getvalue()


def sample_payloads(size: int) -> dict[int, bytes]:
    """Payloads of about this size for every image; no two images hold the same bytes anywhere."""
    payloads = {image: pattern(size, seed=image << 28) for image in range(SYS)}
    payloads[XML] = archive({"config/analytes.xml": b"<analytes/>", "config/table.bin": pattern(size, XML << 28)})
    return payloads
