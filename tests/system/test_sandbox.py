"""The sandbox where namespaces are refused, in a place that refuses them."""

from __future__ import annotations

import os
import shutil
import subprocess

import pytest

from bench.daemon import preset
from bench.sandbox import ENGINE, PROJECT

# An ordinary user with a loopback interface of its own, who gets no more namespaces and may not bind port 80.
PLACE = ["bwrap", "--die-with-parent", "--unshare-user", "--unshare-net", "--unshare-pid", "--disable-userns",
         "--uid", "1000", "--gid", "1000", "--dev-bind", "/", "/", "--proc", "/proc"]

# A second analyzer is refused while there is one; then the demo.
PROGRAM = """
import sys
from bench.demo import service
from bench.analyzer import Analyzer
from bench.sandbox import SandboxError

with Analyzer() as analyzer:
    print(analyzer.sandbox.laboratory.server_port)
    try:
        Analyzer()
    except SandboxError as error:
        print(error)
sys.exit(service.run(service.STEPS, service.Console(width=80)))
"""


@pytest.mark.skipif(preset() != "release" and preset() != "debug", reason="what stands in for port 80 is no sanitizer's")
def test_without_namespaces() -> None:
    if ENGINE.NAME != "bubblewrap" or not shutil.which("proot"):
        pytest.skip("needs namespaces to take away, and proot")
    environment = {name: value for name, value in os.environ.items() if name != "ZEL_SANDBOX"}
    done = subprocess.run([*PLACE, "/usr/bin/python3", "-c", PROGRAM], cwd=PROJECT, env=environment, text=True,
                          stdout=subprocess.PIPE, timeout=300)
    port, refusal, notice, *rest = done.stdout.splitlines()
    assert done.returncode == 0, done.stdout
    assert int(port) > 1024
    assert "at a time" in refusal and "proot" in notice
    assert rest[-1] == "All of it happened."
