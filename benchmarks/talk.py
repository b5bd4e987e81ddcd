"""Talks over sessions with the analyzer: `talk.py DESCRIPTOR...` asks each for its device information twice a second.

A program of its own, so that it does not hold up who measures meanwhile; it ends when it is killed.
"""

import contextlib
import socket
import struct
import sys
import time

from bench.pcpacket import Command, Info, Packet

REQUEST = Packet(Command.GET_INFO, 1, ord("1"), struct.pack(">H", Info.SERIAL)).encode()
PERIOD = 0.5

sessions = [socket.socket(fileno=int(argument)) for argument in sys.argv[1:]]
print("ready", flush=True)
while True:
    for session in sessions:
        with contextlib.suppress(OSError):
            session.setblocking(False)
            session.send(REQUEST)
        with contextlib.suppress(OSError):
            session.recv(4096)  # the answer to the last one
        time.sleep(PERIOD / len(sessions))
