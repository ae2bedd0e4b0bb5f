"""The road of one install, as small steps: find the appliance, set its network, install, start what was installed.

An appliance stands on a bridge, where its client and its update server are, too. `demo`, tests and power cuts go these
steps in their own order.
"""

import json
import re
import socket
import subprocess
import time
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from lab import feed
from lab.agent import GuestLost
from lab.bridge import Bridge
from lab.disks import Disk
from lab.emulator import Settings
from lab.firmware import BUILD
from lab.image import SOURCE, Image
from lab.installer import Installer
from lab.machine import Machine, wait_for
from lab.packages import LabError

NORVFIND = BUILD / "tools/norvfind/norvfind"
WORDS = {2: "not_install", 3: "updating", 4: "sys_crash", 9: "mem_testing", 11: "sys_recoverable", 14: "sys_migrat"}
_BANNER = r"^(\S+) runs 7\.2-(\S+)"
BAYS = 4
PATIENCE = 300.0  # seconds for what takes a few on an idle machine
_DAEMONS = "findhostd,ncemd"
_FIND_SECONDS = 10
_DATA = "all that one has"


@dataclass
class Appliance:
    machine: Machine
    bridge: Bridge
    address: str
    hostname: str
    boot: str = "disks"  # what it was switched on with

    def __post_init__(self) -> None:
        self.web = Installer(self.machine, self._connect)

    @property
    def mac(self) -> str:
        return self.machine.settings.mac(0)

    def _connect(self) -> socket.socket:
        client = self.bridge.tcp()
        client.settimeout(PATIENCE)
        client.connect((self.address, 80))
        return client


def create(folder: Path, bridge: Bridge, disks: Sequence[Disk], *, number: int = 1, hostname: str = "lab-nas",
           model: Mapping[str, str] | None = None, flash: Path | None = None, **settings: Any) -> Appliance:
    """Makes an appliance, switched off, on port `number` - 1 of the bridge. Its update server is that of lab.feed.

    model: values for its description, in the place of the usual ones; flash: what its boot flash holds.
    """
    bays = (1 << len(disks)) - 1
    everything = [*disks, Disk(image=str(flash), flash=True)] if flash else list(disks)
    machine = Machine.create(folder, Settings(disks=everything, number=number, tap=f"tap{number - 1}", net="none",
                                              start=_DAEMONS, **settings))
    path = "etc.defaults/norvinfo.conf"
    conf = (SOURCE / "lab/guest" / path).read_text()
    own = {"internalportcfg": hex(bays), "maxdisks": str(max(BAYS, len(disks))), "rss_server_ssl": feed.URL}
    for key, value in (own | dict(model or {})).items():
        conf = re.sub(f"^{key}=.*\n", "", conf, flags=re.MULTILINE) + f'{key}="{value}"\n'
    overlay = folder / "overlay" / path
    overlay.parent.mkdir(parents=True)
    overlay.write_text(conf)
    return Appliance(machine, bridge, f"10.77.0.{number + 1}", hostname)


def switch_on(one: Appliance, boot: str = "disks") -> None:
    """Switches an appliance on and waits until its system in flash is up."""
    power_on(one, boot)
    one.machine.wait_ready(PATIENCE)


def power_on(one: Appliance, boot: str) -> None:
    """The same without the wait."""
    one.boot = boot
    one.machine.start(image=Image.existing(), within=one.bridge.within, boot=boot)


def norvfind(one: Appliance, verb: str, *options: str, seconds: float = _FIND_SECONDS) -> dict[str, Any] | None:
    """Asks the discovery client for this one appliance. None when it does not answer; LabError for other failures."""
    command = [*one.bridge.within, str(NORVFIND), verb, one.mac, "--json", "--interface", "br0", "--seconds",
               f"{seconds:.0f}", *options]
    done = subprocess.run(command, text=True, capture_output=True, timeout=seconds + 60)
    if done.returncode == 1:
        return None
    if done.returncode != 0:
        raise LabError(f"norvfind {verb} ended with {done.returncode}: {(done.stdout + done.stderr).strip()[-300:]}")
    known: list[dict[str, Any]] = json.JSONDecoder().raw_decode(done.stdout)[0]
    return known[0]


