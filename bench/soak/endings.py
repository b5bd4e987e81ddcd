"""The ends of the daemon that are by design. After each it is started again, and the PC must be current at once."""

from __future__ import annotations

import signal
import socket
import struct
from collections.abc import Callable

from bench.image import APP, XML
from bench.pc import IMAGE_PIECE
from bench.pcpacket import Command, Packet
from bench.sandbox import ANALYZER_ADDRESS
from bench.soak import operations, updates
from bench.soak.records import check
from bench.soak.world import PATIENCE, World

CLOSED = "ZELRmUp received signal(#13)"
ATTEMPTS = 20
NEW_ADDRESS = "a new address"


def pc_left_its_answers(world: World) -> str:
    """A PC that asks and is gone before the answers raises SIGPIPE; when it is gone in time."""
    request = Packet(Command.GET_INFO, 1, 0, struct.pack(">H", 0x1FFF)).encode()
    for _ in range(ATTEMPTS):
        world.rival.connect()
        world.rival.send_raw(request * 200)
        world.rival.disconnect()
        try:
            world.analyzer.daemon.process.wait(0.5)
            return CLOSED
        except TimeoutError:
            continue
    return CLOSED


def zelapp_left(world: World) -> str:
    """The next report to it raises SIGPIPE."""
    world.zelapp.close()
    world.pc.disconnect()
    return CLOSED


def address_changed(world: World) -> str:
    world.zelapp.address_changed()
    return ""


def supervisor_stopped_it(world: World) -> str:
    number = world.chance.choice([signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
    world.analyzer.daemon.signal(number)
    return f"ZELRmUp received signal(#{int(number)})"


def power_was_cut(world: World) -> str:
    """In the middle of a push."""
    files = updates.next_release(world)
    updates.begin_push(world, files)
    updates.push(world, files[XML])
    world.pc.send(Command.IMAGE_DATA, files[APP][:IMAGE_PIECE], flag=True)
    world.analyzer.daemon.signal(signal.SIGKILL)
    return ""


def restarted_after_an_update(world: World) -> str:
    """ZELApp restarts the device, which runs the new images then."""
    updates.push_release(world)
    active = world.analyzer.device / "active"
    active.write_text("0" if active.exists() and active.read_text() == "1" else "1")
    world.analyzer.daemon.signal(signal.SIGTERM)
    return "ZELRmUp received signal(#15)"


Ending = Callable[[World], str]

# Name -> what ends the daemon; it returns what the daemon must print last.
ENDINGS: dict[str, Ending] = {
    "SIGPIPE: a PC left before its answers": pc_left_its_answers,
    "SIGPIPE: ZELApp left": zelapp_left,
    NEW_ADDRESS: address_changed,
    "a signal of its supervisor": supervisor_stopped_it,
    "SIGKILL: the power was cut": power_was_cut,
    "a restart after an update": restarted_after_an_update,
}


def end(world: World, name: str) -> None:
    """Ends the daemon in one of these ways, starts it again and regains the PC."""
    printed = ENDINGS[name](world)
    daemon = world.analyzer.daemon
    status = daemon.wait(PATIENCE)
    world.ended(name)
    expected = -signal.SIGKILL if "SIGKILL" in name else 1
    check(status == expected, f"the daemon ended with status {status}")
    check(printed in daemon.stdout(), f"the daemon printed {daemon.stdout()!r}, without {printed!r}")
    world.check_sanitizer()
    world.pc.disconnect()
    world.start()
    if name == NEW_ADDRESS:
        notice = world.pc.receive_datagram(Command.NOTICE, PATIENCE)
        check(notice.payload == b"\x00\x08" + socket.inet_aton(ANALYZER_ADDRESS), f"the PC was told {notice}")
    world.connect()
    world.transfer()
    operations.device_information_requests(world)  # the PC is registered, and the versions are those of the last update
