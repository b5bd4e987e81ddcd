"""The sandbox where namespaces are refused: proot for the files, the loopback interface for the network.

The analyzer, the PC and the update server are three addresses of the loopback interface. The service's ports are fixed,
so there is one analyzer at a time. What needs a network of its own (the USB network link, routes, cables) or a memory
file system is not there.
"""

from __future__ import annotations

import contextlib
import os
import shutil
import socket
from pathlib import Path

from bench.engine import Unsupported
from bench.machine import AGENT, ENVIRONMENT, PROJECT, Machine, SandboxError, build_folder

# The service asks the route table for the interface whose address it tells. An empty one has it tell the address that
# stands in the analyzer's settings.
ROUTES = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"

# Root that may do everything would read what nobody may read.
WITHOUT_RIGHTS = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]

START_AGENT = ["/usr/bin/python3", "-I", "-S", str(AGENT), "{channel}"]

HTTP_PORT = 80


class Proot:
    NAME = "proot"
    NOTICE = "No namespaces here: the analyzer runs under proot, on 127.0.0.10."
    NETWORK = "127.0.0."
    ANALYZER = CONFIGURED = NETWORK + "10"
    PC = NETWORK + "20"
    SERVER = NETWORK + "30"
    USB_ANALYZER = "1.1.40.1"  # of the addresses that are not there
    USB_PC = "1.1.40.2"
    MOST_ANALYZERS = 1
    OWN_NETWORK = False

    def why_not(self) -> str:
        return "" if shutil.which("proot", path="/usr/bin:/bin") else "proot is missing (apt-get install proot)"

    def laboratory(self, analyzers: int) -> ProotLaboratory:
        if analyzers > self.MOST_ANALYZERS:
            raise Unsupported("needs several analyzers (their ports are fixed, and there are no namespaces)")
        return ProotLaboratory()


def has_rights() -> bool:
    """Whether this process has any capability."""
    status = Path("/proc/self/status").read_text()
    return any(int(line.split()[1], 16) for line in status.splitlines() if line.startswith("CapEff:"))


def usable_server_port() -> int:
    """80 where it may be bound and is free, else a free one above 1024."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        for port in (HTTP_PORT, 0):
            with contextlib.suppress(OSError):
                probe.bind((Proot.SERVER, port))
                break
        return int(probe.getsockname()[1])


class ProotLaboratory:
    def __init__(self) -> None:
        # A name that belongs to the network, as the ports do: free when its holder ends, however that happens.
        self._lock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            self._lock.bind("\0zel-simulated-analyzer")
        except OSError:
            self._lock.close()
            raise SandboxError("Another simulated analyzer runs here already; without namespaces there can be one "
                               "at a time.") from None
        self.server_port = usable_server_port()
        self.pc = Machine(START_AGENT, dict(os.environ))
        self.pc.wait_ready()

    def start_analyzer(self, root: Path, sizes: dict[str, int], number: int) -> Machine:
        if sizes:
            raise Unsupported("needs a memory file system (there are no namespaces)")
        (root / "net").mkdir()
        (root / "net/route").write_text(ROUTES)
        command = [*(WITHOUT_RIGHTS if has_rights() else []), "proot", "-w", "/"]
        for inside in ("data", "tmp", "mnt", "etc"):
            command += ["-b", f"{root / inside}:/{inside}"]
        # The project may lie below one of these.
        command += ["-b", f"{root / 'net'}:/proc/net!", "-b", str(PROJECT)]
        analyzer = Machine([*command, *START_AGENT], ENVIRONMENT | self._redirection())
        analyzer.wait_ready()
        return analyzer

    def _redirection(self) -> dict[str, str]:
        """What takes the service to the update server where that has another port than 80."""
        if self.server_port == HTTP_PORT:
            return {}
        return {"LD_PRELOAD": str(build_folder() / "lib/libzelrm_port80.so"), "ZEL_PORT_80": str(self.server_port)}

    def add_pc_address(self, address: str) -> None:
        """Every address of the loopback interface is there already."""

    def set_cable(self, number: int, plugged: bool) -> None:
        raise Unsupported("needs a cable (the network is the loopback interface)")

    def close(self) -> None:
        self.pc.close()
        self._lock.close()
