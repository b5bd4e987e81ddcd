"""How a simulated analyzer gets paths and a network of its own: by namespaces, or without.

Each engine is a file: `bubblewrap` is the real thing; `proot` serves where namespaces are refused, with less.
"""

from __future__ import annotations

import os
from pathlib import Path
from typing import Protocol

from bench.machine import Machine, SandboxError


class Unsupported(SandboxError):
    """This engine cannot do what was asked for; the text names it."""


class Laboratory(Protocol):
    """The PC and its network, onto which analyzers are plugged."""

    pc: Machine
    server_port: int  # where an update server listens for the analyzers' requests to port 80

    def start_analyzer(self, root: Path, sizes: dict[str, int], number: int) -> Machine:
        """Starts an analyzer's machine on the files below `root`. `sizes` are of those that are to be in memory."""

    def add_pc_address(self, address: str) -> None:
        """Gives the PC one more address."""

    def set_cable(self, number: int, plugged: bool) -> None:
        """Pulls or plugs the network cable of an analyzer."""

    def close(self) -> None: ...


class Engine(Protocol):
    NAME: str
    NOTICE: str  # what a user should know about it, one line
    NETWORK: str  # the first three numbers of every address
    ANALYZER: str  # the first analyzer; the second follows it
    PC: str
    SERVER: str
    CONFIGURED: str  # the address in the analyzer's settings, told where no default route tells one
    USB_ANALYZER: str
    USB_PC: str
    MOST_ANALYZERS: int
    OWN_NETWORK: bool  # addresses, routes and links can be changed; the USB network link is there

    def why_not(self) -> str:
        """Why it cannot be used here, in one sentence; empty when it can."""

    def laboratory(self, analyzers: int) -> Laboratory: ...


class Missing:
    """Stands for the engine where none can be used: everything that needs no sandbox goes on."""

    def __init__(self, like: Engine, reason: str):
        self.NAME, self.NOTICE, self.OWN_NETWORK = "none", "", False
        self._reason, self._like = reason, like

    def __getattr__(self, name: str) -> str:
        return getattr(self._like, name)

    def why_not(self) -> str:
        return self._reason

    def laboratory(self, analyzers: int) -> Laboratory:
        raise Unsupported(self._reason)


def choose() -> Engine:
    """The first engine that works here; the environment variable ZEL_SANDBOX names another."""
    from bench.engine import bubblewrap, proot
    engines: list[Engine] = [bubblewrap.Bubblewrap(), proot.Proot()]
    if named := os.environ.get("ZEL_SANDBOX"):
        engines = [engine for engine in engines if engine.NAME == named]
        if not engines:
            return Missing(bubblewrap.Bubblewrap(), f'ZEL_SANDBOX is "{named}"; bubblewrap and proot are known.')
    reasons = []
    for engine in engines:
        reason = engine.why_not()
        if not reason:
            return engine
        reasons.append(reason)
    return Missing(engines[0], f"No simulated analyzer can be had: {'; '.join(reasons)}.")
