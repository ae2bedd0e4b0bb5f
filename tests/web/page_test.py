"""The install page in a real browser: what it shows for what the machine says, and what it sends."""

import email
import re
import sys
import tempfile
import time
import unittest
import urllib.parse
from collections.abc import Callable
from pathlib import Path
from typing import Any

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

from browser import WAIT_SECONDS, Browser, browser, missing
from stand_in import FREE, LOCKED, StandIn, disk, error, machine, stage, stand_in

SOURCE = Path(__file__).resolve().parent.parent.parent
LANGUAGES = {"enu": "en", "ger": "de", "fre": "fr"}
EVIL = "<img src=x onerror=\"document.title='taken'\">&amp;\"'"
VALUES = {"hostname": "attic", "account": "robin", "password": "a&b=c%+d!"}
DISKS_KEPT = [disk(1, 4 * 10 ** 12), disk(2, 10 ** 12, erased=False)]


def table(file: str, pattern: str) -> list[Any]:
    """The rows of a table in the executable's source."""
    rows = re.findall(pattern, (SOURCE / file).read_text(), re.MULTILINE)
    assert len(rows) > 5, file
    return rows


class Page(unittest.TestCase):
    server: StandIn
    page: Browser
    patch: Path

    @classmethod
    def setUpClass(cls) -> None:
        cls.server = cls.enterClassContext(stand_in())
        cls.page = cls.enterClassContext(browser())
        folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.patch = folder / "system.pat"
        cls.patch.write_bytes(b"\0patch\r\n--\n" * 30000)
        (folder / "other.txt").write_text("x")

    def tearDown(self) -> None:
        self.assertEqual(self.page.complaints(), [])

    def open(self, view: str, **answers: Any) -> None:
        """Opens the page anew, in a window that knows nothing of earlier ones."""
        self.server.reset(**answers)
        self.page.open(self.server.url)
        if self.page.js("return sessionStorage.length > 0"):
            self.page.js("sessionStorage.clear()")
            self.page.open(self.server.url)
        self.page.view(view)

    def said(self, key: str, language: str = "enu") -> str:
        return str(self.page.js("return TEXTS[arguments[0]][arguments[1]]", language, key))

    def shows(self, selector: str, text: str) -> None:
        self.page.until("document.querySelector(arguments[0])?.textContent === arguments[1]", selector, text)

    def choose(self, road: str, **values: str) -> None:
        """From the first section to the last before the order."""
        if road == "upload":
            self.page.choose_file("file", str(self.patch))
        self.page.click(f"input[name=road][value={road}]")
        if road == "download":
            self.page.until("document.getElementById('version').textContent.includes('64570')")
        self.page.click("#source .primary")
        self.page.view("settings")
        for name, value in {**VALUES, **values}.items():
            self.page.fill(name, value)
        self.page.click("#values .primary")
        self.page.view("consent")

    def agree(self) -> None:
        """Orders; the machine's answer waits, or the page might be at its end before the test looks."""
        self.server.hold("install", "recover")
        self.page.click("#agreed")
        self.page.click("#begin")
        self.page.view("work")
        self.posted()  # before that the page looks whether the machine is free

    def posted(self) -> tuple[str, dict[str, str], dict[str, bytes]]:
        """The one post: its path, the query, and the fields of the form."""
        wait_for(lambda: self.server.posts)
        (path, kind, body), = self.server.posts
        path, _, query = path.partition("?")
        if kind.startswith("multipart/"):
            parts = email.message_from_bytes(b"Content-Type: " + kind.encode() + b"\r\n\r\n" + body).get_payload()
            fields = {part.get_param("name", header="content-disposition"): part.get_payload(decode=True)
                      for part in parts}
        else:
            pairs = urllib.parse.parse_qsl(body.decode(), strict_parsing=True)
            fields = {name: value.encode() for name, value in pairs}
        return path, dict(urllib.parse.parse_qsl(query)), fields

    # Texts

    def test_every_language_says_everything(self) -> None:
        shape = """const words = (text) => (String(text).match(/\\{\\w+\\}/g) ?? []).sort().join();
            const shape = (one) => typeof one === "string" ? (one === "" ? "empty" : words(one))
                : Object.keys(one).sort().map((key) => [key, shape(one[key])]);
            return JSON.stringify(shape(TEXTS[arguments[0]]))"""
        self.open("start")
        self.assertNotIn("empty", str(self.page.js(shape, "enu")))
        for language in LANGUAGES:
            self.assertEqual(self.page.js(shape, language), self.page.js(shape, "enu"), language)

    def test_every_error_word_says_what_to_do(self) -> None:
        words = table("install/web_progress.cpp", r'^    \{(\d+), "(\w+)", "(\w+)"\},$')
        words += [("695", "error", "err_nsconfig"), ("-1", "error", "error_recover"), ("107", "error", "error_unknown"),
                  ("3", "error", "a word of tomorrow")]
        self.open("start")
        faults = self.page.js("return TEXTS.enu.faults")
        for number, (line, sec, key) in enumerate(words):
            with self.subTest(key=key, line=line):
                self.server.reset(progress=error(sec, key, int(line)))
                self.page.open(self.server.url)
                title, lead, advice = faults.get(key, faults["error_unknown"])
                self.assertTrue(key in faults or number == len(words) - 1)
                self.page.view("fault")
                self.shows("#fault-title", title)
                self.shows("#fault-lead", lead)
                self.shows("#fault-advice", advice.replace("{model}", "NS0400"))
                self.shows("#fault-words", f"{sec} / {key} / {line}")

    def test_every_stage_has_words(self) -> None:
        words = {word for word in table("install/web_progress.cpp", r'^    \{(?:k\w+|\d), "(\w+)"\},$')}
        self.open("start")
        for word in words:
            self.server.at_work(word)
            self.page.open(self.server.url)
            self.shows("#stage", self.said("stage_" + word))
        self.server.at_work("unknown status [7]")
        self.shows("#stage", "Working (unknown status [7])")

    def test_speaks_as_the_session_says(self) -> None:
        for code, tag in LANGUAGES.items():
            self.open("start", session={"lang": code})
            self.shows("#start-title", self.said("state_not_install", code))
            self.assertEqual(self.page.js("return document.documentElement.lang"), tag)
        self.open("start", session={"lang": "jpn"})
        self.shows("#start-title", self.said("state_not_install"))
        self.page.fill("language", "ger")
        self.shows("#start-title", self.said("state_not_install", "ger"))

    # States

    def test_states_and_what_they_offer(self) -> None:
        for status, offers in (("not_install", []), ("sys_crash", []), ("sys_recoverable", ["recover", "install"]),
                               ("sys_migrat", ["migrate", "install"]), ("7", []), ("", [])):
            with self.subTest(status=status):
                self.open("start", machine=machine(status))
                title = "state_" + (status if status.isidentifier() else "unknown")
                self.shows("#start-title", self.said(title))
                shown = self.page.js("return [...document.querySelectorAll('input[name=way]')]"
                                     ".filter((one) => one.offsetParent !== null).map((one) => one.value)")
                self.assertEqual(shown, offers)
                if offers:
                    self.assertEqual(self.page.js("return chosen('way')"), offers[0])
                self.assertEqual(self.page.js("return el('flags').hidden"), status != "sys_crash")
        self.open("memory", machine=machine("mem_testing", memory_test="12/40"))
        self.shows("#memory-progress", "Step 12 of 40.")
        self.server.answers["machine"] = machine("not_install")
        self.page.view("start")
        self.open("start", machine=machine("not_install", disks=[]))
        self.shows("#start-lead", self.said("no_disks"))
        self.assertTrue(self.page.js("return el('source').hidden"))

    def test_consent_names_what_is_erased(self) -> None:
        for status, disks, title, marks in (
                ("not_install", None, "consent_erase", ["disk_erased"] * 4),
                ("sys_crash", DISKS_KEPT, "consent_erase", ["disk_erased", "disk_kept"]),
                ("sys_crash", DISKS_KEPT[1:], "consent_system", ["disk_kept"]),
                ("strange", DISKS_KEPT[1:], "consent_erase", ["disk_erased"]),
                ("sys_migrat", DISKS_KEPT, "consent_keep", ["disk_stays"] * 2)):
            with self.subTest(status=status, marks=marks):
                self.open("start", machine=machine(status, **({} if disks is None else {"disks": disks})))
                self.choose("builtin")
                self.shows("#consent-title", self.said(title))
                self.assertEqual(self.page.js("return [...document.querySelectorAll('#consent-disks em')]"
                                              ".map((one) => one.textContent)"), [self.said(mark) for mark in marks])
                self.page.click("#begin")
                self.shows("#agreed-fault", self.said("agree_first"))
        self.assertEqual(self.server.posts, [])

    def test_nothing_of_the_machine_becomes_markup(self) -> None:
        evil = machine("sys_migrat", host=EVIL, model=EVIL, version=EVIL, addresses=[EVIL],
                       found=f'{{"model": "{EVIL.replace(chr(34), "")}", "version": "1"}}',
                       disks=[disk(1, 1) | {"product": EVIL, "place": EVIL}])
        for view, answers in (("start", {}), ("done", {"progress": stage("Success", hostname=EVIL)}),
                              ("fault", {"progress": error(EVIL, EVIL, 1)}),
                              ("work", {"lock_check": LOCKED, "progress": stage(EVIL)})):
            self.open(view, machine=evil, **answers)
            self.page.until("document.getElementById('model').textContent.startsWith('<img')")
            self.assertEqual(self.page.js("return document.querySelectorAll('main img').length"), 0)
            self.assertNotEqual(self.page.js("return document.title"), "taken")

    # Orders

    def test_upload(self) -> None:
        self.open("start")
        self.choose("upload", hostname=" attic ")
        self.agree()
        self.server.at_work("format_sys")
        self.shows("#stage", self.said("stage_format_sys"))
        self.server.at_work("upload")
        self.shows(".meter span", "100%")  # the browser has sent all, and counts on nothing else
        self.assertEqual(self.page.js("return document.querySelectorAll('.past').length"), 1)
        self.server.release()
        self.server.at_work("install")
        self.shows("#stage", self.said("stage_install"))
        self.assertIsNone(self.page.js("return document.querySelector('.meter')"))
        self.server.ended(stage("Success", hostname="attic"))
        self.page.view("done")
        self.shows("#done-title", "attic is installed")
        path, query, fields = self.posted()
        self.assertEqual((path, query["status"], query["upload"]), ("/cgi-bin/install.cgi", "not_install", "true"))
        self.assertGreater(int(query["utctime"]), 1_700_000_000)
        self.assertEqual(fields.pop("filename"), self.patch.read_bytes())
        self.assertEqual(fields, {name: value.encode() for name, value in {**VALUES, "netconfig": "dhcp"}.items()})

    def test_what_the_other_roads_send(self) -> None:
        manual = {"manual_ip": "10.1.2.3", "manual_mask": "255.255.0.0", "manual_gateway": "10.1.0.1",
                  "manual_dns": "9.9.9.9"}
        ppp = {"ppp_account": "a@isp", "ppp_passwd": "x/y+z%"}
        nobody = {"hostname": "", "account": "", "password": ""}
        for status, way, road, net, values, word in (
                ("not_install", "install", "builtin", "manual", manual, "not_install"),
                ("sys_crash", "reinstall", "download", "pppoe", ppp, "sys_crash"),
                ("sys_migrat", "migrate", "builtin", "dhcp", nobody, "sys_migrat"),
                ("sys_recoverable", "install", "builtin", "dhcp", {}, "not_install")):
            with self.subTest(status=status, way=way, road=road):
                self.open("start", machine=machine(status))
                self.page.click(f"input[name=way][value={way}]")
                self.page.click(f"input[name=netconfig][value={net}]")
                self.choose(road, **values)
                self.agree()
                path, query, fields = self.posted()
                self.assertEqual((path, query["status"], "upload" in query), ("/cgi-bin/install.cgi", word, False))
                wanted = {name: value for name, value in {**VALUES, **values}.items() if value} | {"netconfig": net}
                wanted |= {"buildin": "true"} if road == "builtin" else {}
                self.assertEqual(fields, {name: value.encode() for name, value in wanted.items()})
                self.server.at_work("format_sys")
                self.shows("#stage", self.said("stage_format_sys"))
                self.server.release()
                self.server.at_work("download", progress="7")
                self.shows(".meter span", "7%")
                self.server.ended(stage("Success", hostname=""))
                self.page.view("done")
                self.shows("#done-title", self.said("done_title_plain"))
                link = manual["manual_ip"] if net == "manual" else urllib.parse.urlsplit(self.server.url).netloc
                self.shows("#done-addresses a", f"http://{link}/")

    def test_recovery(self) -> None:
        self.open("start", machine=machine("sys_recoverable"))
        self.page.click("input[name=way][value=install]")
        self.choose("builtin")
        self.page.click("#agreed")  # which counts for the install alone
        self.page.click("#consent .back")
        self.page.click("#settings .back")
        self.page.click("input[name=way][value=recover]")
        self.page.click("#source .primary")
        self.page.view("consent")
        self.agree()
        self.shows("#work-title", self.said("work_recover"))
        self.server.release()
        self.page.view("done")
        self.shows("#done-title", self.said("done_recover"))
        path, _, fields = self.posted()
        self.assertEqual((path, list(fields)), ("/cgi-bin/recover.cgi", ["utctime"]))

    def test_refusals_beside_an_install(self) -> None:
        self.open("start", machine=machine("sys_crash"), clean_button_flags={"success": False})
        self.page.click("#flags-clear")
        self.shows("#flags-fault", self.said("flags_fault"))
        self.open("done", progress=stage("Success", hostname="attic"), restart={"success": False})
        self.page.click("#restart")
        self.shows("#done-note", self.said("restart_fault"))

    def test_values_are_checked_before_they_are_sent(self) -> None:
        self.open("start")
        self.page.click("#source .primary")
        self.shows("#file-fault", self.said("wrong_file"))
        self.page.choose_file("file", str(self.patch.parent / "other.txt"))
        self.page.click("#source .primary")
        self.shows("#file-fault", self.said("wrong_file"))
        self.open("start", version={"success": False})
        self.page.click("input[name=road][value=download]")
        self.shows("#version", self.said("version_none"))
        self.page.click("#source .primary")
        self.page.click("input[name=road][value=builtin]")
        self.page.click("#source .primary")
        self.page.view("settings")
        bad = {
            "hostname": ["", "-a", "a-", "$(id)", "a.b", "a" * 64],
            "account": ["", "1a", "a\"b", "a`b", "a" * 33],
            "password": ["", "1234567", "a" * 65, " leading", "trailing ", "back\\slash", "quo\"tedxx", "$(reboot)"],
            "manual_ip": ["", "1.2.3", "010.0.0.1", "1.2.3.256", "1.2.3.4;x"],
            "manual_mask": ["", "255.0.255.0", "0.0.0.0", "255.255.255.255"],
            "manual_gateway": ["", "192.168.2.1", "x"],
            "manual_dns": ["", "dns.example"],
            "ppp_account": ["", "-x", "a b", "a;b", "a'b", "$x"],
            "ppp_passwd": ["", "a`b", "a\\b", "#a"],
        }
        good = {"hostname": "a-1", "account": "a.b_c-d", "password": "!# %&'()*+,-./:;<=>?@[]^_{|}~",
                "manual_ip": "192.168.1.9", "manual_mask": "255.255.255.0", "manual_gateway": "192.168.1.1",
                "manual_dns": "1.1.1.1",
                "ppp_account": "a@b.example", "ppp_passwd": "a,b:c=d"}
        for net in ("manual", "pppoe"):
            self.page.click(f"input[name=netconfig][value={net}]")
            for name, values in bad.items():
                if not self.page.js("return el(arguments[0]).offsetParent !== null", name):
                    continue
                for value in values:
                    for field, right in good.items():
                        self.page.js("el(arguments[0]).value = arguments[1]", field, right)
                    self.page.js("el(arguments[0]).value = arguments[1]", name, value)
                    self.page.click("#values .primary")
                    wrong = self.page.js("return [...document.querySelectorAll('[aria-invalid=true]')]"
                                         ".map((one) => one.id)")
                    self.assertIn(name, wrong, value)
                    self.assertEqual(self.page.js("return document.activeElement.id"), wrong[0])
            self.page.js("el(arguments[0]).value = arguments[1]", name, good[name])
            for field, right in good.items():
                self.page.js("el(arguments[0]).value = arguments[1]", field, right)
            self.page.click("#values .primary")
            self.page.view("consent")
            self.page.click("#consent .back")
            self.page.view("settings")
        self.assertEqual(self.server.posts, [])

    # What goes wrong

    def test_orders_that_fail(self) -> None:
        old = error("error", "error_mkfs", 35)
        for title, change in (
                ("err_patch", {"install": error("wizard", "err_patch", 13)}),
                ("error_unknown", {"install": error("error", "error_unknown", -1)}),
                ("page_silent", {"lock_check": None}),
                ("page_lost", {"install": None}),  # and the old error is not taken for a new one
                ("page_gone", {})):
            with self.subTest(title=title):
                self.open("fault", progress=old)
                self.page.click("#again")
                self.page.view("start")
                self.choose("upload")
                self.server.answers |= change
                if title == "page_gone":
                    self.server.answers["progress"] = stage("install")
                self.page.click("#agreed")
                self.page.click("#begin")
                self.page.view("fault")
                self.shows("#fault-title", self.page.js("return TEXTS.enu.faults[arguments[0]][0]", title))
        self.open("start")
        self.choose("builtin")
        self.server.at_work("format_sys")
        self.page.click("#agreed")
        self.page.click("#begin")
        self.page.view("fault")
        self.assertEqual(self.server.posts, [])
        self.page.click("#again")  # "Show that install", of which only the stage is known
        self.shows("#stages", self.said("stage_format_sys"))
        self.server.at_work("download", progress="3")
        self.shows(".meter span", "3%")

    def test_an_install_that_has_failed_and_still_clears_up(self) -> None:
        self.open("fault", lock_check=LOCKED, progress=error("error", "error_model", 12))
        self.page.click("#again")
        self.page.view("wait")
        self.page.js("const old = ask; window.asked = 0; ask = (...one) => { window.asked++; return old(...one); }")
        self.page.until("window.asked > 4")
        self.page.view("wait")
        self.server.answers["lock_check"] = FREE
        self.page.view("start")

    def test_connection_lost_after_the_order_was_taken(self) -> None:
        self.open("start")
        self.choose("upload")
        self.server.answers["install"] = None
        self.agree()
        self.server.at_work("format_sys")
        self.shows("#stage", self.said("stage_format_sys"))
        self.server.release()
        self.page.until("state.request === 'lost'")
        self.shows("#stage", self.said("stage_format_sys"))
        self.server.ended(error("error", "error_upload", 54))
        self.page.view("fault")
        self.shows("#fault-words", "error / error_upload / 54")

    def test_reattaches(self) -> None:
        self.open("work", lock_check=LOCKED, progress=stage("download", progress="42"))
        self.shows(".meter span", "42%")  # as a second browser does, which knows nothing
        self.server.answers["progress"] = ""  # empty for a moment
        heard = self.page.js("return state.heard.getTime()")
        self.page.until("state.heard.getTime() > arguments[0] + 200", heard)
        self.shows(".meter span", "42%")
        for answer in (None, "<html>busy</html>"):  # silent, or something between
            self.server.answers["lock_check"] = None
            self.page.until("!document.getElementById('silent').hidden")
            links = self.page.js("return [...document.querySelectorAll('#silent a')].map((one) => one.href)")
            self.assertEqual(links, ["http://192.168.1.20/", "http://192.168.2.20/"])
            self.server.at_work("install")
            self.server.answers["progress"] = answer or stage("install")
            self.page.until("document.getElementById('silent').hidden")
        self.page.open(self.server.url)  # reload
        self.server.at_work("install")
        self.shows("#stage", self.said("stage_install"))
        self.server.ended(stage("install"))
        self.page.view("fault")
        self.shows("#fault-title", self.page.js("return TEXTS.enu.faults.page_gone[0]"))

    # How it looks, and who can use it

    def test_a_keyboard_is_enough(self) -> None:
        tab, space, enter, down = "\ue004", " ", "\ue007", "\ue015"
        self.open("start")
        self.page.until("document.activeElement === document.querySelector('#start h1')")
        self.page.keys(tab)
        self.page.keys(down)
        self.page.keys(down)  # the roads
        self.page.keys(tab)
        self.page.keys(enter)
        self.page.view("settings")
        self.page.keys(tab)
        self.page.keys(tab, "robin", tab, "correct-horse", tab, tab, tab)
        self.page.keys(enter)
        self.page.view("consent")
        self.page.keys(tab)
        self.page.keys(space, tab)
        self.server.hold("install")
        self.page.keys(enter)
        self.page.view("work")
        self.assertEqual(self.posted()[2]["buildin"], b"true")
        self.server.at_work("install")
        self.shows("#stage[aria-live=polite]", self.said("stage_install"))
        unnamed = self.page.js(
            "return [...document.querySelectorAll('input, select, button')]"
            ".filter((one) => !one.labels?.length && !one.textContent.trim()).map((one) => one.id)")
        self.assertEqual(unnamed, [])

    def test_fits_a_phone(self) -> None:
        self.page.size(320, 600)
        self.addCleanup(self.page.size, 1000, 900)
        wide = disk(1, 10 ** 12) | {"product": "W" * 40}
        views = {"start": {"machine": machine("sys_crash", host="a" * 63, disks=[wide])},
                 "fault": {"progress": error("error", "err_root_partition_layout_version", 70)},
                 "done": {"progress": stage("Success", hostname="a" * 63)},
                 "work": {"lock_check": LOCKED, "progress": stage("download", progress="100")}}
        for language in LANGUAGES:
            for view, answers in views.items():
                self.open(view, session={"lang": language}, **answers)
                self.page.until("document.documentElement.lang === arguments[0]", LANGUAGES[language])
                shown = [view]
                if view == "start":
                    self.page.click("input[name=netconfig][value=manual]")
                    self.choose("upload", manual_ip="10.0.0.2", manual_gateway="10.0.0.1", manual_dns="10.0.0.1")
                    shown = ["start", "settings", "consent"]
                for one in shown:
                    self.page.js("show(arguments[0])", one)
                    wide = self.page.js("return document.documentElement.scrollWidth")
                    self.assertLessEqual(wide, 320, (language, one))
                    small = self.page.js("return [...document.querySelectorAll('main button, main .choice')]"
                                         ".filter((one) => one.offsetHeight > 0 && one.offsetHeight < 32).length")
                    self.assertEqual(small, 0, (language, one))

    def test_contrast(self) -> None:
        self.addCleanup(self.page.scheme, "light")
        pairs = {"ink": ("ground", "sheet", "sunk", "tint", "bad-tint", "note"),
                 "soft": ("ground", "sheet", "sunk", "tint", "bad-tint"), "accent": ("sheet", "tint"),
                 "on-accent": ("accent", "accent-over"), "bad": ("sheet", "bad-tint", "tint"),
                 "on-bad": ("bad", "bad-over")}
        for scheme in ("light", "dark"):
            self.page.scheme(scheme)
            self.open("start")
            names = {name for front, grounds in pairs.items() for name in (front, *grounds)} | {"edge"}
            value = "return getComputedStyle(document.documentElement).getPropertyValue('--' + arguments[0]).trim()"
            colours = {name: luminance(str(self.page.js(value, name))) for name in names}
            for front, grounds in pairs.items():
                for ground in grounds:
                    self.assertGreaterEqual(contrast(colours[front], colours[ground]), 4.5, (scheme, front, ground))
            self.assertGreaterEqual(contrast(colours["edge"], colours["sheet"]), 3, scheme)


def wait_for(look: Callable[[], Any]) -> None:
    deadline = time.monotonic() + WAIT_SECONDS
    while not look():
        assert time.monotonic() < deadline, "waited for the page"
        time.sleep(0.02)


def luminance(colour: str) -> float:
    """Of "#rrggbb", as WCAG 2 has it."""
    parts = [int(colour[at:at + 2], 16) / 255 for at in (1, 3, 5)]
    red, green, blue = [part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one: float, other: float) -> float:
    return (max(one, other) + 0.05) / (min(one, other) + 0.05)


if __name__ == "__main__":
    if missing():
        print(f"NOT RUN: this machine lacks {missing()}")
        sys.exit(77)
    unittest.main(verbosity=2)
