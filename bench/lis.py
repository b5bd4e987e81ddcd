"""A laboratory information system that takes HL7 messages by MLLP, and misbehaves as it is told."""

from __future__ import annotations

import socket
import ssl
import threading
from collections.abc import Callable
from contextlib import suppress

BEGIN, END = b"\x0b", b"\x1c\r"


def field(message: str, segment: str, number: int) -> str:
    """A field of the first segment of that name."""
    line = next(line for line in message.splitlines() if line.startswith(segment + "|"))
    fields = line.split("|")
    return fields[number - 1] if segment == "MSH" else fields[number]


def acknowledge(message: str, code: str = "AA", text: str = "") -> bytes:
    answer = f"MSH|^~\\&|LIS||||20261121||ACK|1|P|2.5.1\rMSA|{code}|{field(message, 'MSH', 10)}|{text}\r"
    return BEGIN + answer.encode() + END


class Lis:
    """Serves a listening socket. `answer` gives what to send back for a message; None closes the connection."""

    def __init__(self, listener: socket.socket, answer: Callable[[str], bytes | None] = acknowledge,
                 tls: ssl.SSLContext | None = None):
        self.answer = answer
        self.accepted: list[str] = []  # messages that were answered with AA, in their order
        self.received: list[str] = []
        self._mutex = threading.Lock()
        self._listener = listener
        self._tls = tls
        self._connections: set[socket.socket] = set()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self) -> None:
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with self._mutex:
                self._connections.add(connection)
            threading.Thread(target=self._talk, args=(connection,), daemon=True).start()

    def _talk(self, connection: socket.socket) -> None:
        data = b""
        try:
            if self._tls:
                plain, connection = connection, self._tls.wrap_socket(connection, server_side=True)
                with self._mutex:
                    self._connections = self._connections - {plain} | {connection}
            while piece := connection.recv(65536):
                data += piece
                while END in data:
                    frame, data = data.split(END, 1)
                    if not self._take(connection, frame.lstrip(BEGIN).decode()):
                        return
        except OSError:
            pass
        finally:
            with self._mutex:
                self._connections.discard(connection)
            connection.close()

    def _take(self, connection: socket.socket, message: str) -> bool:
        answer = self.answer(message)
        with self._mutex:
            self.received.append(message)
            if answer and b"MSA|AA|" + field(message, "MSH", 10).encode() in answer:
                self.accepted.append(message)
        if answer is None:
            return False
        connection.sendall(answer)
        return True

    def close(self) -> None:
        """Goes away as a crash would: nothing more is taken, every connection ends."""
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join()
        with self._mutex:
            for connection in self._connections:
                with suppress(OSError):  # it may just have ended by itself
                    connection.shutdown(socket.SHUT_RDWR)
