"""Updates from the PC: pushed by it or asked for by the analyzer, complete or not."""

from __future__ import annotations

import shutil
import struct
import time

from bench import pc as bits
from bench.analyzer import PASSWORD
from bench.daemon import wait_until
from bench.image import APP, BOOT, DSP, HEADER_SIZE, KERNEL, QTE, ROOTFS, SYS, XML, archive, make_release, parse, pattern
from bench.pc import IMAGE_PIECE, Refused
from bench.pcpacket import Command, Info
from bench.soak.disturbances import leave
from bench.soak.records import Wrong, check
from bench.soak.world import PATIENCE, World
from bench.updates import BY_PC, FROM_PC, KEYS, OFFERS, PC_ERROR, contents, header_with, written
from bench.zelapp import (Message, NothingToUpdate, PcConnection, UpdateComplete, UpdateFailed, UpdateProgress,
                          UpdateRequested, UpdateStarts)

UPDATING, IMPOSSIBLE = 0x000E, 0x0017
SIZES = {BOOT: 1000, KERNEL: 131072, ROOTFS: 300_000, APP: 262_000, QTE: 4000, DSP: 5000}

Files = dict[int, bytes]


def next_version(world: World) -> str:
    world.release += 1
    return f"1.01.{world.release // 10000:02d}.{world.release % 10000:04d}"


def next_release(world: World, *images: int) -> Files:
    """The update files of a release that is newer than any before."""
    version, seed = next_version(world), world.release << 16
    payloads = {image: pattern(size + world.chance.randrange(100), (image << 28) + seed)
                for image, size in SIZES.items()}
    payloads[XML] = archive({"config/analytes.xml": b"<analytes/>", "table.bin": pattern(9000, (XML << 28) + seed)})
    files = make_release("human", version, payloads)
    world.largest_release = max(world.largest_release, sum(map(len, files.values())))
    return {image: files[image] for image in images or (SYS, APP, XML)}


def version_of(files: Files) -> str:
    return parse(files[APP]).version


# Steps of an update

def start(world: World, method: int) -> None:
    """ZELApp starts an update, which the end of the one before must not prevent once ZELApp has heard of it."""
    mark = world.log.mark()
    world.zelapp.start_update(method)
    world.log.wait(("[CUpdate::Run] Update Start",), mark, PATIENCE)


def begin_push(world: World, files: Files) -> None:
    """The PC offers the files, ZELApp agrees, and the analyzer asks the PC to go on."""
    world.wake()
    with world.records.measure("update: offer to acceptance"):
        world.pc.offer_update(OFFERS[image] for image in files)
        check(world.hear(UpdateRequested).payload == b"\4", "ZELApp was asked something else")
        world.zelapp.answer_update_request(possible=True)
        start(world, FROM_PC)
        world.pc.expect(Command.UPDATE_ACCEPTED, PATIENCE)


def push(world: World, data: bytes) -> None:
    with world.records.measure("image push"):
        world.pc.push_image(data)


def send_pieces(world: World, *pieces: bytes) -> None:
    for number, piece in enumerate(pieces, 1):
        world.pc.send(Command.IMAGE_DATA, piece, flag=number < len(pieces))


def expect_refusal(world: World, code: int = IMPOSSIBLE) -> None:
    try:
        world.pc.expect(Command.IMAGE_RECEIVED, PATIENCE)
    except Refused as refusal:
        check(refusal.code == code, f"refused with {refusal}")
        return
    raise Wrong("an image was taken that is not good")


def follow(world: World, lost: bool = False) -> list[Message]:
    """ZELApp's messages up to the end of an update; with `lost`, the PC's loss is told among them."""
    messages: list[Message] = []
    last: dict[int, int] = {}
    told = not lost
    while True:
        try:
            message = world.receive(2 * PATIENCE)
        except TimeoutError:
            raise TimeoutError(f"the update did not end; ZELApp heard {messages}") from None
        messages.append(message)
        if isinstance(message, PcConnection):
            check(not told and not message.connected, f"{message} during an update")
            told = True
        elif isinstance(message, UpdateProgress):
            check(all(100 >= percent >= last.get(image, 0) for image, percent in message.percent.items()),
                  f"progress goes from {last} to {message.percent}")
            last = message.percent
        else:
            kinds = (NothingToUpdate, UpdateStarts, UpdateFailed, UpdateComplete)
            check(isinstance(message, kinds), f"{message} during an update")
        ends = [one for one in messages if isinstance(one, (NothingToUpdate, UpdateFailed, UpdateComplete))]
        if ends and told:
            return messages


def wait_idle(world: World) -> None:
    """The worker ends just after ZELApp has heard of the update's end."""
    wait_until(lambda: world.pc.get_info(Info.ACTIVITY) == {Info.ACTIVITY: b"\x04"}, PATIENCE, "the update is over")


def succeed(world: World, files: Files, method: str) -> None:
    messages = follow(world)
    check(isinstance(messages[-1], UpdateComplete), f"the update ended with {messages[-1]}")
    progress = [message.percent for message in messages if isinstance(message, UpdateProgress)][-1]
    check(progress == dict.fromkeys(sorted(files), 100), f"the last progress was {progress}")
    check_written(world, files, method)
    world.installed = version_of(files)
    reset_device(world)
    wait_idle(world)


