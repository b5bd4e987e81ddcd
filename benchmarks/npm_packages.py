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
        result = subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund"], cwd=DIRECTORY, text=True,
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=300)
        if result.returncode != 0 or not installed():
            raise RuntimeError(f"npm could not install the packages: {result.stdout}{result.stderr}")


def run_node(script: Path, *arguments: str, text: str = "", timeout: float = 60) -> str:
    """Runs a script that may require the packages; what it reads is `text`, what it prints is returned."""
    install()
    result = subprocess.run(["node", str(script), *arguments], input=text, text=True, capture_output=True,
                            timeout=timeout, env=dict(os.environ, NODE_PATH=str(DIRECTORY / "node_modules")))
    if result.returncode != 0:
        raise RuntimeError(f"{script.name} ended with status {result.returncode}: {result.stderr}")
    return result.stdout
