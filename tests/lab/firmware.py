"""The sample firmware as patches, and the verbs of scenarios that install it."""

import subprocess
import sys
from pathlib import Path

from lab.image import SOURCE
from lab.machine import Machine
from raid import initsys

MAKER = SOURCE / "tools/sample-firmware/make_firmware.py"
_BUILD = SOURCE / "build/release"
_BUILDER = _BUILD / "tools/norv-patch/norv-patch"


def patch(folder: Path, *pairs: str, options: tuple[str, ...] = ()) -> Path:
    """Makes a patch for the lab's model, with these values in its VERSION; `options` are those of norv-patch."""
    firmware, path = folder / "firmware", folder / "sample.pat"
    subprocess.run([sys.executable, MAKER, firmware, *pairs], check=True)
    subprocess.run([_BUILDER, "make", firmware, path, "--keys", _BUILD / "keys", *options], check=True)
    return path


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
