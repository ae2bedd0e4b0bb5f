"""One machine of the lab and all that can be done to it: the verbs of scenarios, of the demo, and of lab/vm.

All that a machine has lies in one folder: its settings, its disks, the logs, and the sockets of the process while it
runs. Machines in different folders do not know of each other.
"""

import contextlib
import dataclasses
import json
import os
import re
import shutil
import sys
import tempfile
import time
from collections.abc import Callable, Iterable, Sequence
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import TypeVar

from lab import agent, emulator
from lab.archive import Archive
from lab.disks import Disk, picture
from lab.emulator import Settings
from lab.image import Image
from lab.packages import LabError
from lab.qmp import Qmp

T = TypeVar("T")

BOOT_SECONDS = 60  # ten times what an idle machine takes
_COMMAND_SECONDS = 60


@dataclass(frozen=True)
class Result:
    """How a command in the guest ended. Bytes that are no UTF-8 come as surrogates, so that none is lost."""

    status: int  # minus the signal's number when a signal ended it
    out: str
    err: str


class Machine:
    """A machine that was created in `folder`."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        try:
            kept = json.loads((folder / "machine.json").read_text())
        except FileNotFoundError:
            raise LabError(f"there is no machine in {folder}") from None
        disks = [Disk(**disk) for disk in kept["settings"].pop("disks")]
        self.settings = Settings(disks=disks, **kept["settings"])
        self._plugged: set[int] = set(kept["plugged"])
        self._switch_on: Callable[[], None] | None = None  # how it was switched on last, from off

    @classmethod
    def create(cls, folder: Path, settings: Settings) -> "Machine":
        """Makes the folder, and the disks in it. The folder's parent must exist."""
        folder.mkdir()
        try:
            for bay, disk in enumerate(settings.disks):
                disk.create(folder / settings.disk_file(bay))
            if settings.saves:
                Disk(size=1 << 20).create(folder / "state.qcow2")
            kept = {"settings": dataclasses.asdict(settings), "plugged": list(range(len(settings.disks)))}
            (folder / "machine.json").write_text(json.dumps(kept, indent=1))
        except BaseException:
            shutil.rmtree(folder)  # nobody could use or remove it
            raise
        return cls(folder)

    def __enter__(self) -> "Machine":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.cut()

    # Life

    def start(self, *, image: Image | None = None, stay: bool = False, within: Sequence[str] = (),
              boot: str | None = None) -> None:
        """Switches the machine on. `stay`: it outlives our process. `within`: words before the emulator's command.

        boot: for this time in the place of what the settings say.
        Files in the machine's folder `overlay` lie over those of the image.
        """
        chosen = image or Image.existing()
        self._switch_on = lambda: self._start(chosen, stay, within, boot=boot)
        self._switch_on()

    def _start(self, image: Image, stay: bool, within: Sequence[str], *, boot: str | None = None,
               paused: bool = False) -> None:
        initrd = image.initrd
        overlay = self.folder / "overlay"
        if overlay.is_dir():
            initrd = self.folder / "initrd"
            shutil.copyfile(image.initrd, initrd)
            with open(initrd, "ab") as out:
                archive = Archive(out)
                archive.add_tree(overlay)
                archive.close()
        settings = self.settings if boot is None else dataclasses.replace(self.settings, boot=boot)
        command = emulator.command_line(settings, image, initrd, sorted(self._plugged), paused)
        emulator.start(self.folder, [*within, *command], stay)

    @property
    def runs(self) -> bool:
        return emulator.runs(self.folder)

    def wait_ready(self, seconds: float = BOOT_SECONDS) -> "Machine":
        """Waits until the guest has booted and takes commands.

        Emulation by software now and then loses a boot. A guest that does not come up is switched off and on again
        once, and where it stood is told.
        """
        try:
            agent.run(self.folder, ["true"], timeout=seconds)
        except TimeoutError:
            if self._switch_on is None:
                raise
            last = (self.folder / "console.log").read_text(errors="replace").splitlines()[-15:]
            print(f"{self.folder.name}: not ready after {seconds:.0f} s, so it is switched off and on again; it said:",
                  *last, sep="\n  ", file=sys.stderr)
            self.cut()
            self._switch_on()
            agent.run(self.folder, ["true"], timeout=max(seconds, BOOT_SECONDS))
        return self

    def boot(self) -> "Machine":
        """Switches the machine on and waits until it is ready."""
        self.start()
        return self.wait_ready()

    def cut(self) -> None:
        """Cuts the power. What the guest had not written to its disks is lost."""
        emulator.kill(self.folder)

    def stop(self, seconds: float = BOOT_SECONDS) -> None:
        """Shuts the guest down in order."""
        if self.runs:
            with contextlib.suppress(agent.GuestLost):  # it may be down before it can answer
                self.must("poweroff")
            emulator.wait_end(self.folder, seconds)

    def remove(self) -> None:
        """Cuts the power and throws everything away."""
        self.cut()
        shutil.rmtree(self.folder)

    # Commands and files

    def run(self, command: str | Sequence[str], *, stdin: bytes | int | None = None,
            timeout: float = _COMMAND_SECONDS) -> Result:
        """Runs a shell line, or a program with arguments, as root in the guest.

        stdin: bytes, or a descriptor that is read to its end.
        """
        out, err = bytearray(), bytearray()
        status = self.stream(command, out=out.extend, err=err.extend, stdin=stdin, timeout=timeout)
        return Result(status, out.decode(errors="surrogateescape"), err.decode(errors="surrogateescape"))

    def must(self, command: str | Sequence[str], *, stdin: bytes | int | None = None,
             timeout: float = _COMMAND_SECONDS) -> str:
        """Runs a command that must end with 0, and returns its output."""
        result = self.run(command, stdin=stdin, timeout=timeout)
        if result.status != 0:
            raise LabError(f"{command!r} in the guest ended with {result.status}:\n{result.out}{result.err}")
        return result.out

    def until(self, command: str, seconds: float = _COMMAND_SECONDS) -> None:
        """Runs a shell line again and again until it ends with 0."""
        wait_for(lambda: self.run(command).status == 0, seconds, f"{command!r} in the guest")

    def stream(self, command: str | Sequence[str], *, out: Callable[[bytes], object], err: Callable[[bytes], object],
               stdin: bytes | int | None = None, timeout: float = _COMMAND_SECONDS) -> int:
        """Runs a command and hands on its output as it comes. Returns the exit status."""
        arguments = ["/bin/sh", "-c", command] if isinstance(command, str) else command
        if not isinstance(stdin, bytes):
            return agent.run(self.folder, arguments, timeout=timeout, stdin=stdin, out=out, err=err)
        with tempfile.TemporaryFile(buffering=0) as file:
            file.write(stdin)
            file.seek(0)
            return agent.run(self.folder, arguments, timeout=timeout, stdin=file.fileno(), out=out, err=err)

    def put(self, source: Path | bytes, path: str, timeout: float = _COMMAND_SECONDS) -> None:
        """Puts a file of the host, with its mode, or bytes at a path in the guest, whose folder must exist."""
        if isinstance(source, bytes):
            self.must(["/bin/sh", "-c", 'cat >"$0"', path], stdin=source, timeout=timeout)
            return
        with open(source, "rb") as file:
            mode = f"{os.fstat(file.fileno()).st_mode & 0o7777:o}"
            write = ["/bin/sh", "-c", 'cat >"$0" && chmod "$1" "$0"', path, mode]
            self.must(write, stdin=file.fileno(), timeout=timeout)

    def get(self, path: str, target: Path, timeout: float = _COMMAND_SECONDS) -> None:
        """Gets a file of the guest."""
        err = bytearray()
        with open(target, "wb") as file:
            if self.stream(["cat", path], out=file.write, err=err.extend, timeout=timeout) != 0:
                raise LabError(err.decode(errors="replace").strip())

    # What the guest says

    def log(self) -> str:
        """The system log since the machine was created: lines of facility.priority, then what the program sent."""
        return (self.folder / "guest.log").read_text(errors="surrogateescape")

    def wait_log(self, pattern: str, seconds: float = _COMMAND_SECONDS) -> re.Match[str]:
        """Waits until the log holds this regular expression (^ and $ stand at lines)."""
        return wait_for(lambda: re.search(pattern, self.log(), re.MULTILINE), seconds, f"{pattern!r} in the log")

    def console(self) -> str:
        """What the kernel wrote to its console since the machine was started."""
        return (self.folder / "console.log").read_text(errors="replace")

    # The board

    def board(self, *lines: str) -> None:
        """Sets the board's state by lines of scenario text (docs/board.md)."""
        if self.run("cat >/dev/norvboard", stdin="".join(f"{line}\n" for line in lines).encode()).status != 0:
            raise LabError(self.transcript()[-1])

    def event(self, *codes: int) -> None:
        """Raises hardware events, one behind the other."""
        self.board("event " + " ".join(map(hex, codes)))

    def transcript(self) -> list[str]:
        """What was asked of the board since the machine was switched on, a line for each request."""
        return self.must("cat /dev/norvboard").splitlines()

    def drawing(self) -> str:
        """The board as a person sees it."""
        return self.must("cat /dev/norvboard_drawing")

    # Disks

    def pull(self, bay: int) -> None:
        """Pulls the disk out of a bay while the machine runs. What is on it stays."""
        with self._qmp() as qmp:
            qmp.do("device_del", id=f"disk{bay}")
            qmp.wait_event("DEVICE_DELETED", device=f"disk{bay}")
        self._keep_plugged(self._plugged - {bay})

    def plug(self, bay: int) -> None:
        """Puts a pulled disk back into its bay."""
        with self._qmp() as qmp:
            qmp.do("device_add", **emulator.disk_device(self.settings, bay))
        self._keep_plugged(self._plugged | {bay})

    def _keep_plugged(self, plugged: Iterable[int]) -> None:
        self._plugged = set(plugged)
        path = self.folder / "machine.json"
        path.write_text(json.dumps(json.loads(path.read_text()) | {"plugged": sorted(plugged)}, indent=1))

    def spoil(self, bay: int, sector: int, count: int = 1, how: Sequence[str] = ("read", "write")) -> None:
        """Makes requests that touch these sectors fail, until `heal` or the machine's end."""
        with self._qmp() as qmp:
            nodes = self._spoilt_nodes(qmp, bay)
            name = f"disk{bay}-spoilt{len(nodes)}"
            rules = [{"event": "none", "iotype": kind, "errno": 5, "sector": at, "once": False, "immediately": True}
                     for at in range(sector, sector + count) for kind in how]
            below = nodes[-1] if nodes else f"disk{bay}-image"
            qmp.do("blockdev-add", **{"driver": "blkdebug", "node-name": name, "image": below, "inject-error": rules,
                                      "discard": "unmap"})
            self._put_below(qmp, bay, name)

    def heal(self, bay: int) -> None:
        """Undoes every `spoil` of this disk."""
        with self._qmp() as qmp:
            nodes = self._spoilt_nodes(qmp, bay)
            self._put_below(qmp, bay, f"disk{bay}-image")
            for name in reversed(nodes):
                qmp.do("blockdev-del", **{"node-name": name})

    @staticmethod
    def _spoilt_nodes(qmp: Qmp, bay: int) -> list[str]:
        names = {node["node-name"] for node in qmp.do("query-named-block-nodes", flat=True)}
        return [name for number in range(len(names)) if (name := f"disk{bay}-spoilt{number}") in names]

    @staticmethod
    def _put_below(qmp: Qmp, bay: int, below: str) -> None:
        qmp.do("blockdev-reopen",
               options=[{"driver": "raw", "node-name": f"disk{bay}", "file": below, "discard": "unmap"}])

    def disk_file(self, bay: int) -> Path:
        return self.folder / self.settings.disk_file(bay)

    def picture(self, bay: int, first_sector: int = 0, sectors: int | None = None) -> str:
        """A hash of a disk, or of a range of it: see lab.disks.picture."""
        return picture(self.disk_file(bay), first_sector, sectors)

    # Network

    def unlink(self, port: int = 0) -> None:
        """Pulls a network cable."""
        with self._qmp() as qmp:
            qmp.do("set_link", name=f"eth{port}", up=False)

    def link(self, port: int = 0) -> None:
        """Puts it back."""
        with self._qmp() as qmp:
            qmp.do("set_link", name=f"eth{port}", up=True)

    def page(self) -> str:
        """Where this machine's browser finds the guest's web server."""
        with self._qmp() as qmp:
            told = qmp.do("human-monitor-command", **{"command-line": "info usernet"})
        found = re.search(r"TCP\[HOST_FORWARD\]\s+\d+\s+127\.0\.0\.1\s+(\d+)", told)
        if found is None:
            raise LabError("this machine has no user-mode network")
        return f"http://127.0.0.1:{found[1]}/"

    # States

    def save(self, tag: str) -> None:
        """Keeps memory and disks of the running machine under a name."""
        self._snapshot("snapshot-save", tag)

    def restore(self, tag: str, *, stay: bool = False) -> None:
        """Goes back to a saved state, also from off. The same bays must have their disks in."""
        if self.runs:
            self._snapshot("snapshot-load", tag)
            return
        self._switch_on = None  # there is no such way back
        self._start(Image.existing(), stay, (), paused=True)
        self._snapshot("snapshot-load", tag)
        with self._qmp() as qmp:
            qmp.do("cont")

    def _snapshot(self, command: str, tag: str) -> None:
        if not self.settings.saves:
            raise LabError("this machine was not made to be saved")
        nodes = ["state", *(f"disk{bay}-image" for bay in range(len(self.settings.disks)))]
        with self._qmp() as qmp:
            qmp.job(command, "snapshot", tag=tag, vmstate="state", devices=nodes)

    def _qmp(self) -> Qmp:
        return Qmp(self.folder)


def wait_for(look: Callable[[], T | None], seconds: float, what: str) -> T:
    """Calls `look` until it returns something true, which is the result; TimeoutError tells `what` was waited for."""
    deadline = time.monotonic() + seconds
    while not (found := look()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited {seconds} seconds for {what}")
        time.sleep(0.02)
    return found
