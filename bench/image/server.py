"""A small update server for trying a publication: serves the files of a directory and tells every request."""

from __future__ import annotations

import errno
import json
import sys
import time
from functools import partial
from http import HTTPStatus
from http.server import BaseHTTPRequestHandler
from pathlib import Path
from socketserver import TCPServer, ThreadingMixIn
from urllib.parse import unquote, urlsplit

from bench.image.catalogue import INFO_PATH, Refused

PORT = 80  # the only one that an analyzer asks
IDLE_SECONDS = 60
PIECE = 1 << 16


class Handler(BaseHTTPRequestHandler):
    """One request a connection. Nothing outside the directory is served, and no list of what is there."""

    server_version = "zel-image"
    sys_version = ""
    protocol_version = "HTTP/1.1"
    timeout = IDLE_SECONDS

    def __init__(self, root: Path, as_json: bool, *arguments: object):
        self._root, self._as_json = root, as_json
        super().__init__(*arguments)  # type: ignore[arg-type]

    def do_GET(self) -> None:
        self._answer(with_body=True)

    def do_HEAD(self) -> None:
        self._answer(with_body=False)

    def _answer(self, with_body: bool) -> None:
        self.close_connection = True
        path = (self._root / unquote(urlsplit(self.path).path).lstrip("/")).resolve()
        if not path.is_relative_to(self._root) or not path.is_file():
            self._head(HTTPStatus.NOT_FOUND, 0)
            self._tell(HTTPStatus.NOT_FOUND, 0, 0)
            return
        with open(path, "rb") as file:
            size, sent = path.stat().st_size, 0
            try:
                self._head(HTTPStatus.OK, size)
                while with_body and (piece := file.read(PIECE)):
                    self.wfile.write(piece)
                    sent += len(piece)
            except OSError:  # who asked is gone; the line tells how far it came
                pass
        self._tell(HTTPStatus.OK, sent, size)

    def _head(self, status: HTTPStatus, size: int) -> None:
        self.send_response(status)
        self.send_header("Content-Type", "application/octet-stream")
        self.send_header("Content-Length", str(size))
        self.send_header("Connection", "close")
        self.end_headers()

    def _tell(self, status: HTTPStatus, sent: int, size: int) -> None:
        now, client = time.strftime("%H:%M:%S"), self.client_address[0]
        request = "".join(character if character.isprintable() else "?" for character in self.requestline)
        if self._as_json:
            print(json.dumps({"time": now, "client": client, "request": request, "status": int(status), "sent": sent,
                              "size": size}), flush=True)
        else:
            amount = f"{sent} bytes" if sent == size else f"{sent} of {size} bytes"
            print(f"{now} {client} {request} {int(status)} {amount}", flush=True)

    def log_request(self, *_: object) -> None:
        """Requests tell themselves, once they are answered."""

    def log_error(self, text: str, *values: object) -> None:
        print(f"{self.client_address[0]}: {text % values}", file=sys.stderr, flush=True)


class Server(ThreadingMixIn, TCPServer):
    """Without the library's look for its own name, which takes long where no name server answers."""

    allow_reuse_address = True
    daemon_threads = True


def serve(root: Path, address: str, port: int, as_json: bool) -> None:
    """Serves until it is interrupted."""
    if not (root / INFO_PATH).is_file():
        raise Refused(f"{root}: {INFO_PATH} is not there; publish makes it")
    try:
        server = Server((address, port), partial(Handler, root.resolve(), as_json))
    except OSError as error:
        why = {errno.EACCES: "only root may open it", errno.EADDRINUSE: "another program has it"}
        raise Refused(f"port {port} is refused, {why.get(error.errno or 0, error.strerror)}; an analyzer asks at port "
                      f"{PORT} only, --port 8080 is for trying the server without one") from None
    with server:
        print(f"serving {root} on {address or 'every address'}, port {port}; Ctrl-C ends", file=sys.stderr, flush=True)
        server.serve_forever()
