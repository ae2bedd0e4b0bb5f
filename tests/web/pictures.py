"""Draws the pictures of the install page that the documents show: pictures.py FOLDER."""

import sys
import tempfile
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

from browser import Browser, browser
from stand_in import StandIn, disk, error, machine, stand_in, stage

DISKS = [disk(1, 4000787030016), disk(2, 4000787030016), disk(3, 8001563222016), disk(4, 8001563222016)]
NEW = machine("not_install", disks=DISKS, addresses=["192.168.1.20"])


def take(page: Browser, folder: Path, name: str, width: int = 1000) -> None:
    """The page as high as it is."""
    page.js("document.activeElement.blur(); for (const one of document.getAnimations()) one.pause()")
    page.size(width, 400, 1 if width > 600 else 1.5)
    height = page.js("return document.documentElement.scrollHeight")
    page.size(width, int(str(height)), 1 if width > 600 else 1.5)
    page.driver.save_screenshot(str(folder / f"page-{name}.png"))
    page.size(width, 900)


def start(page: Browser, server: StandIn, **answers: object) -> None:
    server.reset(**{"machine": NEW, **answers})
    page.open(server.url)
    page.view("start")


def settings(page: Browser, patch: str) -> None:
    page.choose_file("file", patch)
    page.click("#source .primary")
    page.view("settings")


def consent(page: Browser) -> None:
    page.fill("hostname", "attic")
    page.fill("account", "robin")
    page.fill("password", "correct-horse")
    page.click("#values .primary")
    page.view("consent")


def main() -> None:
    folder = Path(sys.argv[1])
    with tempfile.TemporaryDirectory() as scratch, stand_in() as server, browser() as page:
        patch = Path(scratch) / "NS0400-7.2-64570.pat"
        patch.write_bytes(b"")
        with open(patch, "r+b") as file:
            file.truncate(341 << 20)
        for width, suffix in ((1000, ""), (320, "-phone")):
            page.size(width, 900)
            start(page, server)
            take(page, folder, "start" + suffix, width)
            settings(page, str(patch))
            take(page, folder, "settings" + suffix, width)
            consent(page)
            take(page, folder, "consent" + suffix, width)
            server.at_work("download", progress="42")
            page.open(server.url)
            page.view("work")
            page.until("document.querySelector('.meter')")
            take(page, folder, "progress" + suffix, width)
            server.ended(error("wizard", "err_patch", 13))
            page.view("fault")
            take(page, folder, "error" + suffix, width)
            server.reset(machine=NEW, progress=stage("Success", hostname="attic"))
            page.open(server.url)
            page.view("done")
            take(page, folder, "done" + suffix, width)
        page.scheme("dark")
        start(page, server)
        take(page, folder, "dark")
        settings(page, str(patch))
        consent(page)
        take(page, folder, "dark-consent")


if __name__ == "__main__":
    main()
