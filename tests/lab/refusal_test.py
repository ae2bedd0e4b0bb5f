"""Installs that cannot be: each ends in its word, and the next one succeeds."""

from collections.abc import Callable

from appliance import DISK, OnABridge
from firmware import install
from lab import firmware, road
from lab.installer import Refused
from lab.machine import wait_for

FULL = "fallocate -l $(($(df -Pk . | awk 'NR == 2 {print $4}') - 150000))K full"


class Refusal(OnABridge):
    def refused(self, work: Callable[[], object]) -> tuple[str, str, int]:
        with self.assertRaises(Refused) as refused:
            work()
        error = refused.exception
        return error.section, error.key, error.line

    def test_each_ends_in_its_word(self) -> None:
        one = self.appliance(DISK, DISK, flash=firmware.flash(self.folder), saves=True)
        machine = one.machine
        good = self.patch()
        install(machine, good)
        road.set_network(one)
        fields = road.configuration(one)
        machine.save("installed")

        def bad(what: str) -> Callable[[], object]:
            return lambda: one.web.install("sys_migrat", fields, firmware.bad_patch(self.folder, what)[0])

        def migrate() -> object:
            result = one.web.install("sys_migrat", fields, good)
            wait_for(one.web.is_idle, road.PATIENCE, "the install to end")  # it tells its success before that
            return result

        def older() -> object:
            old = firmware.patch(self.folder, "buildnumber=64000", name="old.pat")
            return one.web.install("sys_migrat", fields, old)

        def unlicensed() -> object:
            patch = firmware.patch(self.folder, name="bad.pat", updater="#!/bin/sh\nexit 65\n")
            return one.web.install("sys_migrat", fields, patch)

        # What is wrong; what makes it so, and undoes it; the install; where and in which words it is refused.
        on_flash = "mount /dev/norvboot2 /mnt && {} && umount /mnt"
        on_volume = "mount /dev/md0 /mnt && {} && umount /mnt"
        for name, before, after, work, error in (
            ("model", "", "", bad("model"), ("error", "error_model", 12)),
            ("signature", "", "", bad("stranger"), ("wizard", "err_patch", 13)),
            ("checksum", "", "", bad("checksum"), ("wizard", "err_patch", 13)),
            ("layout", "", "", bad("limit"), ("error", "err_root_partition_layout_version", 70)),
            ("room of the root", "", "", bad("room"), ("wizard", "err_patch", 13)),
            ("older than the disks", "", "", older, ("error", "error_version", 10)),
            ("no server", "", "", lambda: one.web.install("sys_migrat", fields), ("error", "error_download", 46)),
            ("licence", "", "", unlicensed, ("error", "err_vnos_license_expire", 65)),
            ("no file", "", "", lambda: one.web.send_no_file("sys_migrat"), ("error", "error_upload", 54)),
            ("settings", on_volume.format("rm -f /mnt/.ns_pwd && mkdir /mnt/.ns_pwd"),
             on_volume.format("rmdir /mnt/.ns_pwd"), migrate, ("error", "err_nsconfig", 695)),
            ("room of the volume", on_volume.format(f"(cd /mnt && {FULL})"), on_volume.format("rm /mnt/full"), migrate,
             ("error", "no_space", 16)),
            ("flash", on_flash.format("mv /mnt/hda1.tgz /mnt/gone"), on_flash.format("mv /mnt/gone /mnt/hda1.tgz"),
             lambda: one.web.install("sys_migrat", fields | {"buildin": "true"}), ("error", "boot_damaged", 45)),
        ):
            with self.subTest(name):
                machine.must(before or "true")
                self.assertEqual(self.refused(work), error)
                self.assertEqual(self.refused(one.web.progress), error, "the progress says the same")
                machine.must(after or "true")
                self.assertEqual(migrate(), {"stage": "Success", "hostname": one.hostname})

        with self.subTest("the progress of a patch that needs too much room has its own code"):
            self.refused(bad("room"))
            self.assertEqual(machine.must("cat /tmp/update.progress"), "A:-16:\0")

        with self.subTest("another install runs"):
            wait_for(one.web.is_idle, road.PATIENCE, "the install before to end")
            machine.must("flock -o /tmp/install.lock sleep 10000 >/dev/null 2>&1 </dev/null & echo $! >/run/holder")
            machine.until("norvupgrade --check-system | grep updating")
            self.assertEqual(self.refused(lambda: one.web.start("sys_migrat", fields, good)),
                             ("error", "error_apply_lock", 41))
            machine.must("kill $(cat /run/holder)")
            migrate()

        with self.subTest("the sender goes away"):
            one.web.send_half("sys_migrat", good)
            migrate()

        with self.subTest("a memory test runs"):
            machine.must("touch /.memtest && killall findhostd && findhostd >/dev/null 2>&1")
            told = road.find(one)
            self.assertEqual((told["status"], road.check_system(one)), (9, "mem_testing"))
            self.assertEqual(self.refused(lambda: one.web.start("sys_migrat", fields, good)),
                             ("status", "mem_testing", 47))
            machine.must("rm /.memtest")
            migrate()

    def test_a_disk_that_is_too_small(self) -> None:
        one = self.appliance("2G", DISK)
        one.machine.pull(1)
        one.machine.until("test ! -e /sys/block/sdb")
        road.set_network(one)
        good = self.patch()
        with self.subTest("it is refused"):
            self.assertEqual(self.refused(lambda: road.install(one, "upload", "not_install", good)),
                             ("error", "error_mkfs", 35))
        one.machine.plug(1)
        one.machine.until("test -e /sys/block/sdb")
        road.install(one, "upload", "not_install", good)
