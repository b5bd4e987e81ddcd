"""A small HTTP server of the bench's own, for where nginx is not to be had."""

from __future__ import annotations

import socket
import threading
from functools import partial
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from typing import Any


class _Handler(SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def __init__(self, *arguments: Any, log: Path, **values: Any):
        self._log = log
        super().__init__(*arguments, **values)

    def log_request(self, code: Any = "-", _size: Any = "-") -> None:
        with open(self._log, "a") as log:
            log.write(f'"{self.requestline}" {int(code)}\n')

    def log_message(self, *_: Any) -> None:
        """The requests are enough."""


class HttpServer(ThreadingHTTPServer):
    """Serves the files of a directory on a listening socket, and notes the requests in a file."""

    def __init__(self, listener: socket.socket, directory: Path, log: Path):
        log.touch()
        super().__init__(listener.getsockname(), partial(_Handler, directory=str(directory), log=log),
                         bind_and_activate=False)
        self.socket.close()
        self.socket = listener
        threading.Thread(target=self.serve_forever, daemon=True).start()
