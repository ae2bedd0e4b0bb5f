"""The system's arrays and the data volume, on real disks with the kernel's own driver."""

import re

from raid import BLANK, array, assert_system_arrays, initsys, seconds, see_bays, stop
from scenario import Scenario


class Raidtool(Scenario):
    def test_blank_disks(self) -> None:
        machine = self.boot(BLANK, BLANK, BLANK, BLANK)
        took = {}
        for count in (1, 2, 4):
            with self.subTest(disks=count):
                see_bays(machine, *range(count))
                self.assertEqual(machine.run("raidtool enumformatalldisks").out,
                                 "".join(f"{bay + 1} " for bay in range(count)))
                took[count] = seconds(machine, "raidtool initsys")
                assert_system_arrays(self, machine, *"sda sdb sdc sdd".split()[:count])
                self.assertIn("status: NORMAL", machine.must("raidtool status 0"), "free places are no loss")
                self.assertEqual(machine.run("norvcheckpartition").status, 9)
                stop(machine)
                machine.must("for d in a b c d; do for n in 1 2; do [ -e /dev/sd$d$n ] && "
                             "mdadm -q --zero-superblock /dev/sd$d$n; done; sfdisk --fast-delete -1 /dev/sd$d; done")
        print("seconds of initsys:", took)
        self.assertLessEqual(took[4], 1.5 * took[1] + 6, "the work on the disks is done at the same time")

    def test_stale_metadata(self) -> None:
        machine = self.boot(BLANK, BLANK)
        self.assertEqual(initsys(machine), 0)
        stop(machine)
        machine.must("sfdisk --fast-delete -1 /dev/sda; sfdisk --fast-delete -1 /dev/sdb; "
                     "pvcreate -ff -y -q /dev/sdb && vgcreate -q old /dev/sdb && lvcreate -an -Zn -q -n lv -L 1G old")
        self.assertEqual(initsys(machine), 0)
        assert_system_arrays(self, machine, "sda", "sdb")

    def test_a_disk_fails_while_arrays_are_made(self) -> None:
        machine = self.boot(BLANK, BLANK, BLANK)
        machine.spoil(1, 0)
        self.assertEqual(initsys(machine), 0)
        assert_system_arrays(self, machine, "sda", "sdc")
        machine.wait_log("Failed to create system partition of sdb")

    def test_volumes(self) -> None:
        machine = self.boot("12G", "12G", "12G")
        machine.must("sed -i 's/^partition_curr_version=.*/partition_curr_version=7/' /etc.defaults/norvinfo.conf")
        self.assertEqual(initsys(machine), 0)
        for flag, level, word in ((None, "raid5", "RAID 5"), ("/tmp/raid.0", "raid0", "RAID 0"),
                                  ("/tmp/raid.1", "raid1", "RAID 1")):
            with self.subTest(level=level):
                machine.must(f"touch {flag}" if flag else "true")
                machine.must("raidtool newvol")
                self.assertEqual(array(machine, "md2")["level"], level)
                told = machine.must("raidtool status 2")
                self.assertIn(f"Device level: {word}\n", told)
                self.assertEqual(re.findall(r"\[/dev/(sd.)3", told), ["sdc", "sdb", "sda"])
                if level == "raid5":
                    self.assertIn("rebuilding: Waiting...\n", told, "for the system's arrays on the same disks")
                    machine.must("mdadm -q -S /dev/md0 /dev/md1")
                if level != "raid0":
                    machine.until("raidtool status 2 | grep -q 'rebuilding: Progressing...\\[$'")
                uuid = machine.must("mdadm -E /dev/sda3 | grep 'Array UUID'")
                machine.must("raidtool destroy 2", timeout=120)
                self.assertEqual(machine.run("raidtool status 2").out, "RAID /dev/md2 is not found\n")
                self.assertNotIn(uuid, machine.run("mdadm -E /dev/sd[abc]3 2>&1").out)
                machine.must(f"rm -f {flag}")

    def test_volume_with_lvm_is_destroyed(self) -> None:
        machine = self.boot("12G", "12G")
        machine.must("sed -i 's/^partition_curr_version=.*/partition_curr_version=7/' /etc.defaults/norvinfo.conf")
        self.assertEqual(initsys(machine), 0)
        # The volume lies last, as on a volume group that it fills: its line of the listing is the last one.
        machine.must("raidtool newvol && modprobe dm-snapshot && pvcreate -q /dev/md2 && vgcreate -q vg1 /dev/md2 && "
                     "lvcreate -q -an -Wn -Zn -n hole -L 16M vg1 && lvcreate -q -Wn -Zn -n lv -l 100%FREE vg1 && "
                     "mke2fs -q -t ext4 /dev/vg1/lv && lvremove -q -f vg1/hole && "
                     "lvcreate -q -s -n lvs1 -L 16M vg1/lv")
        # The list of mounts shows the node as it was given when it is no link.
        machine.must("rm /dev/vg1/lvs1 && cp -a /dev/mapper/vg1-lvs1 /dev/vg1/lvs1 && mkdir /tmp/snap && "
                     "mount -r /dev/vg1/lvs1 /tmp/snap")
        self.assertIn("/dev/vg1/lvs1 /tmp/snap", machine.must("cat /proc/mounts"))
        machine.must("raidtool destroy 2", timeout=120)
        self.assertEqual(machine.run("raidtool status 2").status, 1)
        self.assertEqual(machine.run("ls -d /tmp/snap /sys/block/dm-* 2>/dev/null").out, "")
        self.assertNotIn("UUID", machine.run("mdadm -E /dev/sda3 /dev/sdb3 2>/dev/null").out)

    def test_a_disk_that_fails_and_one_that_is_added(self) -> None:
        machine = self.boot("12G", "12G")
        machine.must("sed -i 's/^partition_curr_version=.*/partition_curr_version=1/' /etc.defaults/norvinfo.conf")
        see_bays(machine, 0)
        self.assertEqual(initsys(machine), 0)
        assert_system_arrays(self, machine, "sda")
        machine.must("sfdisk -M1 /dev/sdb; sfdisk -N1 -uS -q -f -j63 -z1574307 -tfd -F /dev/sdb && "
                     "mdadm -q /dev/md0 --add /dev/sdb1")
        machine.until("raidtool status 0 | grep -q 'sdb1: Rebuilding'")
        self.assertIn("status: DEGRADE", machine.must("raidtool status 0"))
        machine.must("echo 200000 >/proc/sys/dev/raid/speed_limit_max")
        machine.until("raidtool status 0 | grep -q 'sdb1: Normal'", 300)
        self.assertEqual(array(machine, "md0")["slot1"], "sdb1", "the first free place")
        self.assertIn("status: NORMAL, rebuilding: None", machine.must("raidtool status 0"))
        machine.must("mdadm -q /dev/md0 -f /dev/sdb1")
        self.assertIn("status: DEGRADE", machine.must("raidtool status 0"))
        self.assertIn("\t [/dev/sdb1: Failed]\n", machine.must("raidtool status 0"))

    def test_disks_are_cleaned(self) -> None:
        machine = self.boot(BLANK, BLANK)
        self.assertEqual(initsys(machine), 0)
        machine.must("norvcleanpartition", timeout=120)
        self.assertEqual(machine.run("raidtool status 0").status, 1)
        stop(machine)
        for disk in ("sda", "sdb"):
            self.assertEqual(machine.must(f"dd if=/dev/{disk} bs=1M count=1 2>/dev/null | tr -d '\\0' | wc -c"), "0\n")