def fail(world: World, lost: bool = False) -> None:
    """Follows an update to its failure, which must leave the device as it was."""
    ends = [message for message in follow(world, lost) if isinstance(message, (UpdateFailed, UpdateComplete))]
    check(len(ends) == 1 and isinstance(ends[0], UpdateFailed) and (ends[0].code, ends[0].group) == PC_ERROR,
          f"the update ended with {ends}")
    device = world.analyzer.device
    check(not (device / "images").exists() and not (device / "next").exists(), "a failed update was written")
    check(world.analyzer.read_device("versions.cfg")["APP"] == world.installed, "a failed update was recorded")


def check_written(world: World, files: Files, method: str) -> None:
    """What the device library was given, what the device records, and the history."""
    expected = {image: data for image, data in contents(files).items() if image not in (DSP, XML)}
    found, device = written(world.analyzer), world.analyzer.device
    check(found == expected, f"images {[image for image in expected if found.get(image) != expected[image]]} were "
                             f"not written as they were sent; there are {sorted(found)}")
    version = version_of(files)
    recorded = world.analyzer.read_device("versions.cfg")
    images = sorted(expected.keys() | files.keys())
    check(all(recorded[KEYS[image]] == version for image in images), f"{version} was recorded as {recorded}")
    check((device / "next").exists(), "the boot partition was not switched")
    rows = world.analyzer.rows("SELECT NewVersion, Method FROM Tb_Update_History")
    check(rows == [(version, method)] * len(images), f"the history of {len(images)} images is {rows}")


def reset_device(world: World) -> None:
    """What grows with each update goes; a device would have restarted from the other partition."""
    shutil.rmtree(world.analyzer.device / "images")
    for name in ("next", "calls.log"):
        (world.analyzer.device / name).unlink()
    world.results.forget_history()


# The operations

def push_release(world: World) -> None:
    """Images in any order; nobody registers meanwhile."""
    files = next_release(world, *world.chance.choice([(SYS, APP, XML), (SYS, APP, XML, DSP)]))
    begin_push(world, files)
    images = world.chance.sample(list(files), len(files))
    push(world, files[images[0]])
    check(world.pc.get_info(Info.ACTIVITY) == {Info.ACTIVITY: b"\x03"}, "the analyzer does not say that it updates")
    try:
        world.rival.register(PASSWORD)
        raise Wrong("a PC registered during an update")
    except Refused as refusal:
        check(refusal.code == UPDATING, f"during an update: {refusal}")
    world.rival.disconnect()
    for image in images[1:]:
        push(world, files[image])
    succeed(world, files, "From PC")


def asked_for_release(world: World) -> None:
    """The analyzer asks the PC, image by image."""
    files = next_release(world)
    start(world, BY_PC)
    check(world.pc.expect(Command.GET_INFO, PATIENCE).payload == b"\x03\xE0", "the analyzer asks for something else")
    world.pc.send_update_info({OFFERS[image]: version_of(files) for image in files})
    for image in (SYS, APP, XML):
        request = world.pc.expect(Command.IMAGE_REQUEST, PATIENCE)
        check(request.payload == struct.pack("<IH", OFFERS[image], 0), f"the analyzer asks for {request}")
        push(world, files[image])
    succeed(world, files, "by PC")


def nothing_newer(world: World) -> None:
    start(world, BY_PC)
    world.pc.expect(Command.GET_INFO, PATIENCE)
    world.pc.send_update_info(dict.fromkeys((bits.SYS, bits.APP, bits.XML), world.installed))
    world.hear(NothingToUpdate)
    wait_idle(world)
    world.hear_nothing()


def refused_push(world: World) -> None:
    """ZELApp takes its time and says no."""
    world.pc.offer_update(OFFERS.values())
    world.hear(UpdateRequested)
    time.sleep(world.chance.uniform(0, 2))  # the slowness itself
    world.zelapp.answer_update_request(possible=False)
    expect_refusal(world)


def cancelled_push(world: World) -> None:
    files = next_release(world)
    begin_push(world, files)
    push(world, files[XML])
    if world.chance.random() < 0.5:
        world.pc.send(Command.IMAGE_DATA, files[SYS][:IMAGE_PIECE], flag=True)
    world.pc.cancel_update(world.chance.choice([0x0013, 0x0014, 0x0015]))
    fail(world)
    wait_idle(world)


def broken_push(world: World) -> None:
    """Images that are not as their headers say are refused; whole ones after them are taken."""
    files = next_release(world)
    app = files[APP]
    begin_push(world, files)
    cases: list[list[bytes]] = [
        [b""], [app[:HEADER_SIZE - 1], app[HEADER_SIZE - 1:20000], b"more"],
        [header_with(app, -1)[:20000], app[:20000]],
        [header_with(app, 1000)[:1041]],
        [app[:20000], *[app[:30000]] * 10], [app[:20000], app[20000:20010]],
    ]
    for pieces in world.chance.sample(cases, 3):
        send_pieces(world, *pieces)
        expect_refusal(world)
    for image in (XML, SYS, APP):
        push(world, files[image])
    succeed(world, files, "From PC")


def pc_lost_during_a_push(world: World) -> None:
    """The session ends in the middle of an image; the next push is not disturbed by what is left of it."""
    files = next_release(world)
    begin_push(world, files)
    push(world, files[XML])
    world.pc.send(Command.IMAGE_DATA, files[APP][:IMAGE_PIECE], flag=True)
    leave(world, world.pc)
    fail(world, lost=True)
    world.connect()
    wait_idle(world)
    world.transfer()


def stalled_push(world: World) -> None:
    """A push that does not go on is given up; the PC stays connected."""
    files = next_release(world)
    begin_push(world, files)
    world.pc.send(Command.IMAGE_DATA, files[APP][:IMAGE_PIECE], flag=True)
    fail(world)
    wait_idle(world)
