"""What is foreseen for disks, held against what an installation then does to them."""

import json
from typing import Any

from lab.machine import Machine
from raid import BLANK, array, exhibits, initsys, partitions, see_bays, stop
from scenario import Scenario

LAYOUTS = ("layout-7-raid", "layout-8-raid", "layout-6-raid", "layout-3")


def system_members(machine: Machine) -> list[dict[str, str]]:
    """The disks in each system array, by place."""
    return [{slot.removeprefix("slot"): member.rstrip("0123456789") for slot, member in array(machine, name).items()
             if slot.startswith("slot")} for name in ("md0", "md1")]


class Plan(Scenario):
    def assert_foreseen(self, machine: Machine, *bays: int) -> list[dict[str, Any]]:
        """Makes the system on these bays' disks. Returns what was foreseen for each."""
        see_bays(machine, *bays)
        pictures = [machine.picture(bay) for bay in bays]
        told = machine.run("norv-plan --json")
        machine.must("sync")
        self.assertEqual([machine.picture(bay) for bay in bays], pictures, "asking changes nothing")
        plan = json.loads(told.out)
        self.assertEqual([disk["bay"] - 1 for disk in plan["disks"]], list(bays))
        kept = {(disk["disk"], part["number"]): machine.picture(bay, part["start"], part["sectors"])
                for disk, bay in zip(plan["disks"], bays) for part in disk["partitions"] if part["kept"]}
        self.assertEqual(initsys(machine), told.status)
        places = {str(disk["place"]): disk["disk"] for disk in plan["disks"] if disk["place"] is not None}
        self.assertEqual(told.status, 0 if places else 1)
        if places:
            self.assertEqual(system_members(machine), [places, places])
            self.assertEqual(array(machine, "md0")["raid_disks"], str(len(places) + len(plan["free_places"])))
        stop(machine)
        for disk, bay, picture in zip(plan["disks"], bays, pictures):
            name, made = disk["disk"], disk["formatted"] and not disk["obstacle"]
            after = partitions(machine, name)
            with self.subTest(disk=name, foreseen=disk):
                expected = {f"{name}{part['number']}" for part in disk["partitions"] if part["kept"]}
                if disk["obstacle"] is None:
                    self.assertEqual(set(after), expected | ({f"{name}1", f"{name}2"} if made else set()))
                else:
                    self.assertLess(len(after.keys() - expected), 2, "not both of the system partitions")
                if not disk["formatted"]:
                    self.assertEqual(machine.picture(bay), picture, "not a byte")
                for part in disk["partitions"]:
                    if part["kept"]:
                        where = (part["start"], part["sectors"])
                        self.assertEqual(after[f"{name}{part['number']}"], where)
                        self.assertEqual(machine.picture(bay, *where), kept[name, part["number"]], "byte for byte")
        return plan["disks"]

    def test_forecast_comes_true(self) -> None:
        machine = self.boot(*exhibits(self.folder, *LAYOUTS), BLANK, "4G")
        for disk in "abcd":
            machine.must(f"mdadm -C /dev/md2 -amd -R -l1 -f -n1 /dev/sd{disk}3 && mke2fs -q -t ext4 /dev/md2")
            stop(machine)
        cases = (
            ((0, 1, 2, 3, 4, 5), "same-layout same-layout other-layout-used no-layout no-system-partitions "
                                 "no-system-partitions"),
            ((2,), "same-layout"),
            ((3,), "no-layout"),
            ((5,), "no-layout"),  # half of its system partitions were made
            ((0, 1, 2, 4), "same-layout same-layout other-layout-used same-layout"),
        )
        for bays, expected in cases:
            with self.subTest(bays=bays):
                self.assertEqual([disk["reason"] for disk in self.assert_foreseen(machine, *bays)],
                                 expected.split())

    def test_more_disks_than_places(self) -> None:
        machine = self.boot(BLANK, BLANK, BLANK)
        machine.must("echo 'max_sys_raid_disks=\"2\"' >>/etc.defaults/norvinfo.conf")
        self.assertEqual([disk["place"] for disk in self.assert_foreseen(machine, 0, 1, 2)], [0, 1, None])
        self.assertEqual(machine.run("mdadm -E /dev/sdc1").status, 1, "its metadata is wiped")
