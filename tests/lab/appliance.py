"""Scenarios of whole appliances on a segment, and what they do to them beside the roads of lab.road."""

from pathlib import Path
from typing import Any

from lab import firmware, road
from lab.bridge import Bridge, usable
from lab.disks import Disk
from lab.machine import Machine
from lab.road import Appliance
from scenario import Scenario

DISK = "12G"  # the system takes ten, so that a data volume is small


class OnABridge(Scenario):
    bridge: Bridge

    def setUp(self) -> None:
        super().setUp()
        if not usable():
            self.skipTest("this machine has no tap devices for us")
        self.bridge = self.enterContext(Bridge(2))

    def appliance(self, *disks: str, number: int = 1, flash: Path | None = None, **settings: Any) -> Appliance:
        """One that is up; it has no address yet."""
        one = road.create(self.folder / f"at{number}", self.bridge, [Disk.parse(text) for text in disks], number=number,
                          hostname=f"lab-nas{number}", flash=flash, **settings)
        self.addCleanup(one.machine.cut)
        road.switch_on(one)
        return one

    def refresh(self, one: Appliance) -> str:
        """The word for what the disks hold, looked up anew."""
        one.machine.must("rm -f /tmp/root_info.cache /tmp/disk_sysinfo")
        return road.check_system(one)

    def patch(self, *pairs: str) -> Path:
        return firmware.patch(self.folder, *pairs)

    def assert_in_order(self, seen: list[str], order: tuple[str, ...]) -> None:
        """Stages that were seen while polling: none is foreign, none is out of order; a short one may be missed."""
        self.assertEqual(seen, [stage for stage in order if stage in seen])
        self.assertEqual(seen[-1:], list(order[-1:]))


def conf_set(machine: Machine, **values: str) -> None:
    """Changes the model's description, as if it had been made so."""
    for key, value in values.items():
        machine.must(f"sed -i '/^{key}=/d' /etc.defaults/norvinfo.conf && "
                     f"echo '{key}=\"{value}\"' >>/etc.defaults/norvinfo.conf")


def on_system(machine: Machine, line: str) -> str:
    """Runs a line in the root of the system on the disks."""
    return machine.must(f"mount /dev/md0 /mnt && (cd /mnt && {line}); status=$?; umount /mnt; exit $status")
