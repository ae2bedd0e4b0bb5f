"""The verbs of scenarios about arrays."""

import subprocess
import sys
from pathlib import Path

from lab.image import SOURCE
from lab.machine import Machine
from scenario import Scenario

BLANK = "24G"  # sparse; room for every layout


def see_bays(machine: Machine, *bays: int) -> None:
    """Lets the system know of these bays alone."""
    mask = sum(1 << bay for bay in bays)
    machine.must(f"sed -i 's/^internalportcfg=.*/internalportcfg=\"{mask:#x}\"/' /etc.defaults/norvinfo.conf")


def stop(machine: Machine) -> None:
    """Stops every array and waits until its members are free."""
    machine.must("for m in /sys/block/md*; do [ -e $m ] && mdadm -q -S /dev/${m##*/}; done; sync")


def array(machine: Machine, name: str) -> dict[str, str]:
    """What the kernel says of an array: its facts, and its members by slot."""
    facts = machine.must(f"cd /sys/block/{name}/md && for f in level raid_disks metadata_version array_state; do "
                         "echo $f $(cat $f); done; for d in dev-*; do echo slot$(cat $d/slot) ${d#dev-}; done")
    return dict(line.split(" ", 1) for line in facts.splitlines())


def partitions(machine: Machine, disk: str) -> dict[str, tuple[int, int]]:
    """Start and size of each partition of a disk, as the kernel has them."""
    listed = machine.must(f"cd /sys/block/{disk} && for p in {disk}*; do [ -e $p ] && "
                          "echo $p $(cat $p/start $p/size); done; true")
    return {name: (int(start), int(size)) for name, start, size in map(str.split, listed.splitlines())}


def initsys(machine: Machine) -> int:
    return machine.run("raidtool initsys", timeout=300).status


def seconds(machine: Machine, line: str) -> float:
    """Runs a line that must succeed, and tells how long it took by the guest's clock."""
    told = machine.must(f"cut -d' ' -f1 /proc/uptime; {line} >/dev/null && cut -d' ' -f1 /proc/uptime", timeout=300)
    begin, end = map(float, told.split())
    return end - begin


def assert_system_arrays(case: Scenario, machine: Machine, *disks: str) -> None:
    """The two mirrors of the system have these disks in their first places, and the other places are free."""
    for number in (0, 1):
        told = array(machine, f"md{number}")
        told.pop("array_state")
        slots = {f"slot{slot}": f"{disk}{number + 1}" for slot, disk in enumerate(disks)}
        case.assertEqual(told, {"level": "raid1", "raid_disks": "4", "metadata_version": "0.90", **slots})


def exhibits(folder: Path, *names: str) -> list[str]:
    """Makes disks of the museum in a folder. Returns the words for `boot`."""
    make = [sys.executable, str(SOURCE / "tests/museum/make_images.py"), str(folder), *names]
    subprocess.run(make, check=True, stdout=subprocess.DEVNULL)
    return [f"image={folder / name}" for name in names]
