"""What every scenario has: machines that go when it ends, however it ends."""

import os
import shutil
import tempfile
import unittest
from pathlib import Path
from typing import Any

from lab import emulator
from lab.disks import Disk
from lab.emulator import Settings
from lab.image import WORK
from lab.machine import Machine

_FOLDER = WORK / "scenarios"


class Scenario(unittest.TestCase):
    folder: Path

    def setUp(self) -> None:
        _FOLDER.mkdir(parents=True, exist_ok=True)
        self.folder = Path(tempfile.mkdtemp(prefix=f"{os.getpid()}-", dir=_FOLDER))
        self.addCleanup(shutil.rmtree, self.folder)

    def create(self, *disks: str, name: str = "one", **settings: Any) -> Machine:
        """A machine with these disks (Disk.parse tells the words), switched off."""
        parsed = [Disk.parse(text) for text in disks]
        created = Machine.create(self.folder / name, Settings(disks=parsed, **settings))
        self.addCleanup(created.cut)
        return created

    def boot(self, *disks: str, **settings: Any) -> Machine:
        """The same, switched on and ready."""
        return self.create(*disks, **settings).boot()


def sweep() -> None:
    """Throws away what runs that were killed left behind."""
    for folder in _FOLDER.glob("*-*"):
        running = any(emulator.runs(lock.parent) for lock in folder.glob("*/lock"))
        if not running and not Path(f"/proc/{folder.name.partition('-')[0]}").exists():
            shutil.rmtree(folder, ignore_errors=True)
