"""The emulator: what hardware a machine has, told as a command line, and the life of the process.

All paths on the command line are relative: the process works in the machine's folder. It holds a lock on the file
`lock` there for as long as it lives, so that its number in `pid` is good exactly while that lock is held.
"""

import contextlib
import fcntl
import os
import shutil
import signal
import subprocess
import time
from collections.abc import Sequence
from dataclasses import dataclass, field
from pathlib import Path

from lab import agent
from lab.agent import GuestLost
from lab.disks import Disk
from lab.image import Image
from lab.kernel import Kernel
from lab.packages import LabError, cache
from lab.qmp import Qmp

PROGRAM = "qemu-system-x86_64"
# A PC without the parts that nobody here needs: probing them is a third of the boot.
_PC = ["-machine", "q35,sata=off,smbus=off,i8042=off,hpet=off", "-global", "virtio-pci.disable-legacy=on"]
_PROBE_SECONDS = 5
_START_SECONDS = 30
_STOP_SECONDS = 10


@dataclass(frozen=True)
class Settings:
    """A machine's hardware. What has to outlive the process is in the machine's folder."""

    disks: list[Disk] = field(default_factory=list)  # in the bays from 0 on
    bays: int = 4  # at least as many as there are disks
    saves: bool = False  # states can be saved and restored; the disks are qcow2 files then
    ports: int = 1  # network ports
    number: int = 1  # tells machines on one network apart: the last byte but one of their MACs
    tap: str = ""  # a network device in the emulator's own namespace, in the place of user-mode networking
    memory_mb: int = 512
    net: str = "dhcp"  # what the guest does with its ports at boot: dhcp or none
    boot: str = ""  # what becomes of a system on the disks: nothing; flash: its arrays run; disks: it is started
    start: str = ""  # daemons that the guest starts at boot, with commas between them
    append: str = ""  # more words for the kernel

    def disk_file(self, bay: int) -> str:
        return f"disk{bay}." + ("qcow2" if self.saves else "raw")

    def mac(self, port: int) -> str:
        return f"02:4e:56:00:{self.number:02x}:{port:02x}"


def available() -> bool:
    return shutil.which(PROGRAM) is not None


def accelerators() -> list[str]:
    """What to run guests with, best first. Hardware virtualisation may be offered and yet hang: it is tried once."""
    wanted = os.environ.get("NORV_LAB_ACCEL", "")
    if wanted:
        return [wanted]
    if not os.access("/dev/kvm", os.R_OK | os.W_OK):
        return ["tcg"]
    boot = Path("/proc/sys/kernel/random/boot_id").read_text().strip()
    verdict = cache() / f"kvm-{boot}"
    if not verdict.exists():
        verdict.write_text("works" if _kvm_works() else "hangs")
    return ["kvm", "tcg"] if verdict.read_text() == "works" else ["tcg"]


def _kvm_works() -> bool:
    """Starts a kernel that finds no root file system, panics and resets, which ends the emulator."""
    command = [PROGRAM, "-accel", "kvm", "-nodefaults", "-no-user-config", "-display", "none", "-m", "256",
               "-no-reboot", "-kernel", str(Kernel.fetched().image), "-append", "panic=-1 quiet"]
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, timeout=_PROBE_SECONDS)
        return done.returncode == 0
    except subprocess.TimeoutExpired:
        return False


def command_line(settings: Settings, image: Image, initrd: Path, plugged: Sequence[int], paused: bool) -> list[str]:
    """The whole command. plugged: bays that have a disk in; paused: the machine waits for a state to be restored."""
    words = ["console=ttyS0", "quiet", "panic=-1", "mitigations=off", "nokaslr", "random.trust_cpu=on",
             "cryptomgr.notests", "audit=0", "no_timer_check", "net.ifnames=0",
             f"lab_net={settings.net}", f"lab_boot={settings.boot}", f"lab_start={settings.start}", settings.append]
    command = [
        PROGRAM, "-nodefaults", "-no-user-config", "-display", "none", *_PC, "-cpu", "Nehalem,+rdrand", "-smp", "2",
        "-m", str(settings.memory_mb), "-kernel", str(image.kernel.image), "-initrd", str(initrd),
        "-append", " ".join(words).strip(), "-serial", "file:console.log", "-qmp", "unix:qmp,server=on,wait=off",
    ]
    for accelerator in accelerators():
        command += ["-accel", "tcg,thread=multi,tb-size=128" if accelerator == "tcg" else accelerator]
    command += _serial_ports() + _network(settings)
    for bay in range(max(settings.bays, len(settings.disks))):
        command += ["-device", f"virtio-scsi-pci,id=bay{bay},addr={0x10 + bay // 8:#x}.{bay % 8}" +
                    (",multifunction=on" if bay % 8 == 0 else "")]
    for bay in range(len(settings.disks)):
        command += _disk_nodes(settings, bay)
        if bay in plugged:
            command += ["-device", ",".join(f"{key}={value}" for key, value in disk_device(settings, bay).items())]
    if settings.saves:
        command += ["-blockdev", "driver=file,filename=state.qcow2,node-name=state-file",
                    "-blockdev", "driver=qcow2,file=state-file,node-name=state"]
    if paused:
        command += ["-S"]
    return command


def _serial_ports() -> list[str]:
    command = ["-device", "virtio-serial-pci,addr=0x4", "-chardev", "file,id=log,path=guest.log,append=on",
               "-device", "virtserialport,chardev=log,name=lab.log"]
    for number in range(agent.PORTS):
        command += ["-chardev", f"socket,id=agent{number},path=agent{number},server=on,wait=off",
                    "-device", f"virtserialport,chardev=agent{number},name=lab.{number}"]
    return command


