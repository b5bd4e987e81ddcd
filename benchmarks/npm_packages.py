"""Installs the npm packages that the benchmarks compare with, into the build directory.

They are development dependencies: nothing of the product knows them.
"""

from __future__ import annotations

import fcntl
import os
import shutil
import subprocess
from pathlib import Path

HERE = Path(__file__).resolve().parent
DIRECTORY = HERE.parent / "build/hl7peers"
LISTS = ("package.json", "package-lock.json")

# Left to itself it tries a registry that cannot be reached for many minutes.
NPM = ["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--fetch-retries=1", "--fetch-retry-mintimeout=1000",
       "--fetch-retry-maxtimeout=1000", "--fetch-timeout=20000"]


class NoPackages(RuntimeError):
    """The packages are not there and cannot be had."""


def said(text: str) -> str:
    """The last thing that npm said about what was wrong; where it keeps its log follows that."""
    lines = [line for line in text.splitlines() if line.strip() and "log of this run" not in line and "_logs" not in line]
    return lines[-1] if lines else "it said nothing"


def installed() -> bool:
    # npm writes the hidden list last.
    done = DIRECTORY / "node_modules/.package-lock.json"
    return done.exists() and all((DIRECTORY / name).exists()
                                 and (DIRECTORY / name).read_bytes() == (HERE / name).read_bytes() for name in LISTS)


def install() -> None:
    """Installs exactly the locked versions; does nothing when they are there. Any number of processes may call it."""
    DIRECTORY.mkdir(parents=True, exist_ok=True)
    with open(DIRECTORY / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if installed():
            return
        for name in LISTS:
            shutil.copy(HERE / name, DIRECTORY)
        try:
            result = subprocess.run(NPM, cwd=DIRECTORY, text=True, stdin=subprocess.DEVNULL, capture_output=True,
                                    timeout=120)
        except (OSError, subprocess.TimeoutExpired) as error:
            raise NoPackages(f"npm could not install the packages: {error}") from None
        if result.returncode != 0 or not installed():
            raise NoPackages(f"npm could not install the packages: {said(result.stdout + result.stderr)}")


def run_node(script: Path, *arguments: str, text: str = "", timeout: float = 60) -> str:
    """Runs a script that may require the packages; what it reads is `text`, what it prints is returned."""
    install()
    result = subprocess.run(["node", str(script), *arguments], input=text, text=True, capture_output=True,
                            timeout=timeout, env=dict(os.environ, NODE_PATH=str(DIRECTORY / "node_modules")))
    if result.returncode != 0:
        raise RuntimeError(f"{script.name} ended with status {result.returncode}: {result.stderr}")
    return result.stdout
