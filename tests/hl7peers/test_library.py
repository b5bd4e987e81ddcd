"""The HL7 library in a project that knows nothing of this one, as the document shows it."""

from __future__ import annotations

import re
import subprocess
from pathlib import Path

import pytest

from bench.daemon import preset
from bench.sandbox import PROJECT

FENCED = dict(re.findall(r"```(cmake|cpp)\n(.*?)```", (PROJECT / "docs/hl7.md").read_text(), re.DOTALL))
# Compiles only where the library's own warnings, which are errors, have not come along.
CARELESS = "int careless(unsigned number) { int unused = number; return number; }\n"


def run(*command: str | Path) -> str:
    result = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
    assert result.returncode == 0, result.stdout
    return result.stdout


@pytest.mark.skipif(preset() in ("asan", "tsan"), reason="a sanitizer's library asks its users for the sanitizer")
@pytest.mark.parametrize("way", ["find_package", "add_subdirectory"])
def test_a_foreign_project_uses_the_library(tmp_path: Path, way: str) -> None:
    build, lists = PROJECT / "build" / preset(), FENCED["cmake"]
    if way == "find_package":
        run("cmake", "--install", build, "--component", "hl7", "--prefix", tmp_path / "installed")
    else:
        (tmp_path / "zelrmup").symlink_to(PROJECT)
        lists = lists.replace("find_package(ZELHL7 REQUIRED)", "add_subdirectory(zelrmup)")
    (tmp_path / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.25)\nproject(orders CXX)\n" + lists)
    (tmp_path / "orders.cpp").write_text(CARELESS + FENCED["cpp"])
    run("cmake", "-G", "Ninja", "-S", tmp_path, "-B", tmp_path / "b",
        f"-DCMAKE_PREFIX_PATH={tmp_path / 'installed'}")
    if way == "add_subdirectory":  # that it compiles is enough: the library would be built from nothing
        run("ninja", "-C", tmp_path / "b", "CMakeFiles/orders.dir/orders.cpp.o")
        return
    run("cmake", "--build", tmp_path / "b", "--target", "orders")
    assert run(tmp_path / "b/orders") == "O-1: Liver 6\n"
