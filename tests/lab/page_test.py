"""The install page in a real browser, on the real appliance."""

import json
import sys
import urllib.request

from appliance import on_system
from lab import feed, road
from lab.bridge import Bridge, usable
from lab.disks import Disk
from lab.firmware import BUILD_NUMBER, flash, patch
from lab.image import SOURCE
from lab.machine import wait_for
from scenario import Scenario
from web_test import answers

sys.path.append(str(SOURCE / "tests/web"))
from browser import Browser, browser, missing

STAGE_SECONDS = 300


class Page(Scenario):
    def setUp(self) -> None:
        super().setUp()
        if missing():
            self.skipTest(f"this machine lacks {missing()}")

    def test_upload_to_success(self) -> None:
        file = patch(self.folder)
        machine = self.boot("16G", "16G", boot="flash")
        url = machine.page()
        wait_for(lambda: answers(url.split("/")[2]), 60, "the page")
        with browser("de") as page, browser("en") as other:
            page.open(url)
            page.view("start")
            self.assertEqual(page.text("#model"), "NS0400")
            self.assertEqual(page.text("#start-title"), "Bereit zur Installation")
            self.assertEqual(page.js("return state.machine.disks.map((disk) => [disk.place, disk.bytes, disk.erased])"),
                             [["Internal HDD1", 16 << 30, True], ["Internal HDD2", 16 << 30, True]])
            page.choose_file("file", str(file))
            page.click("#source .primary")
            page.view("settings")
            for name, value in (("hostname", "attic"), ("account", "robin"), ("password", "correct-horse%&+")):
                page.fill(name, value)
            page.click("#values .primary")
            page.view("consent")
            page.click("#agreed")
            page.click("#begin")
            page.until("state.seen.includes('format_sys')")
            other.open(url)
            other.until("state.view === 'work' || state.view === 'done'")
            for one in (page, other):
                one.until("state.view === 'done' || state.view === 'fault'", seconds=STAGE_SECONDS)
            self.assertEqual(page.text("#done-title"), "attic ist installiert", machine.log()[-3000:])
            self.assertEqual(other.text("#done-title"), "attic is installed")
            self.assertEqual(page.complaints() + other.complaints(), [])
            machine.must("mkdir -p /mnt/new && mount /dev/md0 /mnt/new")
            self.assertEqual(machine.must("cat /mnt/new/.ns_pwd"), 'account="robin"\npassword="correct-horse%&+"\n')
            self.assertIn("--set_hostname attic\n", machine.must("cat /mnt/new/.ns_configure.sh"))
            machine.must("umount /mnt/new")
            page.click("#restart")
            page.until("state.restart === 'back'", seconds=STAGE_SECONDS)
            self.assertEqual(page.js("return document.getElementById('open').href"), url)
            page.open(url)
            page.until("state.view === 'start'", seconds=STAGE_SECONDS)
            self.assertIn("neuer als dieses Installationsprogramm", page.text("#start-title"))
            self.assertIn("7.2-sample", page.text("#start-lead"))
            self.assertEqual(page.js("return state.machine.disks.map((disk) => disk.erased)"), [False, False])

    def test_wrong_model_then_download_to_the_new_address(self) -> None:
        if not usable():
            self.skipTest("this machine has no tap devices for us")
        right = patch(self.folder)
        wrong = patch(self.folder, "unique=norv_x86_other", name="other.pat")
        with Bridge(2) as bridge, feed.served(bridge, right) as asked, browser() as page:
            one = road.create(self.folder / "one", bridge, [Disk.parse("16G")] * 2, model={"rss_server_ssl": feed.URL})
            self.addCleanup(one.machine.cut)
            road.switch_on(one)
            road.set_network(one)
            page.open(f"http://127.0.0.1:{bridge.forward(one.address, 80)}/")
            page.view("start")
            page.choose_file("file", str(wrong))
            page.click("#source .primary")
            self.order(page, one)
            page.until("state.view === 'done' || state.view === 'fault'", seconds=STAGE_SECONDS)
            self.assertEqual(page.text("#fault-title"), "The file is for another model", one.machine.log()[-3000:])
            self.assertIn("NS0400", page.text("#fault-advice"))
            page.click("#again")
            page.view("start")
            page.click("input[name=road][value=download]")
            page.until("document.getElementById('version').textContent === 'NOS 7.2-64570 is available.'")
            page.click("#source .primary")
            self.order(page, one)
            page.until("state.view === 'done' || state.view === 'fault'", seconds=STAGE_SECONDS)
            self.assertEqual(page.text("#done-title"), "attic is installed", one.machine.log()[-3000:])
            self.assertEqual(asked[-1], f"/{right.name}")
            self.assertEqual(page.text("#done-addresses a"), f"http://{one.address}/")
            before = len(one.machine.console())
            page.click("#restart")
            self.assertIn("attic", road.wait_banner(one, before))
            self.assertEqual(page.complaints(), [])

    def test_from_flash_then_migrated_recovered_and_without_the_reset_buttons_marks(self) -> None:
        if not usable():
            self.skipTest("this machine has no tap devices for us")
        file = patch(self.folder)
        with Bridge(2) as bridge, browser() as page:
            one = road.create(self.folder / "one", bridge, [Disk.parse("12G")] * 2, flash=flash(self.folder))
            self.addCleanup(one.machine.cut)
            road.switch_on(one)
            road.set_network(one)
            url = f"http://127.0.0.1:{bridge.forward(one.address, 80)}/"

            def arrive(title: str, way: str = "") -> None:
                one.machine.must("rm -f /tmp/root_info.cache /tmp/disk_sysinfo /tmp/install.progress")
                page.open(url)
                page.until("state.view === 'start'")
                self.assertEqual(page.text("#start-title"), title)
                if way:
                    page.click(f"input[name=way][value={way}]")

            def finish() -> None:
                page.until("state.view === 'done' || state.view === 'fault'", seconds=STAGE_SECONDS)
                self.assertEqual(page.text("#fault-title"), "", one.machine.log()[-3000:])
                wait_for(one.web.is_idle, STAGE_SECONDS, "the install to end")

            arrive("Ready to install")
            page.click("input[name=road][value=builtin]")
            page.click("#source .primary")
            self.order(page, one, netconfig="pppoe", ppp_account="a@isp", ppp_passwd="x+y%")
            finish()
            self.assertIn("--set_pppoe eth0 a@isp x+y%\n", on_system(one.machine, "cat .ns_configure.sh"))

            arrive("There is a system on the disks", "migrate")
            page.choose_file("file", str(file))
            page.click("#source .primary")
            self.order(page, one)
            finish()

            arrive("The installed system is newer than this installer", "recover")
            page.click("#source .primary")
            self.agree(page)
            finish()
            self.assertEqual(road.flash_version(one), BUILD_NUMBER)

            on_system(one.machine, "touch .noroot .system_crashed")
            arrive("The system on the disks is damaged")
            page.click("#flags-clear")
            page.view("done")
            self.assertEqual(on_system(one.machine, "ls .noroot .system_crashed 2>/dev/null || true"), "")
            self.assertEqual(page.complaints(), [])

    @staticmethod
    def agree(page: Browser) -> None:
        page.view("consent")
        page.click("#agreed")
        page.click("#begin")

    @classmethod
    def order(cls, page: Browser, one: road.Appliance, **values: str) -> None:
        """From the second section to the work."""
        page.view("settings")
        for name, value in {**road.configuration(one), "hostname": "attic", **values}.items():
            if name == "netconfig":
                page.click(f"input[name=netconfig][value={value}]")
            else:
                page.fill(name, value)
        page.click("#values .primary")
        cls.agree(page)

    def test_programs_beside_the_page(self) -> None:
        machine = self.boot("1G")
        url = machine.page()
        wait_for(lambda: answers(url.split("/")[2]), 60, "the page")

        def answer(name: str, **options: object) -> tuple[int, bytes]:
            request = urllib.request.Request(f"{url}cgi-bin/{name}", **options)  # type: ignore[arg-type]
            with urllib.request.urlopen(request, timeout=120) as got:
                return got.status, got.read()

        odd = 'a"b\\c<d>$(e)\n\tf'
        machine.must(["hostname", odd])
        told = json.loads(answer("machine.cgi")[1])
        self.assertEqual((told["host"], told["status"]), (odd.replace("\n\t", ""), "not_install"))
        self.assertEqual([disk["name"] for disk in told["disks"]], ["sda"])
        self.assertEqual(answer("progress.cgi"), (204, b""))
        machine.must("""printf 'Content-type: text/html\\r\\n\\r\\n{"success": true}' >/tmp/install.progress""")
        self.assertEqual(answer("progress.cgi"), (200, b'{"success": true}'))
        self.assertEqual(json.loads(answer("version.cgi?status=not_install")[1]), {"success": False})
        refused = b'{"success": false}'
        page = {"X-Install-Page": "1"}
        self.assertEqual(answer("restart.cgi", headers=page)[1], refused)
        self.assertEqual(answer("restart.cgi", data=b"")[1], refused)
        machine.must("flock -o /tmp/install.lock sleep 10000 >/dev/null 2>&1 </dev/null & echo $! >/run/holder")
        machine.until("! flock -n /tmp/install.lock true")
        self.assertEqual(answer("restart.cgi", data=b"", headers=page)[1], refused)
        machine.must("kill $(cat /run/holder)")
        self.assertEqual(answer("machine.cgi")[0], 200)
