"""The partition tool on real disks, held against the kernel and against Debian's own tools."""

import json

from lab.machine import Machine
from scenario import Scenario

DISK_SECTORS = 16 << 21
# Start of partition 1, sizes of 1 and 2, the gap before 3, types; of every layout that the system has had.
LAYOUTS = (
    (63, 273042, 787185, 273042, "83", "82", "83"),
    (63, 4980087, 1044225, 257040, "83", "82", "83"),
    (63, 530082, 787185, 16002, "83", "82", "83"),
    (63, 722862, 594405, 16002, "83", "82", "83"),
    (63, 4980087, 4192965, 257040, "83", "82", "83"),
    (256, 4980480, 4194304, 262144, "83", "82", "83"),
    (2048, 4980480, 4194304, 260352, "83", "82", "83"),
    (8192, 16777216, 4194304, 262144, "83", "82", "83"),
    (63, 1574307, 787185, 273105, "fd", "fd", "fd"),
    (63, 4980087, 1044225, 257040, "fd", "fd", "fd"),
    (63, 4980087, 4192965, 257040, "fd", "fd", "fd"),
    (256, 4980480, 4194304, 262144, "fd", "fd", "fd"),
    (2048, 4980480, 4194304, 260352, "fd", "fd", "fd"),
    (8192, 16777216, 4194304, 262144, "fd", "fd", "fd"),
    (256, 2097152, 5105569, 524288, "83", "83", "83"),
    (256, 2097152, 5105569, 524288, "83", "83", "83"),
)
# The backup of the root block has its place in the last 1000 sectors, and that place must lie behind the partition.
TAIL_SECTORS = 1001

KERNEL = "for p in /sys/block/sda/sda*; do echo $(cat $p/start) $(cat $p/size); done"


def create(start: int, size: int, swap: int, gap: int, *types: str, disk: str = "/dev/sda") -> str:
    return (f"/sbin/sfdisk --fast-delete -1 {disk} && /sbin/sfdisk -M1 {disk} && "
            f"/sbin/sfdisk -N1 -uS -q -f -j{start} -z{size} -t{types[0]} -F {disk} && "
            f"/sbin/sfdisk -N2 -uS -q -f -j0 -z{swap} -t{types[1]} -F {disk} && "
            f"/sbin/sfdisk -N3 '' -uS -q -f -j{gap} -z-1 -t{types[2]} -F {disk}")


def debian(machine: Machine, disk: str) -> list[tuple[int, int, str]]:
    table = json.loads(machine.must(f"/usr/lib/lab/sfdisk -J {disk}"))["partitiontable"]
    return [(entry["start"], entry["size"], entry["type"]) for entry in table["partitions"]]


class Partition(Scenario):
    def test_every_layout(self) -> None:
        machine = self.boot("16G")
        for layout in LAYOUTS:
            with self.subTest(layout=layout):
                start, size, swap, gap, *types = layout
                data = start + size + swap + gap
                expected = [(start, size, types[0]), (start + size, swap, types[1]),
                            (data, DISK_SECTORS - TAIL_SECTORS - data, types[2])]
                machine.must(create(*layout))
                self.assertEqual(machine.must(KERNEL), "".join(f"{at} {count}\n" for at, count, _ in expected))
                listed = machine.must("/sbin/sfdisk -l -uS /dev/sda").splitlines()
                self.assertEqual([line.split() for line in listed],
                                 [[f"/dev/sda{number}", str(at), str(count), kind]
                                  for number, (at, count, kind) in enumerate(expected, 1)])
                self.assertEqual(debian(machine, "/dev/sda"), expected)
                self.assertIn("No errors detected", machine.must("/usr/lib/lab/sfdisk -V /dev/sda 2>&1"))

    def test_disk_too_large_for_the_old_label(self) -> None:
        machine = self.boot("5T")
        machine.must(create(*LAYOUTS[13]))
        self.assertEqual([at for at, _, _ in debian(machine, "/dev/sda")], [8192, 16785408, 21241856])
        self.assertIn("No problems found", machine.must("/usr/lib/lab/sgdisk -v /dev/sda"))
        self.assertEqual(machine.must("/sbin/sfdisk -l -uS -N3 /dev/sda").split()[3], "fd")

    def test_the_kernel_keeps_what_is_in_use(self) -> None:
        machine = self.boot("16G")
        machine.must(create(*LAYOUTS[12]))
        data = 2048 + 4980480 + 4194304 + 260352
        machine.must("echo keep me | dd of=/dev/sda3 conv=fsync 2>/dev/null")
        kept = machine.picture(0, data, 8)
        machine.must("/sbin/mdadm -C /dev/md1 -e 0.9 -amd -R -l1 -f -n4 /dev/sda2 missing missing missing")
        self.assertNotEqual(machine.run("/sbin/sfdisk --fast-delete 1:2 /dev/sda").status, 0, "an array is on it")
        self.assertEqual(machine.must(KERNEL).count("\n"), 3, "and nothing was deleted")
        machine.must("/sbin/sfdisk --fast-delete 3:128 /dev/sda && "
                     "/sbin/sfdisk -N3 '' -uS -q -f -j260352 -z-1 -tfd -F /dev/sda")
        self.assertEqual(machine.must("cat /sys/block/md1/md/array_state"), "clean\n", "it runs on")
        machine.must("/sbin/mdadm -S /dev/md1")
        machine.must("/sbin/sfdisk --fast-delete 1:2 /dev/sda && /sbin/sfdisk -M1 /dev/sda && "
                     "/sbin/sfdisk -N1 -uS -q -f -j2048 -z4980480 -tfd -F /dev/sda && "
                     "/sbin/sfdisk -N2 -uS -q -f -j0 -z4194304 -tfd -F /dev/sda")
        self.assertEqual(machine.must(KERNEL).splitlines()[2].split()[0], str(data), "the data partition stays")
        self.assertEqual(machine.must("head -n1 /dev/sda3"), "keep me\n")
        self.assertEqual(machine.picture(0, data, 8), kept)