def _network(settings: Settings) -> list[str]:
    """Each port is on a hub with a Unix datagram socket that carries every frame; the first also has a way out."""
    command: list[str] = []
    for port in range(settings.ports):
        command += ["-netdev", f"hubport,id=port{port},hubid={port}",
                    "-device", f"virtio-net-pci,id=eth{port},netdev=port{port},mac={settings.mac(port)},"
                               f"addr={0x8 + port:#x}",
                    "-netdev", f"dgram,id=wire{port},local.type=unix,local.path=wire{port},"
                               f"remote.type=unix,remote.path=wire{port}.host",
                    "-netdev", f"hubport,id=hub-wire{port},hubid={port},netdev=wire{port}"]
    if settings.ports > 0 and settings.tap:
        command += ["-netdev", f"tap,id=way,ifname={settings.tap},script=no,downscript=no"]
    elif settings.ports > 0:
        command += ["-netdev", "user,id=way,restrict=on,hostfwd=tcp:127.0.0.1:0-:80"]
    if settings.ports > 0:
        command += ["-netdev", "hubport,id=hub-way,hubid=0,netdev=way"]
    return command


def _disk_nodes(settings: Settings, bay: int) -> list[str]:
    """Three nodes: the file, its format, and on top one whose place below can be changed while the machine runs."""
    name = settings.disk_file(bay)
    form = "qcow2" if settings.saves else "raw"
    return ["-blockdev", f"driver=file,filename={name},node-name=disk{bay}-file,discard=unmap",
            "-blockdev", f"driver={form},file=disk{bay}-file,node-name=disk{bay}-image,discard=unmap",
            "-blockdev", f"driver=raw,file=disk{bay}-image,node-name=disk{bay},discard=unmap"]


def disk_device(settings: Settings, bay: int) -> dict[str, str]:
    disk = settings.disks[bay]
    return {"driver": "scsi-hd", "id": f"disk{bay}", "drive": f"disk{bay}", "bus": f"bay{bay}.0",
            "vendor": "NORVLAB", "product": "FLASH" if disk.flash else "SSD" if disk.ssd else "DISK", "ver": "1.00",
            "serial": disk.serial or f"LAB{settings.number:02d}{bay:02d}",
            "wwn": f"{0x5000000000000000 + settings.number * 256 + bay:#x}",
            "rotation_rate": "1" if disk.ssd else "7200"}


def _lock(folder: Path, how: int) -> int | None:
    """A descriptor of the machine's lock, which the caller closes; None when the machine runs."""
    descriptor = os.open(folder / "lock", os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644)
    try:
        fcntl.flock(descriptor, how | fcntl.LOCK_NB)
    except BlockingIOError:
        os.close(descriptor)
        return None
    return descriptor


def runs(folder: Path) -> bool:
    lock = _lock(folder, fcntl.LOCK_SH)
    if lock is not None:
        os.close(lock)
    return lock is None


def start(folder: Path, command: Sequence[str], stay: bool) -> None:
    """Starts the process and returns when its sockets are there. Unless it may `stay`, it ends with our own process."""
    deadline = time.monotonic() + _START_SECONDS
    while (lock := _lock(folder, fcntl.LOCK_EX)) is None:
        if (folder / "pid").exists() or time.monotonic() > deadline:
            raise LabError("the machine runs already")
        time.sleep(0.01)  # somebody only looked whether it runs
    try:
        leash = [] if stay else ["setpriv", "--pdeathsig", "KILL", "--"]
        (folder / "qmp").unlink(missing_ok=True)
        with open(folder / "emulator.log", "wb") as log:
            process = subprocess.Popen([*leash, *command], cwd=folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                       start_new_session=True, pass_fds=(lock,))
    finally:
        os.close(lock)  # the process has it
    (folder / "pid").write_text(str(process.pid))
    while not _answers(folder):
        if process.poll() is not None or time.monotonic() > deadline:
            process.kill()
            process.wait()
            raise LabError(f"the emulator did not start:\n{(folder / 'emulator.log').read_text()}")
        time.sleep(0.01)
    process.returncode = 0  # from here on it is known by its number only, and may be ended from another process


def _answers(folder: Path) -> bool:
    """Whether the process has come to its main loop, which means that all its sockets are there."""
    if not (folder / "qmp").exists():
        return False
    try:
        with Qmp(folder) as qmp:
            qmp.do("query-status")
    except GuestLost:
        return False
    return True


def kill(folder: Path) -> None:
    """Ends the process at once, as when the power goes. Nothing happens when it does not run."""
    if runs(folder):
        with contextlib.suppress(ProcessLookupError, FileNotFoundError):
            os.kill(int((folder / "pid").read_text()), signal.SIGKILL)
    wait_end(folder, _STOP_SECONDS)


def wait_end(folder: Path, seconds: float) -> None:
    """Waits until the process has ended; TimeoutError when it has not in time."""
    deadline = time.monotonic() + seconds
    while runs(folder):
        if time.monotonic() > deadline:
            raise TimeoutError("the machine did not end")
        time.sleep(0.01)
    with contextlib.suppress(FileNotFoundError):
        with contextlib.suppress(ChildProcessError):
            os.waitpid(int((folder / "pid").read_text()), 0)
        (folder / "pid").unlink()