def find(one: Appliance, seconds: float = PATIENCE) -> dict[str, Any]:
    """What the appliance says of itself on the segment. Its daemon may still be starting, and asking is repeated.

    Who asks from one address at least every second is not answered, so the repeats are further apart.
    """
    deadline = time.monotonic() + seconds
    patience = 2
    while (told := norvfind(one, "show", seconds=patience)) is None:
        if time.monotonic() > deadline:
            raise TimeoutError(f"{one.mac} did not answer in {seconds:.0f} seconds")
        patience = min(patience * 2, _FIND_SECONDS)
    return told


def set_network(one: Appliance) -> dict[str, Any]:
    """Gives the appliance its address and host name, sealed to its key, and waits until it takes requests there."""
    told = norvfind(one, "set", "--ip", f"{one.address}/24", "--gateway", one.bridge.ADDRESS, "--hostname",
                    one.hostname, seconds=PATIENCE)
    if told is None:
        raise LabError("no sealed answer came")
    wait_for(one.web.is_idle, PATIENCE, f"{one.address} to take requests")
    return told


def configuration(one: Appliance) -> dict[str, str]:
    """The fields of the install form."""
    return {"hostname": one.hostname, "account": "keeper", "password": "open sesame", "netconfig": "manual",
            "manual_ip": one.address, "manual_mask": "255.255.255.0", "manual_gateway": one.bridge.ADDRESS,
            "manual_dns": one.bridge.ADDRESS}


def install(one: Appliance, way: str, status: str, patch: Path,
            on_stage: Callable[[str], object] = lambda stage: None) -> dict[str, Any]:
    """An install by one of the ways that a patch can come: upload, download, builtin. See Installer.install."""
    fields = configuration(one)
    if way == "upload":
        return one.web.install(status, fields, patch, on_stage=on_stage)
    if way == "builtin":
        return one.web.install(status, fields | {"buildin": "true"}, on_stage=on_stage)
    with feed.served(one.bridge, patch):
        return one.web.install(status, fields, on_stage=on_stage)


def flash_version(one: Appliance) -> str:
    """The build number of what the boot flash holds, which is whole."""
    look = ("mkdir -p /run/flash && mount -o ro /dev/norvboot2 /run/flash && norvchecksum /run/flash && "
            "sed -n 's/^buildnumber=\"\\(.*\\)\"/\\1/p' /run/flash/VERSION; umount /run/flash")
    return one.machine.must(look, timeout=PATIENCE).strip()


def reboot(one: Appliance) -> str:
    """Restarts the machine, and waits for the system on its disks, whose banner is the result."""
    if one.boot == "disks":
        before = len(one.machine.console())
        wait_for(one.web.is_idle, PATIENCE, "the install to end")
        one.web.restart()
        return wait_banner(one, before)
    one.machine.stop(PATIENCE)
    power_on(one, "disks")
    return wait_banner(one)


def wait_banner(one: Appliance, before: int = 0) -> str:
    """Waits until the system that is installed on the disks has come up: host name and version.

    before: how much the console had said already.
    """
    def banner() -> re.Match[str] | None:
        if not one.machine.runs:
            raise GuestLost("the machine ended")
        return re.search(_BANNER, one.machine.console()[before:], re.MULTILINE)

    return wait_for(banner, PATIENCE, "the installed system's banner on the console")[0].strip()


def check_system(one: Appliance) -> str:
    """The word of the upgrade tool for what the disks hold."""
    return one.machine.must("norvupgrade --check-system", timeout=PATIENCE)


def data_make(machine: Machine) -> None:
    """Makes a data volume on the first disk, as the installed system does, with a file on it."""
    machine.must("sfdisk -N3 -uS -q -f -j262144 -z-1 -tfd -F /dev/sda && "
                 "mdadm -q -C /dev/md2 -amd -R -l1 -f -n1 /dev/sda3 && mke2fs -q -t ext4 /dev/md2 && "
                 f"mount /dev/md2 /mnt && echo '{_DATA}' >/mnt/file && umount /mnt && mdadm -q -S /dev/md2 && sync",
                 timeout=PATIENCE)


def data_is_kept(machine: Machine) -> bool:
    """Whether that file is there still, and its file system in order without a repair."""
    look = ("mdadm -q -A -R /dev/md2 /dev/sda3 && e2fsck -fn /dev/md2 >/dev/null && mount -o ro /dev/md2 /mnt && "
            "cat /mnt/file; umount /mnt; mdadm -q -S /dev/md2")
    return machine.run(look, timeout=PATIENCE).out == f"{_DATA}\n"
