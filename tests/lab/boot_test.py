"""The appliance starts, with its disks where they belong; and pictures of disks, which tell what an install kept."""

import hashlib
import os
import subprocess
from pathlib import Path

from lab.disks import picture
from lab.image import SOURCE
from scenario import Scenario

GIB_SECTORS = 2 << 20


class Boot(Scenario):
    def test_disks_have_their_letters_in_the_order_of_the_bays(self) -> None:
        for count in (1, 2, 4):
            with self.subTest(disks=count):
                machine = self.boot(*(f"{bay + 1}G,serial=BAY{bay}" for bay in range(count)), name=f"with{count}")
                disks = machine.must("cd /sys/block; for d in sd*; do echo $d $(cat $d/size); done").splitlines()
                self.assertEqual(disks, [f"sd{'abcd'[bay]} {(bay + 1) * GIB_SECTORS}" for bay in range(count)])
                machine.cut()

    def test_a_disk_is_what_was_asked_for(self) -> None:
        foreign = self.folder / "foreign.qcow2"
        raw = self.folder / "foreign.raw"
        content = b"an image from elsewhere".ljust(3 << 20, b"\xa5")
        raw.write_bytes(content)
        subprocess.run(["qemu-img", "convert", "-f", "raw", "-O", "qcow2", raw, foreign], check=True)
        machine = self.boot("1G", "1G,ssd", "5T", f"image={foreign}")
        sysfs = "cd /sys/block; cat sda/queue/rotational sdb/queue/rotational sdc/size sdd/size"
        self.assertEqual(machine.must(sysfs).split(), ["1", "0", str(5 << 31), str(3 << 11)])
        self.assertEqual(machine.must("sha256sum /dev/sdd").split()[0], hashlib.sha256(content).hexdigest())
        machine.must("printf end | dd of=/dev/sdc bs=512 seek=10737418239 conv=notrunc,fsync")
        with open(machine.disk_file(2), "rb") as disk:
            disk.seek(-512, 2)
            self.assertEqual(disk.read(3), b"end")
        self.assertLess(machine.disk_file(2).stat().st_blocks, 4096, "a sparse disk takes room")

    def test_every_name_starts(self) -> None:
        machine = self.boot()
        listing = 'find /usr/sbin /usr/lib/norv/cgi-bin -type l | while read f; do ' \
                  '[ "$(readlink -f $f)" = /usr/libexec/norv/norv ] && echo $f; done'
        names = machine.must(listing).split()
        table = (SOURCE / "applets/main.cpp").read_text().split("kApplets[] = {")[1].split("};")[0]
        expected = sorted([line.split('"')[1] for line in table.splitlines() if '"' in line] + ["ncemd"])
        self.assertEqual(sorted(Path(name).name for name in names), expected)
        each = 'for f in $0 $@; do (timeout -s KILL 8 "$f" </dev/null >/dev/null 2>&1; echo "$f $?" >>/run/ended) & ' \
               'done; wait; cat /run/ended'
        ended = dict(line.rsplit(" ", 1) for line in machine.must(["/bin/sh", "-c", each, *names]).splitlines())
        self.assertEqual(sorted(ended), sorted(names))
        # 126 and 127: not an executable or without its libraries. Above 128: ended by a signal, and 137 is our own.
        broken = {name: status for name, status in ended.items() if int(status) in (126, 127) or 128 < int(status) < 160
                  and int(status) != 137}
        self.assertEqual(broken, {})
        self.assertEqual(machine.run("hostname").status, 0)

    def test_reboot_and_orderly_stop(self) -> None:
        machine = self.boot("1G")
        machine.must("touch /tmp/before")
        machine.run("reboot")
        machine.wait_log("server stopped(.|\n)*server started")
        self.assertEqual(machine.wait_ready().run("test -e /tmp/before").status, 1)
        machine.stop()
        self.assertFalse(machine.runs)

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
