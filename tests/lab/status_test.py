"""What the disks hold, on real disks with the sample firmware on them."""

import json

from firmware import install, patch, status
from raid import BLANK, see_bays
from scenario import Scenario


class Status(Scenario):
    def test_from_blank_to_wrecked(self) -> None:
        machine = self.boot(BLANK, BLANK)
        self.assertEqual(status(machine), "not_install")
        install(machine, patch(self.folder))

        self.assertEqual(status(machine), "sys_recoverable")
        told = json.loads(machine.must("cat /tmp/disk_sysinfo"))
        self.assertEqual(told, {"model": "NS0400", "version": "7.2-sample", "build_num": 64570, "admin_port": 5000})

        # Each change is undone behind its row.
        for change, back, word in (
            ("touch .restore_to_default .system_crashed", "rm .restore_to_default .system_crashed", "not_install"),
            ("touch .system_crashed", "rm .system_crashed", "sys_crash"),
            ("sed -i s/lab4/elsewhere/ etc.defaults/norvinfo.conf",
             "sed -i s/elsewhere/lab4/ etc.defaults/norvinfo.conf", "sys_migrat"),
            ("sed -i s/^#/x/ .norv/patch/checksum.norv", "sed -i s/^x/#/ .norv/patch/checksum.norv", "sys_migrat"),
            ("touch lost+found/found", "rm lost+found/found", "sys_crash"),
            ("true", "true", "sys_recoverable"),
        ):
            with self.subTest(change=change):
                on_disk = "mount /dev/md0 /mnt && (cd /mnt && {}) && umount /mnt"
                machine.must(on_disk.format(change))
                self.assertEqual(status(machine), word)
                machine.must(on_disk.format(back))
        machine.must("dd if=/dev/zero of=/dev/md0 bs=1M count=64 conv=fsync 2>/dev/null")
        self.assertEqual(machine.must("norvupgrade --check-system"), "sys_recoverable", "what was found out is kept")
        self.assertEqual(status(machine), "sys_crash")
        self.assertEqual(machine.must("flock /tmp/install.lock norvupgrade --check-system"), "updating")

    def test_flash_is_recovered_from_the_disks(self) -> None:
        machine = self.boot(BLANK, "64M")
        see_bays(machine, 0)
        install(machine, patch(self.folder, options=("--old",)))
        machine.must("mke2fs -q /dev/sdb && ln -s /dev/sdb /dev/norvboot2")
        machine.must("norvupgrade --recover", timeout=120)
        machine.must("mount /dev/norvboot2 /mnt")
        self.assertEqual(machine.must("norvchecksum /mnt && ls /mnt").split(),
                         ["VERSION", "checksum.norv", "hda1.tgz", "lost+found", "updater"])
        machine.must("umount /mnt && dd if=/dev/zero of=/dev/sdb bs=1M count=1 conv=fsync 2>/dev/null")
        self.assertNotEqual(machine.run("norvupgrade --recover").status, 0)
        self.assertEqual(status(machine), "sys_migrat", "it is not offered again")
