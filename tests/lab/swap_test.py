"""Swap on its array and in compressed memory, started and stopped as scripts do."""

import json

from lab.machine import Machine
from scenario import Scenario

ARRAY = "/sbin/mdadm -C /dev/md1 -e 0.9 -amd -R -l1  -n4 /dev/sda2 /dev/sdb2   missing missing> /dev/null 2>&1"


def swaps(machine: Machine) -> dict[str, int]:
    """The devices in use and their priorities."""
    lines = machine.must("cat /proc/swaps").splitlines()[1:]
    return {line.split()[0]: int(line.split()[4]) for line in lines}


def identity(machine: Machine) -> str:
    """What mkswap gave the device."""
    return machine.must("blkid -o value -s UUID /dev/md1")


class Swap(Scenario):
    def test_started_and_stopped_twice(self) -> None:
        machine = self.boot("160M", "160M")
        for disk in ("sda", "sdb"):
            machine.must(f"/usr/lib/lab/sfdisk -q /dev/{disk}", stdin=b"label: dos\n,64M,fd\n,32M,fd\n,,fd\n")
        machine.must(ARRAY)
        machine.must("/sbin/mdadm -S /dev/md1")
        for _ in range(2):
            machine.must("norv_swap_ctl --start")
            self.assertEqual(list(swaps(machine)), ["/dev/md1"])
            self.assertIn("sda2[0]", machine.must("cat /proc/mdstat"))
            self.assertEqual(json.loads(machine.must("cat /tmp/norv_swap_status.json")), {"state": "Ready"})
            made = identity(machine)
            machine.must("norv_swap_ctl --start")
            self.assertEqual(identity(machine), made, "it was made anew")
            self.assertEqual(machine.must("cat /proc/sys/kernel/norv_swap_flag"), "0\n")

            for _ in range(2):
                machine.must("norv_swap_ctl --stop")
                self.assertEqual(swaps(machine), {})
                self.assertNotIn("md1", machine.must("cat /proc/mdstat"))
                self.assertEqual(json.loads(machine.must("cat /tmp/norv_swap_status.json")), {"state": "None"})
        flags = [line.split()[-1] for line in machine.transcript() if "norv_swap_flag" in line]
        self.assertEqual(flags, ["1", "0"] * 4, "on for each change, and off again")

    def test_compressed_memory(self) -> None:
        machine = self.boot()  # without a disk there is no array to assemble
        memory = int(machine.must("grep MemTotal /proc/meminfo").split()[1]) * 1024
        cores = machine.run("grep -m1 'cpu cores' /proc/cpuinfo").out.rpartition(":")[2]
        count = int(cores) if cores else int(machine.must("grep -c processor /proc/cpuinfo"))
        machine.must(f"for i in $(seq 2 {count}); do cat /sys/class/zram-control/hot_add; done")
        size = str(((memory * 60 // 100 // count >> 20) + 1) << 20) + "\n"

        machine.must("norv_swap_ctl --start")
        self.assertEqual(swaps(machine), {}, "nobody asked for it")
        machine.must("echo 'enable_zram=\"yes\"' >>/etc/norvinfo.conf")
        for _ in range(2):
            machine.must("norv_swap_ctl --start && norv_swap_ctl --start")
            self.assertEqual(machine.must("cat /sys/block/zram*/disksize"), size * count)
            self.assertEqual(swaps(machine), {f"/dev/zram{index}": 1 for index in range(count)})
            machine.must("norv_swap_ctl --stop && norv_swap_ctl --stop")
            self.assertEqual(swaps(machine), {})
