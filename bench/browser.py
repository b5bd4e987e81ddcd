"""A headless Chromium on a sandbox's network, by the WebDriver protocol."""

from __future__ import annotations

import base64
import json
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Any

from bench.gateway import SandboxHttp
from bench.sandbox import Sandbox

PORT = 9515
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"


class Browser:
    def __init__(self, sandbox: Sandbox, *arguments: str):
        self._sandbox = sandbox
        self._profile = tempfile.TemporaryDirectory(prefix="zel-browser-", ignore_cleanup_errors=True)
        # Entered from outside: of the PC, a browser needs the network alone.
        self._driver = subprocess.Popen(
            ["nsenter", "-t", str(sandbox.pc.pid), "-n", "chromedriver", f"--port={PORT}"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env={"PATH": "/usr/bin:/bin", "HOME": self._profile.name})
        options = ["--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                   f"--user-data-dir={self._profile.name}/profile", *arguments]
        deadline = time.monotonic() + 60
        while True:
            try:
                answer = self._ask("POST", "/session", {"capabilities": {"alwaysMatch": {
                    "browserName": "chrome", "goog:chromeOptions": {"binary": "/usr/bin/chromium", "args": options}}}})
                break
            except ConnectionError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.1)
        self._session = f"/session/{answer['sessionId']}"

    def _ask(self, method: str, path: str, body: Any = None) -> Any:
        connection = SandboxHttp(self._sandbox, "127.0.0.1", PORT)
        connection.timeout = 60
        connection.request(method, path, json.dumps(body) if body is not None else None)
        value = json.loads(connection.getresponse().read())["value"]
        connection.close()
        if isinstance(value, dict) and "error" in value:
            raise RuntimeError(f"{value['error']}: {value['message']}")
        return value

    def show(self, url: str, width: int = 1280, height: int = 900) -> None:
        self._ask("POST", self._session + "/goog/cdp/execute", {"cmd": "Emulation.setDeviceMetricsOverride", "params": {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}})
        self._ask("POST", self._session + "/url", {"url": url})

    def run(self, script: str) -> Any:
        """What a function with this body returns in the page."""
        return self._ask("POST", self._session + "/execute/sync", {"script": script, "args": []})

    def scheme(self, name: str) -> None:
        """Shows pages as somebody sees them who prefers "light" or "dark"."""
        self._ask("POST", self._session + "/goog/cdp/execute", {"cmd": "Emulation.setEmulatedMedia", "params": {
            "features": [{"name": "prefers-color-scheme", "value": name}]}})

    def scripts(self, allowed: bool) -> None:
        self._ask("POST", self._session + "/goog/cdp/execute", {"cmd": "Emulation.setScriptExecutionDisabled",
                                                                "params": {"value": not allowed}})

    def element(self, selector: str) -> str:
        return self._ask("POST", self._session + "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def type(self, selector: str, text: str) -> None:
        self._ask("POST", f"{self._session}/element/{self.element(selector)}/value", {"text": text})

    def click(self, selector: str) -> None:
        self._ask("POST", f"{self._session}/element/{self.element(selector)}/click", {})

    def text(self, selector: str = "body") -> str:
        return self._ask("GET", f"{self._session}/element/{self.element(selector)}/text")

    def screenshot(self, path: Path) -> None:
        path.write_bytes(base64.b64decode(self._ask("GET", self._session + "/screenshot")))

    def close(self) -> None:
        try:
            self._ask("DELETE", self._session)
        finally:
            self._driver.terminate()
            self._driver.wait()
            self._profile.cleanup()

    def __enter__(self) -> Browser:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
