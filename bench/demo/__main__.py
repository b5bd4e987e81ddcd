"""The steps of the service, and once it is built those of zelpc."""

from __future__ import annotations

import os
import sys

from rich.console import Console

from bench.demo.gateway import show
from bench.demo.service import STEPS, run
from bench.machine import PROJECT
from bench.sandbox import SandboxError


def main() -> int:
    console = Console(width=None if sys.stdout.isatty() else 80)
    try:
        if sys.argv[1:] == ["gateway"]:
            return show(console)
        status = run(STEPS, console)
        if status == 0:
            # zelpc takes minutes to build, so everything else has been shown before.
            sys.stdout.flush()
            os.execv(PROJECT / "zel", ["zel", "demo", "gateway"])
        return status
    except SandboxError as error:
        console.print(f"zel: {error}", highlight=False, markup=False)
        return 1
    except KeyboardInterrupt:
        return 130
    except BrokenPipeError:  # nobody reads any more; keep the interpreter from trying once again
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1


if __name__ == "__main__":
    sys.exit(main())
