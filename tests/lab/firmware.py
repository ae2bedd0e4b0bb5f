"""Verbs of scenarios that install the sample firmware without the web."""

from pathlib import Path

from lab.firmware import patch
from lab.machine import Machine
from raid import initsys

__all__ = ["install", "patch", "status"]


def install(machine: Machine, path: Path) -> None:
    """Puts a patch on new system arrays of the disks that are known, as an install does behind its format."""
    assert initsys(machine) == 0
    machine.must("mke2fs -q -t ext4 /dev/md0 && mkdir -p /tmpData && mount /dev/md0 /tmpData", timeout=300)
    machine.put(path, "/tmpData/sample.pat")
    machine.must("norvupgrade --patch /tmpData/sample.pat /tmpData", timeout=300)
    machine.must("umount /tmpData")


def status(machine: Machine) -> str:
    """The word for what the disks hold, looked up anew."""
    machine.must("rm -f /tmp/root_info.cache /tmp/disk_sysinfo")
    return machine.must("norvupgrade --check-system", timeout=300)
