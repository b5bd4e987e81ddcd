"""An update from the PC: pushed by it, or asked for by the analyzer."""

from __future__ import annotations

import socket
import struct
import time

import pytest

from bench import pc as bits
from bench.analyzer import PASSWORD, Analyzer
from bench.daemon import wait_until
from bench.image import APP, DSP, HEADER_SIZE, SYS, XML, make, make_sys
from bench.pc import IMAGE_PIECE, Pc
from bench.pcpacket import Command, Info, Packet
from bench.updates import (BY_PC, FROM_PC, NEW, OLD, PC_ERROR, USB, WRITE_ERROR, announced, begin_push,
                           check_nothing_open, check_updated, fail, follow, header_with, insert_stick, record, release,
                           replace, sections_of, start, statuses, succeed, wait_idle, written)
from bench.zelapp import NothingToUpdate, PcConnection, UpdateFailed, UpdateRequested, UpdateStarts

FILES = release(without=(DSP,))
ALL_NEW = dict.fromkeys((bits.SYS, bits.APP, bits.XML), NEW)
UP = "connection success TCP(T), UDP(T)"


def expect_from_daemon(pc: Pc, command: int, payload: bytes) -> None:
    packet = pc.receive()
    assert (packet.command, packet.payload, packet.tag, packet.sub_tag) == (command, payload, 1, ord("1")), packet


def expect_refusal(pc: Pc) -> None:
    expect_from_daemon(pc, Command.ERROR, b"\0\x17")


def push(pc: Pc, *images: bytes) -> None:
    for data in images:
        received = pc.push_image(data)
        assert (received.payload, received.tag, received.sub_tag) == (b"", 1, ord("1"))


def send_pieces(pc: Pc, *pieces: bytes) -> None:
    for number, piece in enumerate(pieces, 1):
        pc.send(Command.IMAGE_DATA, piece, flag=number < len(pieces))


def push_all(analyzer: Analyzer, pc: Pc) -> None:
    """A whole push that must succeed, whatever happened before."""
    begin_push(analyzer, pc)
    push(pc, *FILES.values())
    succeed(analyzer)
    check_updated(analyzer, FILES, "From PC")


