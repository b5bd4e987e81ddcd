"""What PCs and ZELApp ask when nothing is wrong. Each operation finds the PC connected and leaves it connected."""

from __future__ import annotations

import random
import socket
import struct
import threading
import time

from bench.analyzer import PASSWORD, SERIAL
from bench.daemon import wait_until
from bench.pc import Pc, Refused
from bench.pcpacket import Command, Info, decode_info
from bench.sandbox import ANALYZER_ADDRESS
from bench.soak.records import check
from bench.soak.world import PATIENCE, World
from bench.zelapp import PcConnection, ResultFailed, ResultSent

WRONG_PASSWORD = 0x0007
EVERY_ITEM = 0x1FFF
ACKNOWLEDGEMENT_WAIT = 2.3
REQUEST_FILE_ERROR = bytes([0x0B, 0x00, 0x02, 0x51, 0x20, 0x00])


# What a PC asks

def scans(world: World) -> None:
    """The PC scans; the answer names it and tells whether it is registered."""
    def found() -> bool:
        with world.records.measure("scan"):
            answer = world.pc.scan(world.chance.randrange(256))
        check((answer.serial, answer.address, answer.pc_address, answer.pc_name)
              == (SERIAL, ANALYZER_ADDRESS, world.pc.address, world.pc.name), f"the scan was answered with {answer}")
        return answer.active == world.active
    # The status changes just after ZELApp has heard why.
    wait_until(found, PATIENCE, f"a scan tells {world.active}")
    for _ in range(world.chance.randrange(5, 20)):
        check(found(), f"a scan does not tell {world.active}")


def device_information_requests(world: World) -> None:
    """Every item; the first request may come while the session pauses for a second."""
    kind = "device information, after a pause"
    for _ in range(world.chance.randrange(5, 20)):
        tag = world.chance.randrange(256)
        with world.records.measure(kind):
            world.pc.send(Command.GET_INFO, struct.pack(">H", EVERY_ITEM), tag)
            packet = world.pc.expect(Command.INFO, PATIENCE)
        check((packet.tag, packet.sub_tag) == (tag, ord("1")), f"the answer to tag {tag} was {packet}")
        version = world.installed.encode().ljust(16, b"\0")
        expected = [b"\x04", b"\x01", struct.pack(">H", 9034), socket.inet_aton(ANALYZER_ADDRESS),
                    SERIAL[:10].encode(), version, version, bytes(16), version, version, b"", b"\0\0", b"\x01"]
        entries = list(decode_info(packet.payload).values())
        check(entries == expected, f"the device information was {entries} instead of {expected}")
        kind = "device information"


def heartbeat(world: World) -> None:
    """The sign of life is answered; with the serial number as well, and with a wrong one not."""
    serial = SERIAL.encode().ljust(15, b"\0")
    for rest, answered in ((serial, True), (b"N" * 15, False), (serial[:14], False), (serial, True)):
        world.pc.stop_heartbeat()
        for _ in range(2):  # one that was being sent may come after the first scan; its answer then before the second's
            world.forget_datagrams(world.pc)
        world.pc.heartbeat_answered.clear()
        world.pc.send_heartbeat(mask=0x2000, rest=rest)
        world.forget_datagrams(world.pc)
        if answered:
            check(world.pc.heartbeat_answered.wait(PATIENCE), "no answer to a heartbeat")
        else:
            check(not world.pc.heartbeat_answered.is_set(), f"an answer to a heartbeat with {rest!r}")
    world.pc.start_heartbeat()


# Results

def results(world: World) -> None:
    for _ in range(world.chance.randrange(4, 10)):
        world.transfer()


def result_that_does_not_exist(world: World) -> None:
    """The header alone, and no mark."""
    world.zelapp.send_result(world.chance.choice([1, 2]), "ResultID = 4444")
    text = world.pc.receive_result(PATIENCE)
    world.hear(ResultSent)
    world.wait_outcome_over()
    check(text.startswith("MSH|") and text.count("\r") == 1, f"a result that does not exist came as {text!r}")
    world.active = True
    world.results.check_marks("of a result that does not exist")


def request_file_that_is_not_usable(world: World) -> None:
    content = world.chance.choice([None, b"", b"1", b"1,ResultID = 12" + b" " * 70000])
    path = world.analyzer.sandbox.path("/tmp/sendtopc.data")
    if content is None:
        path.unlink(missing_ok=True)
    else:
        world.zelapp.write_request(content)
    world.zelapp.send(0x0510, b"\0\1")
    failed = world.hear(ResultFailed)
    check(failed.payload == REQUEST_FILE_ERROR, f"the failure was told as {failed}")
    world.wait_outcome_over()
    world.active = False
    world.results.check_marks("without a usable request")


