"""Fixtures of the tests that let other HL7 parsers read what the service writes, and the other way round."""

from __future__ import annotations

import functools
import subprocess

import pytest

from bench.daemon import preset
from bench.sandbox import PROJECT
import npm_packages
from peers import PEERS, NpmPackage, Peer, Tool

TOOL = PROJECT / "build" / preset() / "bin/zelrm_hl7_tool"


@pytest.fixture
def tool() -> Tool:
    """Runs the service's HL7 library: `tool("decode", "OUL_R22", text)`."""
    def run(command: str, structure: str, text: str = "", status: int = 0) -> str:
        result = subprocess.run([TOOL, command, structure], input=text.encode(), capture_output=True, timeout=60)
        assert result.returncode == status, result.stderr.decode()
        return (result.stdout if status == 0 else result.stderr).decode()

    return run


@functools.cache
def why_no_npm_packages() -> str:
    """Empty when they are there. Where they cannot be had, finding that out takes long: once is enough."""
    try:
        npm_packages.install()
    except (OSError, RuntimeError) as error:
        return str(error)
    return ""


@pytest.fixture(params=PEERS, ids=lambda peer: peer.name)
def peer(request: pytest.FixtureRequest) -> Peer:
    if isinstance(request.param, NpmPackage) and (reason := why_no_npm_packages()):
        pytest.skip(f"the npm packages cannot be had here: {reason}")
    return request.param