def test_a_push(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches images that are mixed up, lost or answered wrongly on their way, and progress that is not complete."""
    files = release()
    begin_push(analyzer, connected_pc, (SYS, APP, XML, DSP))
    assert connected_pc.scan().active
    push(connected_pc, files[XML], files[SYS], files[DSP], files[APP])
    messages, progress = succeed(analyzer)
    assert not any(isinstance(message, UpdateStarts) for message in messages)
    assert progress == {APP: 100, DSP: 100, XML: 100, SYS: 100}
    check_updated(analyzer, files, "From PC")
    wait_idle(analyzer, "Registered")
    check_nothing_open(analyzer)


def test_an_image_pushed_too_early(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches an image that counts as received although its file was removed when the update began."""
    image = release()[DSP]
    connected_pc.offer_update([bits.DSP])
    analyzer.zelapp.expect(UpdateRequested)
    push(connected_pc, image)
    start(analyzer, FROM_PC)
    connected_pc.expect(Command.UPDATE_ACCEPTED)
    analyzer.daemon.wait_for_log("download delayed (3 counts)", 20)
    push(connected_pc, image)
    succeed(analyzer)
    assert analyzer.sandbox.path("/tmp/zel_dsp.out").read_bytes() == image[HEADER_SIZE:]


def test_what_the_pc_offers(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches offers that are read or reported wrongly, and answers of ZELApp that do not reach the PC."""
    for payload in (b"", b"\x18\0"):
        connected_pc.send(Command.UPDATE_START, payload)
    analyzer.daemon.wait_for_log("[CConnect::ProcessUpdateStart] Payload length differs from it's structure", count=2)
    connected_pc.offer_update([bits.SYS, bits.APP])
    assert analyzer.zelapp.receive() == UpdateRequested(0x0563, b"\4")
    assert "APP update need" in analyzer.daemon.log() and "DSP update need" not in analyzer.daemon.log()
    analyzer.zelapp.answer_update_request(possible=False)
    expect_refusal(connected_pc)

    cases = [({bits.APP: OLD}, None), ({bits.APP: NEW, bits.SYS: OLD}, [(SYS, OLD), (APP, NEW)]),
             (ALL_NEW | {bits.DSP: NEW}, [(image, NEW) for image in (SYS, APP, DSP, XML)])]
    for versions, expected in cases:
        connected_pc.offer_update([])  # forgets what was offered before
        analyzer.zelapp.expect(UpdateRequested)
        connected_pc.send_update_info(versions)
        message = analyzer.zelapp.receive()
        assert isinstance(message, UpdateStarts) and message.images == expected if expected \
            else isinstance(message, NothingToUpdate), versions
    connected_pc.send(Command.INFO, struct.pack(">H", 0x0060) + b"\0" * 31)
    analyzer.daemon.wait_for_log("[CUpdateCommand::ProcessUpdateInfoRes] Payload length differs from it's structure")


@pytest.mark.parametrize("newer", [(SYS, APP, XML), (APP,)])
def test_the_analyzer_asks(analyzer: Analyzer, connected_pc: Pc, newer: tuple[int, ...]) -> None:
    """Catches image requests in a wrong order, before the image before has come, or not for the whole release."""
    start(analyzer, BY_PC)
    expect_from_daemon(connected_pc, Command.GET_INFO, b"\x03\xE0")
    version = {image: NEW if image in newer else OLD for image in FILES}
    connected_pc.send_update_info({bits.SYS: version[SYS], bits.APP: version[APP], bits.XML: version[XML]})
    for image, bit in ((SYS, 0x08), (APP, 0x10), (XML, 0x40)):
        expect_from_daemon(connected_pc, Command.IMAGE_REQUEST, struct.pack("<IH", bit, 0))
        push(connected_pc, FILES[image])
    messages, progress = succeed(analyzer)
    # The archive is not coupled in what ZELApp is told before, but it is asked for with the others.
    assert announced(messages) == [(image, version[image]) for image in (SYS, APP, XML) if image != XML or XML in newer]
    assert progress == {APP: 100, XML: 100, SYS: 100}
    check_updated(analyzer, FILES, "by PC")


def test_cancel(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches codes that are not understood, a flag that stays for the next update, and images left open."""
    before = record(analyzer)
    for count, code in enumerate((0x0013, 0x0014, 0x0015)):
        begin_push(analyzer, connected_pc)
        for other in (0x0012, 0x0016):
            connected_pc.cancel_update(other)
        push(connected_pc, FILES[XML])
        assert analyzer.daemon.log().count("Update cancel accepted") == count
        connected_pc.send(Command.IMAGE_DATA, FILES[SYS][:IMAGE_PIECE], flag=True)
        connected_pc.cancel_update(code)
        fail(analyzer, PC_ERROR, hex(code))
        wait_idle(analyzer, "Registered")
        check_nothing_open(analyzer)
    connected_pc.offer_update([bits.SYS])
    analyzer.zelapp.expect(UpdateRequested)
    connected_pc.cancel_update()
    analyzer.daemon.wait_for_log("Update cancel accepted", count=4)
    start(analyzer, FROM_PC)
    fail(analyzer, PC_ERROR)
    connected_pc.expect(Command.UPDATE_ACCEPTED)
    assert "download delayed (2 counts)" not in analyzer.daemon.log(), "cancelled before ZELApp started it"
    connected_pc.cancel_update()
    analyzer.daemon.wait_for_log("Update cancel accepted", count=5)
    assert record(analyzer) == before and not written(analyzer)
    push_all(analyzer, connected_pc)


def test_bad_images(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches an image that is not as announced being taken, spoiling the next one, or being answered twice."""
    app = FILES[APP]
    cases: dict[str, list[bytes]] = {
        "an unknown magic": [replace(app, 0, b"ZV6A")[:20000], app[20000:30000], app[:20000]],
        "no bytes": [b""],
        "a negative size": [header_with(app, -1)[:20000], app[:20000]],
        "a byte more than announced": [header_with(app, 1000)[:1041]],
        "less than announced": [app[:20000], app[20000:20010]],
        "the header again": [app[:20000], *(app[i:i + 30000] for i in range(0, len(app), 30000))],
    }
    begin_push(analyzer, connected_pc)
    for pieces in cases.values():
        send_pieces(connected_pc, *pieces)
        expect_refusal(connected_pc)
        # The session answers in order: what comes next is the answer to the next image.
        push(connected_pc, FILES[XML])
    push(connected_pc, app)
    # As long as announced, but not the four that belong there: it is not complete.
    boot, kernel, rootfs, qte = sections_of(FILES)
    for bad in ([boot, header_with(kernel, -1), rootfs, qte], [boot, kernel, rootfs],
                [boot, kernel, rootfs, make(APP, "human", NEW, b"app")]):
        push(connected_pc, make_sys("human", NEW, bad))
        expect_refusal(connected_pc)
    # Neither what is unknown, nor what is unknown and longer than the rest.
    for foreign in (replace(boot, 0, b"ZV6B"), header_with(replace(boot, 0, b"ZV6B"), 1 << 30)):
        push(connected_pc, make_sys("human", NEW, [foreign, kernel, rootfs, qte]))
        expect_from_daemon(connected_pc, Command.IMAGE_RECEIVED, b"")  # the same once more, for the section
        expect_refusal(connected_pc)
    analyzer.daemon.wait_for_log("download delayed (2 counts)")
    push(connected_pc, FILES[SYS])
    succeed(analyzer)
    check_updated(analyzer, FILES, "From PC")
    check_nothing_open(analyzer)


def test_what_does_not_belong_together(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches a part of a release, a package with more than its images, or one of its images alone being written,
    switched to or recorded."""
    sys, app, xml = (FILES[image] for image in (SYS, APP, XML))
    kernel = sections_of(FILES)[1]
    longer = header_with(sys + kernel, len(sys + kernel) - HEADER_SIZE)
    before = record(analyzer)
    for offered, pushed, error in (
            ((APP, XML), [app, xml], WRITE_ERROR), ((SYS, APP), [sys, app], WRITE_ERROR), ((), [kernel], None),
            ((SYS, APP, XML), [sys, kernel, app, xml], WRITE_ERROR),
            ((SYS, APP, XML), [longer, app, xml], WRITE_ERROR)):
        begin_push(analyzer, connected_pc, offered)
        push(connected_pc, *pushed)
        end = follow(analyzer)[-1]
        assert (isinstance(end, UpdateFailed) and (end.code, end.group)) == error if error \
            else isinstance(end, NothingToUpdate), f"{offered}: {end}"
        assert record(analyzer) == before and not written(analyzer), offered
    push_all(analyzer, connected_pc)


def test_a_neighbour(analyzer: Analyzer, pc: Pc, other_pc: Pc) -> None:
    """Catches a stranger who cancels, feeds, spoils or holds up the update of the connected PC, or who is answered
    piece by piece."""
    stranger = other_pc
    stranger.connect()
    stranger.send(Command.IMAGE_DATA, FILES[SYS][:20000], flag=True)
    analyzer.daemon.wait_for_log("Tmp save file open: /tmp/zel_sys.n62.raw")
    pc.register(PASSWORD)
    pc.start_heartbeat()
    assert analyzer.zelapp.expect(PcConnection).connected
    push(pc, FILES[XML])
    assert not analyzer.sandbox.path("/tmp/zel_sys.n62.raw").exists(), "half an image of a stranger was kept"
    send_pieces(stranger, FILES[SYS][20000:30000], FILES[SYS][30000:40000])
    expect_refusal(stranger)

    begin_push(analyzer, pc)
    push(pc, FILES[APP])
    stranger.cancel_update()
    stranger.send_update_info({bits.XML: NEW})
    stranger.offer_update([bits.SYS])
    expect_refusal(stranger)
    for pieces in ([FILES[XML]], [FILES[SYS][:20000], *[FILES[APP][:20000]] * 10]):
        send_pieces(stranger, *pieces)
        expect_refusal(stranger)
    assert stranger.get_info(Info.SERIAL), "one answer was enough"
    pc.send(Command.IMAGE_DATA, FILES[SYS][:20000], flag=True)
    stranger.disconnect()
    analyzer.daemon.wait_for_log("PC Disconnected")
    push(pc, FILES[SYS][20000:], FILES[XML])
    succeed(analyzer)
    check_updated(analyzer, FILES, "From PC")


def test_a_pc_that_does_not_read(analyzer: Analyzer, pc: Pc) -> None:
    """Catches an update that waits until a PC has taken its answers."""
    pc.tcp = analyzer.sandbox.socket(socket.SOCK_STREAM)
    # Small segments and a small buffer, so that not so many answers fit.
    pc.tcp.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 100)
    pc.tcp.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
    pc.tcp.connect((pc.analyzer, bits.ANALYZER_TCP_PORT))
    pc.tcp.settimeout(2)
    with pytest.raises(TimeoutError):
        while True:
            pc.tcp.send(Packet(Command.IMAGE_DATA, 1, ord("1")).encode() * 100)
    insert_stick(analyzer, FILES)
    start(analyzer, USB)
    succeed(analyzer)
    check_updated(analyzer, FILES, "USB")
    assert analyzer.daemon.stop() == 1  # before the PC closes the session that is being sent to


def test_data_while_another_update_runs(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches a PC that changes the marks or the files of an update from another source."""
    files, others = release(), release("9.09.09.9009", sizes={APP: 5000})
    insert_stick(analyzer, files)
    analyzer.set_faults(**{"upImgWrite.delay_ms": "60"})
    start(analyzer, USB)
    wait_until(lambda: any(call.startswith("upImgWrite") for call in analyzer.calls()), 20, "writing has begun")
    connected_pc.offer_update([bits.DSP])
    connected_pc.send_update_info({bits.XML: "9.09.09.9009"})
    for image in (APP, XML):
        connected_pc.send(Command.IMAGE_DATA, others[image])
        expect_refusal(connected_pc)
    assert announced(succeed(analyzer)[0]) == [(image, NEW) for image in (APP, DSP, XML, SYS)]
    check_updated(analyzer, files, "USB")


def test_the_pc_connects_again(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches an update that waits for a session that was not asked, or ends without ZELApp hearing of it."""
    for asked in (None, Command.GET_INFO, Command.IMAGE_REQUEST):
        if asked:
            start(analyzer, BY_PC)
            connected_pc.expect(Command.GET_INFO)
        else:
            begin_push(analyzer, connected_pc)
        if asked == Command.IMAGE_REQUEST:
            connected_pc.send_update_info(ALL_NEW)
            connected_pc.expect(Command.IMAGE_REQUEST)
        lost, back, up = (analyzer.daemon.log().count(line) for line in ("PC Disconnected", "TCP session reconnected", UP))
        connected_pc.disconnect()
        analyzer.daemon.wait_for_log("PC Disconnected", 20, lost + 1)
        connected_pc.connect()
        analyzer.daemon.wait_for_log("TCP session reconnected", 20, back + 1)
        fail(analyzer, PC_ERROR, str(asked))
        analyzer.daemon.wait_for_log(UP, 20, up + 1)
    assert "download delayed (3 counts)" not in analyzer.daemon.log(), "the push was lost, and did not stall"


@pytest.mark.parametrize("offered", [False, True])
def test_the_pc_falls_silent(analyzer: Analyzer, connected_pc: Pc, offered: bool) -> None:
    """Catches a wait for offers, or for an image, that outlasts the PC, which counts as gone 10 s after its last notice."""
    start(analyzer, BY_PC)
    connected_pc.expect(Command.GET_INFO)
    if offered:
        connected_pc.send_update_info(ALL_NEW)
        connected_pc.expect(Command.IMAGE_REQUEST)
    connected_pc.stop_heartbeat()
    fail(analyzer, PC_ERROR, timeout=40)
    wait_until(lambda: statuses(analyzer)[-1] != "Updating", 20, "the worker has ended")


def test_a_push_that_stalls(analyzer: Analyzer, connected_pc: Pc) -> None:
    """Catches a slow push that is given up, and a stalled one that is not after about six seconds."""
    begin_push(analyzer, connected_pc)
    analyzer.daemon.wait_for_log("download delayed (4 counts)", 20)
    delayed = "download delayed (1 counts)"
    seen = analyzer.daemon.log().count(delayed)
    connected_pc.send(Command.IMAGE_DATA, FILES[APP][:IMAGE_PIECE], flag=True)
    analyzer.daemon.wait_for_log(delayed, 20, seen + 1)
    began = time.monotonic()
    fail(analyzer, PC_ERROR)
    assert time.monotonic() - began > 4.5
    assert "(6 counts)" in analyzer.daemon.log() and "(7 counts)" not in analyzer.daemon.log()
    check_nothing_open(analyzer)
    push_all(analyzer, connected_pc)
