"""An update from the update server, and its QC-material document."""

from __future__ import annotations

import shutil
import socket
import time

import pytest

from bench.analyzer import Analyzer
from bench.daemon import wait_until
from bench.image import APP, DSP, HEADER_SIZE, INFO_PATH, KERNEL, QC_PATHS, SYS, XML, make_sys, server_path
from bench.sandbox import UPDATE_HOST
from bench.updates import (INTERNET, NEW, NEWER, OLD, QC, SERVER_ERROR, announced, check_nothing_open, check_updated,
                           fail, header_with, history, open_files, record, release, replace, sections_of, start,
                           succeed, wait_idle, written)
from bench.updateserver import (Behaviour, FaultyServer, UpdateServer, answer, answer_with_length, by_path, chunked,
                                close_at_once, update_info)
from bench.zelapp import NothingToUpdate, UpdateComplete

RELEASE = release(without=(DSP,))
INFO = f"/{INFO_PATH}"
QC_FILE = "/tmp/control_material_rm.xml"


def path(image: int, model: str = "human") -> str:
    return f"/{server_path(image, model)}"


def request(path: str, protocol: str = "HTTP/1.1") -> bytes:
    return f"GET {path} {protocol}\r\nHost: {UPDATE_HOST}\r\n\r\n".encode()


def good_answers(files: dict[int, bytes], model: str = "human") -> dict[str, Behaviour]:
    return {INFO: answer_with_length(update_info(model, files))} \
        | {path(image, model): answer_with_length(data) for image, data in files.items()}


def cut(data: bytes, count: int) -> Behaviour:
    """A whole header and the first bytes of the body; then the connection is closed."""
    return answer_with_length(data[:count], len(data))


def check_quiet(analyzer: Analyzer) -> None:
    """Nothing more is told to ZELApp after an update's end."""
    wait_idle(analyzer)
    with pytest.raises(TimeoutError):
        pytest.fail(f"{analyzer.zelapp.receive(0.05)} came after the end")


NODE = pytest.param("node", marks=pytest.mark.skipif(not shutil.which("node"), reason="needs node"))


@pytest.mark.parametrize("name", ["nginx", NODE, "the bench's own"])
def test_a_release_from_a_real_server(analyzer: Analyzer, name: str) -> None:
    """Catches an understanding of HTTP, images or progress that holds for one server only."""
    server = UpdateServer(analyzer.sandbox, name=name)
    before = record(analyzer)
    server.publish("human", release(OLD, without=(DSP,)))
    start(analyzer, INTERNET)
    assert isinstance(analyzer.zelapp.receive(), NothingToUpdate)
    # What comes inside SYS, and DSP, is not the server's to offer.
    others = {KERNEL: sections_of(RELEASE)[1], DSP: release()[DSP]}
    server.publish("human", others)
    start(analyzer, INTERNET)
    fail(analyzer, SERVER_ERROR)
    assert record(analyzer) == before

    server.publish("human", RELEASE | others)
    start(analyzer, INTERNET)
    messages, progress = succeed(analyzer)
    assert announced(messages) == [(image, NEW) for image in (APP, XML, SYS)]
    assert progress == {APP: 100, XML: 100, SYS: 100}
    check_updated(analyzer, RELEASE, "INTERNET")
    start(analyzer, QC)
    assert isinstance(analyzer.zelapp.receive(), UpdateComplete)
    assert analyzer.sandbox.path(QC_FILE).read_bytes() == b"<control_material/>\n"
    expected = [*[f"GET {INFO} HTTP/1.1 200"] * 3, *(f"GET {path(image)} HTTP/1.0 200" for image in (APP, XML, SYS)),
                f"GET /{QC_PATHS['human']} HTTP/1.1 200"]
    # A server tells of a request once it has answered it, which may be after it has told of the next one.
    wait_until(lambda: name == "node" or sorted(server.requests()) == sorted(expected), 20, "the requests are told")
    check_quiet(analyzer)
    check_nothing_open(analyzer)


@pytest.mark.parametrize("model", ["Human", "Veterinary"])
def test_what_is_asked_for(analyzer: Analyzer, model: str) -> None:
    """Catches requests that differ in any byte, and the offer or the QC material of the other model being taken."""
    own, other = model.lower(), "veterinary" if model == "Human" else "human"
    files = release(model=own, without=(DSP,))
    offers = [update_info(name, release(version, name, without=(DSP,))).split(b"<update>\n")[1].split(b"</update>")[0]
              for name, version in ((other, NEWER), (own, NEW))]
    document = b"<update>" + b"".join(offers) + b"</update>"
    headers = "X-Content-Length: 3", "Via: 1.1 a (Content-Length: 3)", f"content-length: {len(document)}"
    answers = good_answers(files, own) | {INFO: answer(document, *headers)} \
        | {f"/{name}": chunked(b"<qc/>\0for " + key.encode()) for key, name in QC_PATHS.items()}
    with FaultyServer(analyzer.sandbox, by_path(answers)) as server:
        start(analyzer, INTERNET)
        succeed(analyzer)
        check_updated(analyzer, files, "INTERNET")
        assert server.requests == [request(INFO), *(request(path(i, own), "HTTP/1.0") for i in (APP, XML, SYS))]
        start(analyzer, QC)
        assert isinstance(analyzer.zelapp.receive(), UpdateComplete)
        assert server.requests[4:] == [request(f"/{QC_PATHS[own]}")]
        assert analyzer.sandbox.path(QC_FILE).read_bytes() == b"<qc/>\0for " + own.encode()
        check_quiet(analyzer)
        assert len(history(analyzer)) == 7, "QC material has no history"


