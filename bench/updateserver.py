"""The update server: a real nginx beside the analyzer, and a small server that misbehaves on purpose."""

from __future__ import annotations

import re
import shutil
import socket
import threading
from collections.abc import Callable
from pathlib import Path

from bench.daemon import wait_until
from bench.image import INFO_PATH, QC_PATHS, document, parse, server_path
from bench.sandbox import PROJECT, SERVER_ADDRESS, Sandbox

# One process that changes no user: a sandbox of an ordinary user knows only one.
NGINX = """
daemon off;
master_process off;
user root;
pid {directory}/pid;
error_log {directory}/error.log;
events {{ worker_connections 64; }}
http {{
    access_log {directory}/access.log;
    client_body_temp_path {directory}/body;
    proxy_temp_path {directory}/proxy;
    fastcgi_temp_path {directory}/fastcgi;
    uwsgi_temp_path {directory}/uwsgi;
    scgi_temp_path {directory}/scgi;
    server {{
        listen {address}:{port};
        root {root};
    }}
}}
"""


def nginx_path() -> str | None:
    """The machine's nginx, or the one that `./zel` has unpacked without installing it; None when there is neither."""
    unpacked = PROJECT / "build/nginx/usr/sbin"
    return shutil.which("nginx", path=f"/usr/sbin:/usr/bin:{unpacked}")


def update_info(model: str, files: dict[int, bytes], versions: dict[int, str] | None = None) -> bytes:
    """The document for these update files. `versions` may differ from what the files hold."""
    return document({model: {image: (versions or {}).get(image) or parse(data).version
                             for image, data in files.items()}})


# Reads a file while it sends it, so that an answer to HTTP/1.1 comes in chunks.
NODE = """
require('http').createServer((request, answer) => {
    require('fs').createReadStream(process.argv[1] + request.url).pipe(answer);
}).listen(process.argv[3], process.argv[2]);
"""


class UpdateServer:
    """The server at the address that the update server's name stands for: nginx, or the bench's own without it.

    It serves a directory of the sandbox, or `root`, which stays when the sandbox goes. Asked for by name, it may be
    "node", which keeps no list of its requests, or "the bench's own".
    """

    def __init__(self, sandbox: Sandbox, root: Path | None = None, name: str = "nginx"):
        self._sandbox = sandbox
        self._address = (SERVER_ADDRESS, sandbox.laboratory.server_port)
        self.directory = sandbox.root / "server"
        self.directory.mkdir()
        self.root = (root or self.directory / "www").resolve()
        self.root.mkdir(parents=True, exist_ok=True)
        if root is None:
            self.put(INFO_PATH, document({}))
        self._log = self.directory / "access.log"
        nginx = nginx_path()
        self.name = name if name != "nginx" or nginx else "the bench's own"
        if self.name == "node":
            self._start(["node", "-e", NODE, str(self.root), *map(str, self._address)])
        else:
            self._start(self._nginx(nginx) if self.name == "nginx" and nginx else self._own())

    def _nginx(self, program: str) -> list[str]:
        address, port = self._address
        configuration = self.directory / "nginx.conf"
        configuration.write_text(NGINX.format(directory=self.directory, address=address, port=port, root=self.root))
        return [program, "-e", f"{self.directory}/error.log", "-c", str(configuration)]

    def _own(self) -> list[str]:
        address, port = self._address
        return ["/usr/bin/python3", "-m", "bench.image", "serve", str(self.root), "--bind", address, "--port", str(port)]

    def _start(self, command: list[str]) -> None:
        with open(self._log, "ab") as output, open(self.directory / "errors", "wb") as errors:
            self._process = self._sandbox.pc.spawn(command, output, errors, {"PYTHONPATH": str(PROJECT)})
        wait_until(self._serves, 10, "the update server takes connections")

    def _serves(self) -> bool:
        if self._process.poll() is not None:
            raise RuntimeError(f"the update server ended: {(self.directory / 'errors').read_text()}")
        with self._sandbox.socket(socket.SOCK_STREAM) as probe:
            return probe.connect_ex(self._address) == 0

    def put(self, path: str, content: bytes) -> None:
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_bytes(content)

    def publish(self, model: str, files: dict[int, bytes], versions: dict[int, str] | None = None) -> None:
        """Offers the update files of a release, and a QC-material document."""
        shutil.rmtree(self.root)
        self.put(INFO_PATH, update_info(model, files, versions))
        for image, data in files.items():
            self.put(server_path(image, model), data)
        self.put(QC_PATHS[model], b"<control_material/>\n")

    def requests(self) -> list[str]:
        """The request lines served so far, each with the status of the answer."""
        found = re.findall(r'(GET [^ "]+ HTTP/[0-9.]+)"? ([0-9]{3})', self._log.read_text())
        return [f"{request} {status}" for request, status in found]


