"""Arrays made with the exact command lines of the system, on disks that come and go."""

import re

from lab.machine import Machine, wait_for
from scenario import Scenario

# As the system runs them; %s are the members.
CREATE_ROOT = "/sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1  -n4 /dev/sda1 /dev/sdb1   missing missing> /dev/null 2>&1"
CREATE_SWAP = "/sbin/mdadm -C /dev/md1 -e 0.9 -amd -R -l1  -n4 /dev/sda2 /dev/sdb2   missing missing> /dev/null 2>&1"
CREATE_DATA = "/sbin/mdadm -C /dev/md2 -amd -R -l5  -n3 /dev/sda3 /dev/sdb3 /dev/sdc3 > /dev/null 2>&1"
CREATE_LONE = "/sbin/mdadm -C /dev/md0 -e 0.9 -amd -R -l1 -f -n4 /dev/sda1   missing missing missing> /dev/null 2>&1"


def partition(machine: Machine, *disks: str) -> None:
    """Three partitions of 64, 32 and the remaining MiB, by Debian's tool."""
    table = "label: dos\n,64M,fd\n,32M,fd\n,,fd\n"
    for disk in disks:
        machine.must(f"/usr/lib/lab/sfdisk -q /dev/{disk}", stdin=table.encode())


def members(machine: Machine, array: str) -> dict[str, str]:
    """The state word of each member, by name."""
    listed = machine.must(f"cd /sys/block/{array}/md; for d in dev-*; do echo $d $(cat $d/state); done")
    return {name[4:]: state for name, state in (line.split(" ", 1) for line in listed.splitlines())}


class Array(Scenario):
    def test_made_stopped_and_assembled(self) -> None:
        machine = self.boot("256M", "256M", "256M")
        partition(machine, "sda", "sdb", "sdc")
        for line in (CREATE_ROOT, CREATE_SWAP, CREATE_DATA):
            machine.must(line)
        levels = machine.must("cd /sys/block; cat md[012]/md/level md[012]/md/raid_disks md[012]/md/metadata_version")
        self.assertEqual(levels.split(), ["raid1", "raid1", "raid5", "4", "4", "3", "0.90", "0.90", "1.2"])
        self.assertEqual(members(machine, "md0"), {"sda1": "in_sync", "sdb1": "in_sync"})
        old = machine.must("/sbin/mdadm -E /dev/sda1")
        new = machine.must("/sbin/mdadm -E /dev/sdb3")
        for text, pattern in ((old, r"^ +UUID : \S+"), (old, r"^Preferred Minor : 0$"), (old, r"^this +0 "),
                              (new, r"^ +Array UUID : \S+"), (new, r"^ +Name : norvstation:2"),
                              (new, r"^ +Device Role : Active device 1$")):
            self.assertRegex(text, re.compile(pattern, re.MULTILINE))
        machine.must("mke2fs -q -t ext4 /dev/md2 && mount /dev/md2 /mnt && echo kept >/mnt/file && umount /mnt")
        machine.until("grep -q idle /sys/block/md2/md/sync_action", 120)
        uuid = re.search(r"UUID : (\S+)", new)
        assert uuid
        for array in ("md0", "md1", "md2"):
            machine.must(f"/sbin/mdadm -S /dev/{array}")
        self.assertEqual(machine.run("ls /sys/block | grep md").out, "")
        machine.must(f"/sbin/mdadm -A /dev/md2 -u {uuid[1]} --run /dev/sda3 /dev/sdb3 /dev/sdc3")
        machine.must("/sbin/mdadm -A /dev/md0 --run /dev/sda1 /dev/sdb1")
        self.assertEqual(machine.must("mount /dev/md2 /mnt && cat /mnt/file && umount /mnt"), "kept\n")

    def test_disk_pulled_while_the_array_runs(self) -> None:
        machine = self.boot("256M", "256M")
        partition(machine, "sda", "sdb")
        machine.must(CREATE_ROOT)
        machine.must("mke2fs -q -t ext4 /dev/md0 && mount /dev/md0 /mnt && echo kept >/mnt/file && sync")
        machine.pull(1)
        machine.until("! test -e /sys/block/sdb")
        machine.must("echo more >>/mnt/file && sync && echo 3 >/proc/sys/vm/drop_caches")
        self.assertEqual(machine.must("cat /mnt/file"), "kept\nmore\n")
        self.assertEqual(members(machine, "md0").get("sda1"), "in_sync")
        self.assertNotEqual(members(machine, "md0").get("sdb1"), "in_sync")
        # As long as the array holds it, its letter is taken; and it holds it until the last write to it is given up.
        machine.until("/sbin/mdadm /dev/md0 --remove detached")
        machine.plug(1)
        machine.until("test -b /dev/sdb1")
        machine.must("/sbin/mdadm /dev/md0 --add /dev/sdb1")
        wait_for(lambda: members(machine, "md0").get("sdb1") == "in_sync", 60, "the mirror to be whole")

    def test_power_cut(self) -> None:
        machine = self.boot("256M")
        partition(machine, "sda")
        machine.must(CREATE_LONE)
        machine.must("mke2fs -q -t ext4 /dev/md0 && mount /dev/md0 /mnt && echo synced >/mnt/file && sync /mnt/file && "
                     "echo in memory only >/mnt/other")
        machine.cut()
        self.assertFalse(machine.runs)
        machine.boot()
        machine.must("/sbin/mdadm -A /dev/md0 --run /dev/sda1 && mount /dev/md0 /mnt")
        self.assertEqual(machine.must("cat /mnt/file"), "synced\n")
        self.assertEqual(machine.run("cat /mnt/other").out, "", "what was in memory is gone")
