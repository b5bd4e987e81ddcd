"""What goes wrong: lost connections and garbage. Each operation finds the PC connected and leaves it connected."""

from __future__ import annotations

import socket
import struct
import time

from bench.pc import ANALYZER_TCP_PORT, Pc
from bench.pcpacket import HEADER_SIZE, MAX_PACKET, Command, Info, Packet
from bench.sandbox import ANALYZER_ADDRESS
from bench.soak.company import VANDAL, garbage, half_packet, reset
from bench.soak.records import check
from bench.soak.world import PATIENCE, World
from bench.zelapp import PcConnection, ResultFailed, ResultSent, frame

EVERY_VERSION = 0x01E0
UDP_SILENCE = 10


# Lost connections

def leave(world: World, pc: Pc) -> None:
    """Closes the session in one of the ways in which sessions are closed."""
    if pc.tcp and world.chance.random() < 0.5:
        pc.send_raw(half_packet(world.chance))
    if world.chance.random() < 0.5:
        pc.reset()
    else:
        pc.disconnect()


def pc_lost_during_a_result(world: World) -> None:
    world.request(world.results.pick())
    world.pc.receive_result(PATIENCE, acknowledge=False)
    leave(world, world.pc)
    heard = {type(world.receive()) for _ in range(2)}
    check(heard == {ResultFailed, PcConnection}, f"ZELApp heard {heard}")
    world.wait_outcome_over()
    world.results.check_marks("of a result whose PC was lost")
    world.connect()
    world.transfer()


def lost_connection(world: World) -> None:
    for _ in range(world.chance.randrange(1, 4)):
        leave(world, world.pc)
        world.hear_connected(world.pc, connected=False)
        world.connect()


def second_session(world: World) -> None:
    """A second session of the registered PC takes nothing from the first, whatever becomes of it."""
    with Pc(world.analyzer.sandbox.socket, udp_port=9200) as second:
        second.connect()
        check(second.get_info(Info.REGISTRATION) == {Info.REGISTRATION: b"\x01"}, "it is not the registered PC")
        world.transfer()
        leave(world, second)
        world.transfer()
    world.hear_nothing()


def connect_flood(world: World) -> None:
    """More sessions at once than anybody needs: all are answered, and the PC is served besides."""
    request = Packet(Command.GET_INFO, 1, 0, struct.pack(">H", EVERY_VERSION)).encode()
    # Each session takes all the memory that one can.
    largest = Packet(Command.REGISTER, 1, 0, bytes(MAX_PACKET - HEADER_SIZE)).encode()
    answer_size = HEADER_SIZE + 2 + 4 * 16
    connections = []
    try:
        for _ in range(100):
            connection = world.analyzer.sandbox.socket(socket.SOCK_STREAM)
            connections.append(connection)
            connection.settimeout(PATIENCE)
            connection.bind((VANDAL, 0))
            connection.connect((ANALYZER_ADDRESS, ANALYZER_TCP_PORT))
            connection.sendall(request)
        for connection in connections:
            with connection.makefile("rb") as stream:
                check(len(stream.read(answer_size)) == answer_size, "one of many sessions was not answered")
            connection.sendall(largest[:1000])
        world.transfer()
    finally:
        for connection in connections:
            if world.chance.random() < 0.5:
                reset(connection)
            else:
                connection.close()
    world.transfer()
    world.hear_nothing()


def silent_pc(world: World) -> None:
    """No datagram for 10 s: the PC counts as gone, and its session is ended."""
    world.company.stop()
    world.pc.stop_heartbeat()
    silent = time.monotonic()
    world.hear_connected(world.pc, connected=False, timeout=UDP_SILENCE + PATIENCE)
    # The last heartbeat may have been sent up to a period before.
    check(time.monotonic() - silent > UDP_SILENCE - 1.5, "silence was not waited for")
    world.wait_closed(world.pc)
    world.pc.start_heartbeat()
    world.connect()
    world.company.start()


# Garbage

def malformed_datagrams(world: World) -> None:
    """Take the UDP link down until the next heartbeat, and the session with it."""
    world.pc.stop_heartbeat()
    for _ in range(world.chance.randrange(1, 30)):
        packet = Packet(world.chance.choice([Command.SCAN, Command.NOTICE]), 1, 0, world.chance.randbytes(30)).encode()
        world.pc.send_datagram(world.chance.choice([
            packet[:world.chance.randrange(1, len(packet))], packet + b"more", b"\xff" * 60000,
            garbage(world.chance, 6), packet[:5] + b"\xff\xff" + packet[HEADER_SIZE:]]))
    world.hear_connected(world.pc, connected=False)
    world.wait_closed(world.pc)
    world.pc.start_heartbeat()
    world.connect()


def garbage_from_zelapp(world: World) -> None:
    """Messages that are wrong or cut short are dropped; the next one is served."""
    mark = world.log.mark()
    good = frame(0x0510, b"\0\1")
    wrong = world.chance.randrange(4)
    if wrong == 0:
        position = world.chance.choice([2, 6, -2, -3])
        world.zelapp.send_raw(good[:position] + bytes([good[position] ^ 0x40]) + good[position:][1:])
        world.log.wait(("[CUDSServer::ReceiveMessage] CRC checksum error",), mark, PATIENCE)
    elif wrong == 1:
        world.zelapp.send(world.chance.choice([0, 0x0511, 0xFFFF]), world.chance.randbytes(3000))
    else:
        cut, line = b"\x02\xb2" + struct.pack("<HH", 0x0510, 0xFFFF) + world.chance.randbytes(50), "50/65535"
        if wrong == 3:
            cut = good[:world.chance.randrange(1, 6)]
            line = f"{len(cut)}/6"
        world.zelapp.send_raw(cut)
        world.log.wait((f"[CUDSServer::ReceiveMessage] Receive failed: {line} bytes",), mark, PATIENCE)
    world.served = 0
    world.transfer()


def message_in_pieces(world: World) -> None:
    """ZELApp is slow with the rest of its message, and reads its answers late."""
    result = world.results.pick()
    world.zelapp.write_request(f"{result.kind},ResultID = {result.number}".encode())
    data = frame(0x0510, b"\0\1")
    cut = world.chance.randrange(1, len(data))
    world.zelapp.send(0x0999)  # the five seconds for a message begin when the one before has been read
    world.zelapp.send_raw(data[:cut])
    time.sleep(world.chance.uniform(0, 0.5))  # the slowness itself
    world.zelapp.send_raw(data[cut:])
    world.pc.receive_result(PATIENCE)
    time.sleep(world.chance.uniform(0, 1))
    world.hear(ResultSent)
    world.wait_outcome_over()
    world.results.acknowledged(result)
    world.results.check_marks("of a request in pieces")
    world.active = True