def result_without_acknowledgement(world: World) -> None:
    """One that comes too late does not serve the result before, nor the next."""
    result = world.results.pick()
    world.request(result)
    world.pc.receive_result(PATIENCE, acknowledge=False)
    began = time.monotonic()
    world.hear(ResultFailed)
    check(time.monotonic() - began > ACKNOWLEDGEMENT_WAIT - 0.5, "the acknowledgement was not waited for")
    world.active = False
    if world.chance.random() < 0.5:
        marker = world.analyzer.sandbox.path("/tmp/rm_send_result_success")
        with world.company.answers:
            world.pc.send(Command.RESULT)
            wait_until(marker.exists, PATIENCE, "the late acknowledgement is taken")
        world.request(result)
        world.pc.receive_result(PATIENCE, acknowledge=False)
        world.hear(ResultFailed)
    world.wait_outcome_over()
    world.results.check_marks("without an acknowledgement")


def acknowledgement_beside_an_answer(world: World) -> None:
    """An answer to another PC, between the acknowledgement and the look for it, takes nothing away."""
    result = world.results.pick()
    world.rival.connect()
    world.request(result)
    world.pc.receive_result(PATIENCE)
    world.rival.get_info(Info.TCP_PORT)
    world.rival.disconnect()
    world.hear(ResultSent)
    world.active = True
    world.results.acknowledged(result)
    world.wait_outcome_over()
    world.results.check_marks("beside another answer")


# Who is registered

def register_again(world: World) -> None:
    world.pc.unregister(tag=9)
    status = world.hear(PcConnection)
    check((status.connected, status.name, status.address) == (False, "", "0.0.0.0"), f"unregistered: {status}")
    world.wait_closed(world.pc)
    check(world.analyzer.setting("PCIPAddress") == "0.0.0.0", "the PC is still in the settings")
    with world.records.measure("register"):
        world.pc.register(PASSWORD)
    check(world.analyzer.setting("PCIPAddress") == world.pc.address, "the PC is not in the settings")
    world.hear_connected(world.pc)


def try_to_register(pc: Pc, password: str, chance: random.Random) -> None:
    """Registration with this password, which must be taken or refused; a session may be ended meanwhile."""
    try:
        answer = pc.register(password, chance.randrange(256))
        check(password == PASSWORD, f"{pc.name} registered with {password!r}")
        check(answer.payload == pc.peer_id.encode(), f"{pc.name} was registered as {answer}")
    except Refused as refusal:
        check(password != PASSWORD and refusal.code == WRONG_PASSWORD, f"{pc.name} with {password!r}: {refusal}")
    except ConnectionError:
        pc.disconnect()


def wrong_password(world: World) -> None:
    """The registered PC and its link do not notice."""
    for password in ("", "zel123", "zel12345", "ZEL1234"):
        with world.records.measure("register with a wrong password"):
            try_to_register(world.rival, password, world.chance)
    world.rival.disconnect()
    world.hear_nothing()


def another_pc_takes_over(world: World) -> None:
    world.transfer()  # the status is 2: the PC will be told
    world.rival.start_heartbeat()
    world.forget_datagrams(world.pc)
    with world.records.measure("register"):
        world.rival.register(PASSWORD)
    notice = world.pc.receive_datagram(Command.NOTICE, PATIENCE)
    expected = b"\x04\x00" + socket.inet_aton(world.rival.address) + b"Rival".ljust(10, b"\0")
    check(notice.payload == expected, f"the PC was told {notice}")
    world.settle(world.rival)
    world.pc.disconnect()  # the analyzer may have ended its session
    world.register()
    world.rival.stop_heartbeat()
    world.rival.disconnect()
    world.forget_datagrams(world.rival)


def fight(world: World) -> None:
    """Two PCs register for seconds, with right and wrong passwords; the one that is there at the end is current."""
    until = time.monotonic() + world.chance.uniform(2, 5)
    errors: list[Exception] = []
    seeds = [world.chance.random() for _ in range(2)]

    def attack(pc: Pc, seed: float) -> None:
        chance = random.Random(seed)
        try:
            while time.monotonic() < until:
                try_to_register(pc, chance.choice([PASSWORD, PASSWORD, "zel1235", ""]), chance)
                if chance.random() < 0.3:
                    pc.disconnect()
        except Exception as error:
            errors.append(error)

    world.rival.start_heartbeat()
    threads = [threading.Thread(target=attack, args=args) for args in zip((world.pc, world.rival), seeds)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    world.rival.stop_heartbeat()
    world.rival.disconnect()
    if errors:
        raise errors[0]
    world.pc.disconnect()
    world.register()
    for pc in (world.pc, world.rival):
        world.forget_datagrams(pc)
