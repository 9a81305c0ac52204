"""What somebody relies on who opens a report in a browser: nothing goes wrong, it fits, keys work.

pages_test.py FOLDER: tests the pages in it in headless Chromium and leaves a picture of each beside it.
"""

import base64
import json
import os
import re
import subprocess
import sys
import time
import unittest
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any

LONGEST_BYTES = 5_000_000
KEYS = {"Right": "\ue014", "Home": "\ue011", "End": "\ue010", "Enter": "\ue007"}
PLACES_OUTSIDE = """plots.filter(plot => !plot.playhead.hidden &&
    (plot.playhead.offsetLeft < 0 || plot.playhead.offsetLeft > plot.over.clientWidth)).length"""
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # as WebDriver calls it

folder = Path()


class Browser:
    """Chromium, by WebDriver."""

    def __init__(self) -> None:
        self.driver = subprocess.Popen(
            ["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True
        )
        self.address = ""
        self.direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))

    def start(self) -> None:
        assert self.driver.stdout is not None
        port = None
        while port is None:
            line = self.driver.stdout.readline()
            if not line:
                raise RuntimeError("chromedriver doesn't start")
            port = re.search(r"successfully on port (\d+)", line)
        self.address = f"http://127.0.0.1:{port[1]}/session"
        arguments = ["--headless=new", "--hide-scrollbars"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        session = self.call(
            "",
            {
                "capabilities": {
                    "alwaysMatch": {
                        "goog:chromeOptions": {"args": arguments},
                        "goog:loggingPrefs": {"browser": "ALL"},
                    }
                }
            },
        )
        self.address += "/" + session["sessionId"]

    def call(self, command: str, parameters: Any = None, method: str = "POST") -> Any:
        data = None if parameters is None else json.dumps(parameters).encode()
        request = urllib.request.Request(self.address + command, data, method=method)
        try:
            with self.direct.open(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(error.read().decode()) from error

    def close(self) -> None:
        try:
            self.call("", method="DELETE")
        finally:
            self.driver.kill()
            self.driver.communicate()

    def open(self, page: Path) -> float:
        """Returns the seconds until the page is drawn."""
        before = time.monotonic()
        self.call("/url", {"url": page.resolve().as_uri()})
        drawn = "requestAnimationFrame(() => setTimeout(arguments[arguments.length - 1]))"
        self.call("/execute/async", {"script": drawn, "args": []})
        return time.monotonic() - before

    def get(self, expression: str) -> Any:
        return self.call("/execute/sync", {"script": "return " + expression, "args": []})

    def devtools(self, command: str, **parameters: Any) -> Any:
        return self.call("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def look(self, scheme: str, width: int) -> None:
        feature = {"name": "prefers-color-scheme", "value": scheme}
        self.devtools("Emulation.setEmulatedMedia", features=[feature])
        self.devtools(
            "Emulation.setDeviceMetricsOverride",
            width=width,
            height=800,
            deviceScaleFactor=1,
            mobile=False,
        )

    def type(self, selector: str, *keys: str) -> None:
        element = self.call("/element", {"using": "css selector", "value": selector})[ELEMENT]
        text = "".join(KEYS.get(key, key) for key in keys)
        self.call(f"/element/{element}/value", {"text": text})

    def complaints(self) -> list[str]:
        entries = self.call("/se/log", {"type": "browser"})
        return [entry["message"] for entry in entries if entry["level"] != "INFO"]

    def photograph(self, file: Path) -> None:
        picture = self.devtools("Page.captureScreenshot", captureBeyondViewport=True)
        file.write_bytes(base64.b64decode(picture["data"]))


class Pages(unittest.TestCase):
    browser: Browser

    @classmethod
    def setUpClass(cls) -> None:
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.browser.start()

    def test_open_without_a_complaint_and_fit_in_both_colour_schemes(self) -> None:
        pages = sorted(folder.glob("*.html"))
        self.assertGreater(len(pages), 2)
        for page in pages:
            for scheme in "light", "dark":
                for width in 1200, 360:
                    with self.subTest(page=page.name, scheme=scheme, width=width):
                        self.browser.look(scheme, width)
                        seconds = self.browser.open(page)
                        print(f"{page.name}, {scheme}, {width} px: opens in {seconds:.2f} s")
                        self.assertEqual(self.browser.complaints(), [])
                        across = self.browser.get("document.documentElement.scrollWidth")
                        self.assertEqual(across, width)
                        drawn = self.browser.get(
                            "document.querySelectorAll('#plots canvas').length"
                        )
                        self.assertEqual(drawn, 0 if page.stem == "nothing" else 6)
                        self.assertEqual(self.browser.get(PLACES_OUTSIDE), 0)
                        self.browser.photograph(page.with_name(f"{page.stem}-{scheme}-{width}.png"))

    def test_of_an_hour_is_small(self) -> None:
        size = (folder / "hour.html").stat().st_size
        print(f"hour.html: {size / 1e6:.1f} MB")
        self.assertLess(size, LONGEST_BYTES)

    def test_pictures_obey_keys(self) -> None:
        self.browser.look("light", 1200)
        self.browser.open(folder / "clip.html")

        def shown() -> list[float]:
            return list(self.browser.get("plots.map(p => p.scales.x.max - p.scales.x.min)"))

        def now() -> float:
            return float(self.browser.get("byId('plots').getAttribute('aria-valuenow')"))

        self.assertEqual(self.browser.get("byId('plots').tabIndex"), 0)
        self.browser.type("#plots", "Home")
        first = now()
        everything = shown()
        self.browser.type("#plots", "+", "+", "Right", "Right")
        self.assertEqual(shown(), [width / 4 for width in everything])
        self.assertAlmostEqual(now(), first + everything[0] / 4 / 50, delta=0.011)
        text = self.browser.get("byId('readout').textContent")
        self.assertRegex(text, r"^0:00\.\d+ of the music, heard at .* speed 0\.75")
        self.assertEqual(self.browser.get("byId('plots').getAttribute('aria-valuetext')"), text)
        self.browser.type("#plots", "End", "Right")  # there is nothing beyond
        self.assertEqual(self.browser.get(PLACES_OUTSIDE), 0)
        self.browser.type("#plots", "Enter")
        self.assertAlmostEqual(now(), first + everything[0], delta=0.011)
        self.assertAlmostEqual(
            self.browser.get("players.in.currentTime"),
            now(),
            delta=0.011,
            msg="the player goes along",
        )
        self.browser.photograph(folder / "clip-by-keys.png")
        self.browser.type("#plots", "0")
        self.assertEqual(shown(), everything)
        self.assertEqual(self.browser.complaints(), [])


if __name__ == "__main__":
    folder = Path(sys.argv.pop(1))
    unittest.main()