Behaviour = Callable[[socket.socket, bytes], None]


class FaultyServer:
    """A server on the update server's address that does to each connection what a behaviour says.

    A behaviour gets the connection and the request, which was read up to its empty line; the connection is closed after
    it returns. Requests are kept in `requests`.
    """

    def __init__(self, sandbox: Sandbox, behaviour: Behaviour):
        self.behaviour = behaviour
        self.requests: list[bytes] = []
        self.stopped = threading.Event()
        self._listener = sandbox.socket(socket.SOCK_STREAM, listen=16,
                                        bind=(SERVER_ADDRESS, sandbox.laboratory.server_port))
        self._listener.settimeout(0.05)
        self._threads = [threading.Thread(target=self._serve, daemon=True)]
        self._threads[0].start()

    def _serve(self) -> None:
        while not self.stopped.is_set():
            try:
                connection, _ = self._listener.accept()
            except TimeoutError:
                continue
            thread = threading.Thread(target=self._handle, args=(connection,), daemon=True)
            self._threads.append(thread)
            thread.start()

    def _handle(self, connection: socket.socket) -> None:
        with connection:
            connection.settimeout(60)
            try:
                request = b""
                while not request.endswith(b"\r\n\r\n"):
                    piece = connection.recv(4096)
                    if not piece:
                        return
                    request += piece
                self.requests.append(request)
                self.behaviour(connection, request)
            except OSError:  # the daemon closed the connection first
                pass

    def stay_silent(self, _connection: socket.socket, _request: bytes) -> None:
        """A behaviour: answers nothing and keeps the connection."""
        self.stopped.wait()

    def close(self) -> None:
        self.stopped.set()
        for thread in self._threads:
            thread.join()
        self._listener.close()

    def __enter__(self) -> FaultyServer:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


# Behaviours

def close_at_once(_connection: socket.socket, _request: bytes) -> None:
    pass


def answer(body: bytes, *headers: str, status: str = "200 OK") -> Behaviour:
    """Sends exactly these header lines and this body."""
    head = "\r\n".join([f"HTTP/1.1 {status}", *headers, "", ""]).encode()
    return lambda connection, _request: connection.sendall(head + body)


def answer_with_length(body: bytes, length: int | None = None) -> Behaviour:
    """A well-formed answer, or one whose announced length is another than the body's."""
    return answer(body, f"Content-Length: {len(body) if length is None else length}")


def chunked(body: bytes) -> Behaviour:
    return answer(b"%x\r\n%s\r\n0\r\n\r\n" % (len(body), body), "Transfer-Encoding: chunked")


def redirect(target: str) -> Behaviour:
    return answer(b"", f"Location: {target}", "Content-Length: 0", status="302 Found")


def by_path(documents: dict[str, Behaviour]) -> Behaviour:
    """Chooses the behaviour by the path asked for."""
    def behave(connection: socket.socket, request: bytes) -> None:
        path = request.split(b" ", 2)[1].decode("latin-1")
        documents.get(path, answer_with_length(b""))(connection, request)
    return behave
