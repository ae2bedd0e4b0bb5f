"""What an installation does to disks that come from elsewhere: data that can be kept is kept."""

from lab.machine import Machine
from raid import assert_system_arrays, exhibits, initsys, partitions, see_bays, stop
from scenario import Scenario


class RaidtoolMuseum(Scenario):
    def layout_case(self, machine: Machine, bay: int) -> tuple[dict[str, tuple[int, int]], str]:
        """Gives a disk an array with a file on partition 3. Returns its partitions and a picture of the third."""
        disk = "sd" + "abcdefghijklmnop"[bay]
        machine.must(f"mdadm -C /dev/md2 -amd -R -l1 -f -n1 /dev/{disk}3 && mke2fs -q -t ext4 /dev/md2 && "
                     "mount /dev/md2 /mnt && echo keep me >/mnt/file && umount /mnt")
        stop(machine)
        table = partitions(machine, disk)
        return table, machine.picture(bay, *table[f"{disk}3"])

    def test_every_layout(self) -> None:
        # System partitions made anew in place and of which version; of an unknown layout; or all of the disk.
        names = {"layout-2-raid": 2, "layout-6-raid": 6, "layout-7-raid": 7, "layout-8-raid": 8, "layout-9-raid": 9,
                 "layout-2": 2, "layout-6": 6, "layout-7": 7, "layout-8": 8, "layout-9": 9,
                 "layout-1": 0, "layout-3": 0, "layout-5": 0, "layout-7-builtin": 0, "layout-8-builtin": 0,
                 "layout-1-raid": 1}
        machine = self.boot(*exhibits(self.folder, *names))
        for bay, (name, version) in enumerate(names.items()):
            with self.subTest(name=name):
                disk = "sd" + "abcdefghijklmnop"[bay]
                before, data = self.layout_case(machine, bay)
                see_bays(machine, bay)
                status = initsys(machine)
                after = partitions(machine, disk)
                if name == "layout-1-raid":
                    self.assertEqual(status, 0)
                    self.assertNotIn(f"{disk}3", after, "of the oldest layout nothing can be kept")
                    stop(machine)
                    continue
                self.assertEqual(after[f"{disk}3"], before[f"{disk}3"])
                self.assertEqual(status, 0 if version else 1, "the newest layout has no room before the data")
                if version:
                    self.assertEqual(after, before)
                    self.assertEqual(machine.run(f"norvcheckpartition {disk}").status, version)
                    assert_system_arrays(self, machine, disk)
                stop(machine)
                self.assertEqual(machine.picture(bay, *before[f"{disk}3"]), data, "byte for byte")
                machine.must(f"mdadm -q -A /dev/md2 --run /dev/{disk}3 && mount -o ro /dev/md2 /mnt")
                self.assertEqual(machine.must("cat /mnt/file; umount /mnt"), "keep me\n")
                stop(machine)
