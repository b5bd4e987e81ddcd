"""What happens on the simulated analyzers, in words for people or as a JSON object a line for programs."""

from __future__ import annotations

import json
import textwrap
import threading
import time
from typing import Any

from bench.image import IMAGES
from bench.zelapp import (Message, NothingToUpdate, PcConnection, ResultFailed, ResultSent, Started, UpdateComplete,
                          UpdateFailed, UpdateProgress, UpdateRequested, UpdateStarts)

PLAIN: dict[type[Message], tuple[str, str]] = {
    Started: ("started", "the service is up"),
    ResultSent: ("result_sent", "the PC has acknowledged the result"),
    ResultFailed: ("result_failed", "the result did not reach the PC"),
    UpdateRequested: ("update_requested", 'the PC offers an update: type "accept" or "refuse"'),
    NothingToUpdate: ("nothing_to_update", "nothing is newer than what is installed"),
    UpdateComplete: ("update_complete", "the update is complete"),
}
WHY = {
    0x00204012: "the update server was not reached, or a file is missing or not what its document says",
    0x00204013: "the PC was lost or gave up, or its push stalled or lacks a good image",
    0x00204014: "the stick could not be mounted",
    0x00204015: "no update file is on the stick, one is damaged, or copying failed",
    0x00204016: "writing an image failed",
    0x00204017: "the boot partition could not be switched",
    0x00204018: "the files on the stick do not belong together",
}
PROGRESS_PAUSE = 0.5  # seconds between two lines about an update's progress, for people

Event = tuple[str, str, dict[str, Any]]  # its name, its text for people, its values for programs


def describe(message: Message) -> Event:
    """What a message to ZELApp says."""
    if type(message) in PLAIN:
        name, text = PLAIN[type(message)]
        return name, text, {}
    if isinstance(message, PcConnection):
        values = dict(connected=message.connected, name=message.name, address=message.address, peer_id=message.peer_id)
        text = f'"{message.name}" at {message.address} is connected, peer ID {message.peer_id}' \
            if message.connected else "no PC is connected"
        return "pc", text, values
    if isinstance(message, UpdateFailed):
        why = WHY.get(message.code, "for a reason that is not known here")
        text = f"the update failed with 0x{message.code:08X}, group 0x{message.group:02X}: {why}"
        return "update_failed", text, dict(code=f"0x{message.code:08X}", group=f"0x{message.group:02X}", why=why)
    if isinstance(message, UpdateStarts):
        images = {IMAGES[image]: version for image, version in message.images}
        return "update_starts", "will be written: " + listed(images), dict(images=images)
    if isinstance(message, UpdateProgress):
        percent = {IMAGES[image]: value for image, value in message.percent.items()}
        return "update_progress", listed(percent, " %"), dict(percent=percent)
    return "message", f"{len(message.payload)} bytes: {message.payload.hex(' ')}", dict(payload=message.payload.hex())


def listed(values: dict[str, Any], unit: str = "") -> str:
    return ", ".join(f"{name} {value}{unit}" for name, value in values.items())


class Reporter:
    """Prints events; any thread may tell one."""

    def __init__(self, as_json: bool, several: bool):
        self._as_json, self._several = as_json, several
        self._mutex = threading.Lock()
        self._next_progress = 0.0

    def tell(self, event: str, text: str, analyzer: int | None = None, **values: Any) -> None:
        with self._mutex:
            if self._as_json:
                whose = {} if analyzer is None else {"analyzer": analyzer}
                print(json.dumps({"event": event, **whose, **values, "text": text}), flush=True)
                return
            prefix = f"{analyzer}: " if self._several and analyzer is not None else ""
            print(textwrap.fill(prefix + text, 79, subsequent_indent="   "), flush=True)

    def tell_message(self, message: Message, analyzer: int) -> None:
        event, text, values = describe(message)
        if isinstance(message, UpdateProgress) and not self._as_json:
            if time.monotonic() < self._next_progress and min(message.percent.values()) < 100:
                return
            self._next_progress = time.monotonic() + PROGRESS_PAUSE
        self.tell(event, f"0x{message.id:04X} {text}", analyzer, message=f"0x{message.id:04X}", **values)
