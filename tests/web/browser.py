"""A real browser for tests of the install page."""

import contextlib
import shutil
import sys
import tempfile
import time
from collections.abc import Iterator

sys.path.append("/usr/lib/python3/dist-packages")  # Debian's, also for another Python than Debian's

PROGRAMS = ("chromium", "chromedriver")
_FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
          "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage",
          "--hide-scrollbars")
WAIT_SECONDS = 120  # a machine that does much beside is slow


def missing() -> str:
    """What this machine lacks for a browser; an empty text when it has all."""
    lacks = [name for name in PROGRAMS if shutil.which(name) is None]
    try:
        import selenium  # noqa: F401
    except ImportError:
        lacks.append("python3-selenium")
    return ", ".join(lacks)


class Browser:
    """One window. What is looked for by a name without more is an element's id."""

    def __init__(self, folder: str, language: str, width: int, height: int) -> None:
        from selenium import webdriver
        options = webdriver.ChromeOptions()
        for flag in (*_FLAGS, f"--user-data-dir={folder}", f"--accept-lang={language}",
                     f"--window-size={width},{height}"):
            options.add_argument(flag)
        options.binary_location = str(shutil.which("chromium"))
        self.driver = webdriver.Chrome(service=webdriver.chrome.service.Service(shutil.which("chromedriver")),
                                       options=options)
        self.driver.set_page_load_timeout(WAIT_SECONDS)
        self.driver.set_script_timeout(WAIT_SECONDS)

    def open(self, url: str) -> None:
        self.driver.get(url)

    def js(self, script: str, *arguments: object) -> object:
        return self.driver.execute_script(script, *arguments)

    def until(self, script: str, *arguments: object, seconds: float = WAIT_SECONDS) -> object:
        """Waits until an expression of the page is true, and returns its value."""
        deadline = time.monotonic() + seconds
        while not (value := self.js(f"return {script}", *arguments)):
            if time.monotonic() > deadline:
                raise AssertionError(f"waited for {script} {arguments}; the page shows:\n{self.text('body')}")
            time.sleep(0.03)
        return value

    def view(self, name: str) -> None:
        """Waits until the page shows this section."""
        self.until("!document.getElementById(arguments[0]).hidden", name)

    def text(self, selector: str) -> str:
        return str(self.js("return document.querySelector(arguments[0])?.innerText ?? ''", selector))

    def click(self, selector: str) -> None:
        self.js("document.querySelector(arguments[0]).click()", selector)

    def fill(self, name: str, value: str) -> None:
        self.js("const field = document.getElementById(arguments[0]); field.value = arguments[1];"
                "field.dispatchEvent(new Event('change', {bubbles: true}))", name, value)

    def choose_file(self, name: str, path: str) -> None:
        self.driver.find_element("id", name).send_keys(path)

    def keys(self, *keys: str) -> None:
        self.driver.switch_to.active_element.send_keys(*keys)

    def size(self, width: int, height: int, ratio: float = 1) -> None:
        """The window as a device of this size would have it."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": ratio, "mobile": False})

    def scheme(self, name: str) -> None:
        """Light or dark."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": name}]})

    def complaints(self) -> list[str]:
        """What the page told the console as errors since the last time, but answers that failed."""
        return [line["message"] for line in self.driver.get_log("browser")
                if line["level"] == "SEVERE" and "Failed to load resource" not in line["message"]]


@contextlib.contextmanager
def browser(language: str = "en", width: int = 1000, height: int = 900) -> Iterator[Browser]:
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        one = Browser(folder, language, width, height)
        try:
            yield one
        finally:
            one.driver.quit()