GOOD_INFO = update_info("human", RELEASE)
INVALID_HEADER, INVALID_LENGTH = "Invalid HTTP header received", "Invalid contents length"
ABNORMAL, NO_LIST = "Maybe abnormal XML is loaded", "NULL pointer of 'NodeList *' is returned"
# What the server does, and the line of the log that tells that it was noticed.
BAD_DOCUMENTS: dict[str, tuple[Behaviour, str]] = {
    "closed before the header": (close_at_once, "recv fail"),
    "closed in the header": (lambda connection, _: connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Le"), "recv fail"),
    "closed in the body": (cut(GOOD_INFO, len(GOOD_INFO) // 2), "Peer connection shutdown"),
    "in pieces that are packed": (answer(GOOD_INFO, "Transfer-Encoding: gzip, chunked"), INVALID_HEADER),
    "closed in a piece": (answer(b"9\r\n12345", "Transfer-Encoding: chunked"), "Peer connection shutdown"),
    "a piece that is longer than told": (answer(b"1\r\nxx\r\n0\r\n", "Transfer-Encoding: chunked"), INVALID_LENGTH),
    "a piece without a size": (answer(b"many\r\n" + GOOD_INFO, "Transfer-Encoding: chunked"), INVALID_LENGTH),
    "pieces above 1 MiB": (chunked(GOOD_INFO + bytes(1 << 20)), INVALID_LENGTH),
    "a redirect": (answer(GOOD_INFO, f"Content-Length: {len(GOOD_INFO)}", "Location: /x", status="302 Found"), ""),
    "not found": (answer(b"<html/>", "Content-Length: 7", status="404 Not Found"), ""),
    "a length above 1 MiB": (answer(GOOD_INFO, f"Content-Length: {(1 << 20) + 1}"), INVALID_LENGTH),
    "a length beyond all numbers": (answer(GOOD_INFO, f"Content-Length: {'9' * 40}"), INVALID_LENGTH),
    "a header above 64 KiB": (answer(GOOD_INFO, "X: " + "y" * 70_000, f"Content-Length: {len(GOOD_INFO)}"),
                              "recv fail"),
}
BAD_INFOS: dict[str, tuple[bytes, str]] = {
    "no XML": (b"<model", NO_LIST),
    "cut at a zero byte": (GOOD_INFO.replace(b"</model>", b"\0</model>"), NO_LIST),
    "no images": (b'<update><model name="Human"/></update>', "Find Human model information"),
    "a missing attribute in the last entry": (GOOD_INFO[::-1].replace(b'"2000"=rebmun_dliub', b"", 1)[::-1], ABNORMAL),
    "an unknown image": (GOOD_INFO.replace(b'name="zel_xml', b'name="zel_fpga'), "Cannot find update module name"),
    "a second request in a path": (GOOD_INFO.replace(b'="/n62/zel_sys', b'="/n62 x&#13;&#10;y'), ABNORMAL),
    "a path to nowhere": (GOOD_INFO.replace(b'="/n62/zel_app', b'="n62/zel_app'), ABNORMAL),
}


def run_bad(analyzer: Analyzer, method: int, what: str, line: str, descriptors: list[str]) -> None:
    """An update that must fail for the expected reason and leave nothing open."""
    seen = analyzer.daemon.log().count(line)
    start(analyzer, method)
    fail(analyzer, SERVER_ERROR, what)
    assert analyzer.daemon.log().count(line) > seen, f"{what}: failed for another reason than {line}"
    wait_idle(analyzer)
    assert open_files(analyzer) == descriptors, what


def test_bad_documents(analyzer: Analyzer) -> None:
    """Catches a bad answer that is believed, even in part, and a socket or file that stays open after one."""
    before, descriptors = record(analyzer), open_files(analyzer)
    cases = BAD_DOCUMENTS | {what: (answer_with_length(text), line) for what, (text, line) in BAD_INFOS.items()}
    with FaultyServer(analyzer.sandbox, close_at_once) as server:
        for what, (server.behaviour, line) in cases.items():
            run_bad(analyzer, INTERNET, what, line or "Update file does not exist.", descriptors)
        assert server.requests == [request(INFO)] * len(cases), "an image was asked for"
        assert record(analyzer) == before and not written(analyzer)

        for what, (server.behaviour, line) in BAD_DOCUMENTS.items():
            run_bad(analyzer, QC, what, line or "Download update file error", descriptors)
            assert not analyzer.sandbox.path(QC_FILE).exists(), f"{what}: a part was kept"
        server.behaviour = answer_with_length(b"")
        start(analyzer, QC)
        assert isinstance(analyzer.zelapp.receive(), UpdateComplete)
        assert analyzer.sandbox.path(QC_FILE).read_bytes() == b""

        server.behaviour = by_path(good_answers(RELEASE))
        start(analyzer, INTERNET)
        succeed(analyzer)
        check_updated(analyzer, RELEASE, "INTERNET")


def bad_images() -> dict[str, tuple[int, Behaviour, str]]:
    app, xml, package = RELEASE[APP], RELEASE[XML], RELEASE[SYS]
    boot, kernel, rootfs, qte = sections_of(RELEASE)
    no_header, foreign, lost = "recv error during HTTP header", "magic number", "recv error during download"
    version, abnormal = "Update xml version and internal file version are different each other", "abnormal: -1"
    return {
        "closed before the header": (APP, close_at_once, no_header),
        "a header without an end": (APP, answer(app, "X: " + "y" * 70_000), no_header),
        "closed in the magic": (APP, cut(app, 3), f"{lost} zel_app.n62.bin file's magic"),
        "closed in the image": (APP, cut(app, len(app) - 1), "[CUpdate::DownloadFile] recv error: "),
        "another image": (XML, answer_with_length(app), foreign),
        "another version": (XML, answer_with_length(release(NEWER)[XML]), version),
        "a negative size": (XML, answer_with_length(header_with(xml, -1)), abnormal),
        "a SYS of another version": (SYS, answer_with_length(release(NEWER)[SYS]), version),
        "closed in a section": (SYS, cut(package, len(package) - 1), "[CUpdate::DownloadFile] recv error: "),
        "closed between sections": (SYS, cut(package, HEADER_SIZE + len(boot) + len(kernel)), lost),
        "a foreign section": (SYS, answer_with_length(replace(package, HEADER_SIZE, b"ZV6B")), "Not correct file"),
        "two kernels": (SYS, answer_with_length(replace(package, HEADER_SIZE, b"ZN6K")), "Not correct file"),
        "a SYS in the SYS": (SYS, answer_with_length(replace(package, HEADER_SIZE, b"ZN6S")), "Not correct file"),
        "a section of negative size": (SYS, answer_with_length(
            make_sys("human", NEW, [boot, header_with(kernel, -1), rootfs, qte])), abnormal),
    }


def test_bad_images(analyzer: Analyzer) -> None:
    """Catches an image that is not whole or not the announced one being written."""
    before, descriptors = record(analyzer), open_files(analyzer)
    with FaultyServer(analyzer.sandbox, close_at_once) as server:
        for what, (image, behaviour, line) in bad_images().items():
            server.behaviour = by_path(good_answers(RELEASE) | {path(image): behaviour})
            run_bad(analyzer, INTERNET, what, line, descriptors)
        assert record(analyzer) == before and not written(analyzer)
        server.behaviour = by_path(good_answers(RELEASE))
        start(analyzer, INTERNET)
        succeed(analyzer)
        check_updated(analyzer, RELEASE, "INTERNET")


@pytest.mark.parametrize("where", ["document", "image", "QC material"])
def test_a_silent_server(analyzer: Analyzer, where: str) -> None:
    """Catches a wait for a silent server that is not about five seconds."""
    descriptors = open_files(analyzer)
    with FaultyServer(analyzer.sandbox, close_at_once) as server:
        def begin_and_stop(connection: socket.socket, silent_request: bytes) -> None:
            connection.sendall(b"HTTP/1.1 200 OK\r\n\r\n" + RELEASE[APP][:5000])
            server.stay_silent(connection, silent_request)

        server.behaviour = by_path(good_answers(RELEASE) | {path(APP): begin_and_stop}) if where == "image" \
            else server.stay_silent
        start(analyzer, QC if where == "QC material" else INTERNET)
        began = time.monotonic()
        fail(analyzer, SERVER_ERROR)
        assert 4.5 < time.monotonic() - began < 30
        wait_idle(analyzer)
        assert open_files(analyzer) == descriptors and not written(analyzer)


@pytest.mark.parametrize("host", ["nowhere.zel.example", UPDATE_HOST])
def test_no_server(analyzer: Analyzer, host: str) -> None:
    """Catches a name that is not found, or a connection that is refused, ending worse than any other failure."""
    analyzer.change_setting("UpdateURL", host)
    descriptors = open_files(analyzer)
    for method in (INTERNET, QC):
        start(analyzer, method)
        fail(analyzer, SERVER_ERROR)
        check_quiet(analyzer)
    assert open_files(analyzer) == descriptors and not analyzer.sandbox.path(QC_FILE).exists()
