"""What differs between two update files or two releases."""

from __future__ import annotations

import io
import zipfile
from itertools import chain

from bench.image.catalogue import APP, SYS, XML
from bench.image.format import UpdateFile, problems


def compare(old: UpdateFile | None, new: UpdateFile | None) -> list[str]:
    """The differences of an image in words, none when there are none. The header's tail says nothing."""
    if old is None or new is None:
        return ["only in the second" if old is None else "only in the first"]
    found = []
    if old.version != new.version:
        found.append(f"version {old.version} becomes {new.version}")
    if old.image == APP and old.package() != new.package():
        found.append(f"belongs with {', '.join(new.package() or ('nothing',))} instead of "
                     f"{', '.join(old.package() or ('nothing',))}")
    if old.data != new.data:
        found += details(old, new)
    return found


def details(old: UpdateFile, new: UpdateFile) -> list[str]:
    damaged = problems(old) or problems(new)
    if old.image == SYS and not damaged:
        return compare_sections(old, new)
    if old.image == XML and not damaged:
        return compare_archives(old.data, new.data)
    return [plain_difference(old.data, new.data)]


def plain_difference(old: bytes, new: bytes) -> str:
    first = next((i for i, (a, b) in enumerate(zip(old, new)) if a != b), min(len(old), len(new)))
    return f"{len(old)} bytes become {len(new)}, different from byte {first} of the data on"


def compare_sections(old: UpdateFile, new: UpdateFile) -> list[str]:
    before, after = ({section.name: section for section in update.sections()} for update in (old, new))
    names = dict.fromkeys(chain(before, after))
    found = [f"{name}: {text}" for name in names for text in compare(before.get(name), after.get(name))]
    return found or ["the same sections in another order, or with other tails"]


def compare_archives(old: bytes, new: bytes) -> list[str]:
    contents = []
    for data in (old, new):
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            contents.append({name: archive.read(name) for name in archive.namelist()})
    before, after = contents
    found = [f"{name}: removed" for name in before if name not in after]
    found += [f"{name}: added" for name in after if name not in before]
    found += [f"{name}: {plain_difference(before[name], after[name])}" for name in before
              if name in after and before[name] != after[name]]
    return found or ["the same contents, packed otherwise"]
