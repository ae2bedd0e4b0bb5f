"""The roads of an install, over the real segment and the real web server, from each state that disks can be in."""

from appliance import DISK, OnABridge, conf_set, on_system
from firmware import install
from lab import firmware, road
from lab.installer import Refused
from lab.road import Appliance

ORDER = {
    "upload": ("format_sys", "upload", "install", "Success"),
    "download": ("format_sys", "download_rss", "download", "install", "Success"),
    "builtin": ("chk_boot", "format_sys", "install", "Success"),
}


class Road(OnABridge):
    def take(self, one: Appliance, way: str, status: str, *pairs: str) -> None:
        """Takes one road to its end."""
        seen: list[str] = []
        told = road.install(one, way, status, self.patch(*pairs), seen.append)
        self.assertEqual(told["hostname"], one.hostname)
        self.assert_in_order(seen, ORDER[way])

    def test_from_blank_disks(self) -> None:
        one = self.appliance(DISK, DISK, flash=firmware.flash(self.folder), saves=True)
        self.assertEqual(road.find(one)["status"], 2)
        road.set_network(one)
        one.machine.save("blank")
        for way, version in (("builtin", "64500"), ("download", "sample"), ("upload", "sample")):
            with self.subTest(way=way):
                self.take(one, way, "not_install")
                self.assertEqual(road.reboot(one), f"{one.hostname} runs 7.2-{version}")
                self.assertIn(f"{one.hostname} runs", one.web.get("/"), "at the address that was set")
            one.machine.restore("blank")

    def test_over_what_is_installed(self) -> None:
        one = self.appliance(DISK, DISK, flash=firmware.flash(self.folder), saves=True)
        machine = one.machine
        install(machine, self.patch())
        road.data_make(machine)
        road.set_network(one)
        self.assertEqual(self.refresh(one), "sys_recoverable")
        machine.save("installed")

        with self.subTest("a reinstall keeps the data volume"):
            self.take(one, "download", "sys_recoverable")
            self.assertTrue(road.data_is_kept(machine))

        machine.restore("installed")
        with self.subTest("a migration keeps what it does not replace"):
            on_system(machine, "echo mine >etc/mine")
            self.take(one, "upload", "sys_migrat", "buildnumber=64600")
            self.assertIn('buildnumber="64600"', on_system(machine, "cat etc.defaults/VERSION"))
            self.assertEqual(on_system(machine, "cat etc/mine"), "mine\n")
            self.assertTrue(road.data_is_kept(machine))

        machine.restore("installed")
        with self.subTest("the flash is recovered"):
            one.web.recover()
            self.assertEqual(road.flash_version(one), firmware.BUILD_NUMBER)
        with self.subTest("the maintenance shell opens"):
            self.assertIn('"success": true', one.web.ask("start_telnet.cgi"))
            with self.bridge.tcp() as shell:
                shell.settimeout(road.PATIENCE)
                shell.connect((one.address, 23))

        machine.restore("installed")
        with self.subTest("a recovery that fails is not offered again"):
            machine.must("rm /dev/norvboot2")
            with self.assertRaises(Refused) as refused:
                one.web.recover()
            self.assertEqual(refused.exception.key, "error_recover")
            self.assertEqual(road.check_system(one), "sys_migrat")

        machine.restore("installed")
        with self.subTest("the marks of the reset button go, and the system is whole again"):
            on_system(machine, "touch .noroot .system_crashed")
            self.assertEqual(self.refresh(one), "sys_crash")
            self.assertIn('"success": true', one.web.ask("clean_button_flags.cgi"))
            self.assertEqual(self.refresh(one), "sys_recoverable")
            self.assertIn('"success": false', one.web.ask("clean_button_flags.cgi"), "there are none any more")

        with self.subTest("a crashed system is reinstalled, and the data volume stays"):
            on_system(machine, "touch .system_crashed")
            self.assertEqual(self.refresh(one), "sys_crash")
            self.take(one, "upload", "sys_crash")
            self.assertTrue(road.data_is_kept(machine))
            self.assertEqual(road.reboot(one), f"{one.hostname} runs 7.2-sample")

    def test_a_system_of_another_layout_migrates(self) -> None:
        one = self.appliance(DISK, DISK)
        conf_set(one.machine, partition_curr_version="8")
        install(one.machine, self.patch("buildnumber=64400"))
        conf_set(one.machine, partition_curr_version="9")
        road.set_network(one)
        self.assertEqual(self.refresh(one), "sys_migrat")
        self.assertEqual(one.machine.run("norvcheckpartition").status, 8)
        self.take(one, "upload", "sys_migrat")
        self.assertEqual(one.machine.run("norvcheckpartition").status, 8, "the layout stays")
        self.assertEqual(road.reboot(one), f"{one.hostname} runs 7.2-sample")
