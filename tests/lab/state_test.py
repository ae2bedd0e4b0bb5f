"""States that are kept and come back, and pictures of disks."""

import os

from lab.disks import picture
from scenario import Scenario


class State(Scenario):
    def test_save_and_restore(self) -> None:
        machine = self.boot("256M", "64M", saves=True)
        machine.must("echo before >/run/memory && echo before | dd of=/dev/sda conv=fsync 2>/dev/null")
        machine.save("first")
        # Each with a tool of its own, so that no cache of the guest's answers.
        change = "echo after >/run/memory && echo later | dd of=/dev/sda conv=fsync 2>/dev/null"
        look = "cat /run/memory; dd if=/dev/sda bs=512 count=1 iflag=direct 2>/dev/null | head -n1"
        machine.must(change)
        machine.restore("first")
        self.assertEqual(machine.must(look), "before\nbefore\n")
        machine.must(change)
        machine.cut()
        machine.restore("first")
        self.assertEqual(machine.must(look), "before\nbefore\n")
        machine.wait_ready()
        self.assertEqual(machine.must("ls /sys/block | grep -c '^sd'"), "2\n")

    def test_picture_is_of_the_content(self) -> None:
        machine = self.create("64M", "64M", "64M,ssd")
        blank = machine.picture(0)
        for bay, at, data in ((1, 5 << 20, b"\0" * 4096), (2, 5 << 20, b"x")):
            with open(machine.disk_file(bay), "r+b") as disk:
                os.pwrite(disk.fileno(), data, at)
        self.assertEqual(machine.picture(1), blank, "zeroes that were written are no difference")
        self.assertNotEqual(machine.picture(2), blank)
        sector = (5 << 20) // 512
        self.assertEqual(machine.picture(2, 0, sector), machine.picture(0, 0, sector))
        self.assertNotEqual(machine.picture(2, sector, 1), machine.picture(0, sector, 1))
        moved = self.folder / "moved.raw"
        moved.write_bytes(b"\0" * 512 + b"x".ljust(1 << 20, b"\0"))
        other = self.folder / "other.raw"
        other.write_bytes(b"x".ljust(1 << 20, b"\0") + b"\0" * 512)
        self.assertNotEqual(picture(moved), picture(other), "the place counts")
        self.assertEqual(picture(moved, 1), picture(other, 0, 2048))
