"""The sandbox by namespaces, made by bubblewrap: for root and for an ordinary user, any number side by side.

The PC's machine is a network namespace that sees the host's own files; its user namespace owns everything. Each
analyzer's machine has private files and a network namespace of its own, joined to the PC's by a veth pair; where there
are several, the PC's ends are the ports of a bridge.
"""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

from bench.machine import AGENT, ENVIRONMENT, PROJECT, Machine

NETWORK = "192.168.40."

START_AGENT = ["/usr/bin/python3", "-I", "-S", str(AGENT), "{channel}"]

PC = ["bwrap", "--die-with-parent", "--unshare-user", "--unshare-net", "--unshare-pid", "--uid", "0", "--gid", "0",
      "--cap-add", "ALL", "--dev-bind", "/", "/", "--proc", "/proc", "--info-fd", "{info}", *START_AGENT]

BRIDGE = """
link add pc0 type bridge
link set pc0 up
"""
PC_ADDRESSES = f"""
address add {NETWORK}20/24 brd + dev pc0
route add default dev pc0
"""
CABLE = """
link add {port} type veth peer name eth0 netns {{0}}
link set {port} up
"""
USB_CABLE = """
link add usbpc0 type veth peer name usb0 netns {0}
address add 1.1.40.2/24 brd + dev usbpc0
link set usbpc0 up
"""
ANALYZER_ADDRESSES = """
address add {address}/24 brd + dev eth0
link set eth0 up
route add default via 192.168.40.1 dev eth0
"""
ANALYZER_USB_ADDRESS = """
address add 1.1.40.1/24 brd + dev usb0
link set usb0 up
"""


class Bubblewrap:
    NAME = "bubblewrap"
    NOTICE = ""
    NETWORK = NETWORK
    ANALYZER = NETWORK + "10"
    PC = SERVER = NETWORK + "20"
    CONFIGURED = "10.9.8.7"
    USB_ANALYZER = "1.1.40.1"
    USB_PC = "1.1.40.2"
    MOST_ANALYZERS = 9
    OWN_NETWORK = True

    def why_not(self) -> str:
        for program, package in (("bwrap", "bubblewrap"), ("ip", "iproute2")):
            if not shutil.which(program, path="/usr/bin:/usr/sbin:/bin:/sbin"):
                return f"{program} is missing (apt-get install {package})"
        probe = subprocess.run(["bwrap", "--unshare-all", "--uid", "0", "--gid", "0", "--ro-bind", "/", "/", "--proc",
                                "/proc", "true"], capture_output=True)
        return "namespaces are refused here" if probe.returncode else ""

    def laboratory(self, analyzers: int) -> BubblewrapLaboratory:
        return BubblewrapLaboratory(analyzers > 1)


class BubblewrapLaboratory:
    server_port = 80

    def __init__(self, bridged: bool):
        self._bridged = bridged
        self.pc = Machine(PC, dict(os.environ), info=True)
        try:
            self.pc.wait_ready()
            self._users = os.open(f"/proc/{self.pc.pid}/ns/user", os.O_RDONLY)
        except BaseException:
            self.pc.close()
            raise
        if bridged:
            self.pc.configure_network(BRIDGE + PC_ADDRESSES)

    def start_analyzer(self, root: Path, sizes: dict[str, int], number: int) -> Machine:
        analyzer = Machine(self._command(root, sizes), ENVIRONMENT, info=True, fds=(self._users,))
        try:
            analyzer.wait_ready()
            with analyzer.open("/proc/self/ns/net") as namespace:
                self._plug(namespace.fileno(), number)
            addresses = ANALYZER_ADDRESSES.format(address=f"{NETWORK}{10 + number}")
            analyzer.configure_network(addresses + (ANALYZER_USB_ADDRESS if number == 0 else ""))
        except BaseException:
            analyzer.close()
            raise
        return analyzer

    def _plug(self, namespace: int, number: int) -> None:
        lines = CABLE.format(port=self._port(number))
        lines += f"link set {self._port(number)} master pc0\n" if self._bridged else PC_ADDRESSES
        self.pc.configure_network(lines + (USB_CABLE if number == 0 else ""), (namespace,))

    def _port(self, number: int) -> str:
        return f"port{number}" if self._bridged else "pc0"

    def _command(self, root: Path, sizes: dict[str, int]) -> list[str]:
        writable = []
        for name in ("data", "tmp"):
            writable += ["--size", str(sizes[name]), "--tmpfs", f"/{name}"] if name in sizes \
                else ["--bind", str(root / name), f"/{name}"]
        # The same capabilities for everybody: root would keep all of them, also to read what nobody may read.
        return ["bwrap", "--die-with-parent", "--userns", str(self._users), "--unshare-net", "--unshare-pid",
                "--unshare-ipc", "--unshare-uts", "--uid", "0", "--gid", "0", "--cap-drop", "ALL",
                "--cap-add", "CAP_NET_ADMIN", "--cap-add", "CAP_SYS_ADMIN", "--cap-add", "CAP_NET_BIND_SERVICE",
                "--info-fd", "{info}",
                "--ro-bind", "/usr", "/usr",
                "--symlink", "usr/lib", "/lib", "--symlink", "usr/lib64", "/lib64",
                "--symlink", "usr/bin", "/bin", "--symlink", "usr/sbin", "/sbin",
                "--ro-bind", str(root / "etc"), "/etc", "--proc", "/proc", "--dev", "/dev",
                "--bind", str(root / "mnt"), "/mnt", *writable,
                "--ro-bind", str(PROJECT), str(PROJECT), "--chdir", "/", *START_AGENT]

    def add_pc_address(self, address: str) -> None:
        self.pc.configure_network(f"address add {address}/24 brd + dev pc0\n")

    def set_cable(self, number: int, plugged: bool) -> None:
        port = self._port(number)
        lines = f"link set {port} {'up' if plugged else 'down'}\n"
        if plugged and not self._bridged:
            lines += f"route replace default dev {port}\n"  # went with the link
        self.pc.configure_network(lines)

    def close(self) -> None:
        self.pc.close()
        os.close(self._users)
