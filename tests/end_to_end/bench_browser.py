# SPDX-License-Identifier: MIT
"""Debian's chromium without a window, and what tests of the bench's page need of it."""
import contextlib
import os
import tempfile
import time

from patience import TIME_FACTOR
from selenium import webdriver
from selenium.common.exceptions import (ElementClickInterceptedException, ElementNotInteractableException,
                                        NoSuchElementException, StaleElementReferenceException)
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

PATIENCE = 30.0 * TIME_FACTOR
DESK = (1280, 800)
PHONE = (390, 844)
NOT_YET = (ElementClickInterceptedException, ElementNotInteractableException, NoSuchElementException,
           StaleElementReferenceException)
AXE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "axe_core", "axe.min.js")
OPTIONS = [
    "--headless=new", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage", "--lang=en", "--hide-scrollbars",
    # Nothing but this machine can be reached, as on a controller without internet.
    "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
]


class Browser:
    """One page at a time. Anything in the browser's console fails the test."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for option in OPTIONS + [f"--user-data-dir={self.folder.name}/profile"]:
            options.add_argument(option)
        if os.getuid() == 0:
            options.add_argument("--no-sandbox")  # chromium's sandbox refuses root
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        variables = {"PATH": os.environ["PATH"], "HOME": self.folder.name, "TMPDIR": self.folder.name, "LANG": "C.UTF-8", "TZ": "UTC"}
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver", env=variables), options=options)
        self.driver.set_script_timeout(PATIENCE)

    def look(self, size=DESK, dark=False):
        """The size of the window in CSS pixels, and the colours of the system; a phone is touched with fingers."""
        phone = size == PHONE
        self.command("Emulation.setDeviceMetricsOverride", width=size[0], height=size[1], deviceScaleFactor=1, mobile=phone)
        self.command("Emulation.setTouchEmulationEnabled", enabled=phone)
        self.command("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
            {"name": "prefers-reduced-motion", "value": "reduce"}])

    def command(self, name, **parameters):
        return self.driver.execute_cdp_cmd(name, parameters)

    @contextlib.contextmanager
    def page(self, program, tab="variables", size=DESK, dark=False):
        """The page of a program. It is left before the program ends: after that it would try to connect, and say so."""
        self.look(size, dark)
        self.driver.get(f"http://127.0.0.1:{program.port}/#{tab}")
        self.wait(lambda: self.connection() == "live", "a connection to the program")
        yield self
        self.driver.get("about:blank")
        assert (console := self.console()) == [], console

    def connection(self):
        return self.one("#connection").get_attribute("data-state")

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.one(selector).text

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, condition, what, seconds=PATIENCE):
        """What `condition` returns as soon as it is true. An element that it looks for may come later."""
        end = time.monotonic() + seconds
        while True:
            try:
                result = condition()
            except NOT_YET:
                result = None
            if result:
                return result
            assert time.monotonic() < end, f"waited in vain for {what}"
            time.sleep(0.02)

    def open_tab(self, name):
        self.one(f"#tab-{name}").click()
        self.wait(self.one(f"#{name}").is_displayed, f"the tab {name}")

    def console(self):
        """The lines of the browser's console since the last call: errors, warnings, violations of the policy. Where a
        refusal is shown, the browser asks for an icon by itself, and reports at any time that this is refused, too."""
        lines = [entry["message"] for entry in self.driver.get_log("browser")]
        return [line for line in lines if "/favicon.ico - " not in line]

    def faults(self):
        """The serious and critical faults that axe-core finds on the page as it is, one text each."""
        if not self.run("return !!window.axe"):
            with open(AXE, encoding="utf-8") as file:
                self.run(file.read())
        result = self.driver.execute_async_script(
            "const done = arguments[0]; axe.run(document, { resultTypes: ['violations'] }).then(done, (e) => done({ error: String(e) }))")
        assert "error" not in result, result["error"]
        return [f"{fault['id']}: {node['html']}: {node['failureSummary']}" for fault in result["violations"]
                if fault["impact"] in ("serious", "critical") for node in fault["nodes"]]

    def picture(self, name):
        """Saves what can be seen as a PNG in the folder BENCH_PICTURES, if there is one: that is how those of
        docs/bench are made."""
        if folder := os.environ.get("BENCH_PICTURES"):
            self.driver.save_screenshot(os.path.join(folder, name + ".png"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()
        self.folder.cleanup()


def run_in_browser(tests, chosen):
    """Runs the tests one after the other in one browser; all of them, or those with a chosen name."""
    with Browser() as browser:
        for test in tests:
            if not chosen or test.__name__ in chosen:
                test(browser)
                print(test.__name__.replace("_", " "), flush=True)
