"""Disks of a machine: how one is told, its file, and what is on it."""

import dataclasses
import errno
import hashlib
import os
import re
import tempfile
from dataclasses import dataclass
from pathlib import Path

from lab.packages import LabError, tool

SECTOR_BYTES = 512
_UNITS = {"": 1, "K": 1 << 10, "M": 1 << 20, "G": 1 << 30, "T": 1 << 40}
_PIECE_BYTES = 65536


@dataclass(frozen=True)
class Disk:
    """What stands in a bay. `size` counts only where there is no image."""

    size: int = 4 << 30  # bytes
    ssd: bool = False
    flash: bool = False  # the board's own, which carries a copy of the system; behind the bays that are for users
    image: str = ""  # a file that the disk starts as a copy of, in any format that qemu-img knows
    serial: str = ""

    @classmethod
    def parse(cls, text: str) -> "Disk":
        """From words with commas between them: a size such as 2G, ssd, flash, image=PATH, serial=TEXT."""
        disk = cls()
        for word in text.split(","):
            size = re.fullmatch(r"(\d+)([KMGT]?)", word)
            key, _, value = word.partition("=")
            if size:
                disk = dataclasses.replace(disk, size=int(size[1]) * _UNITS[size[2]])
            elif word in ("ssd", "flash"):
                disk = dataclasses.replace(disk, **{word: True})
            elif key in ("image", "serial") and value:
                disk = dataclasses.replace(disk, **{key: os.path.abspath(value) if key == "image" else value})
            else:
                raise LabError(f"a disk cannot be {word!r}: known are a size such as 2G, ssd, flash, "
                                "image=PATH, serial=TEXT")
        return disk

    def create(self, path: Path) -> None:
        """Makes the disk's file, whose ending (.raw or .qcow2) tells its form. No room is taken before it is used."""
        form = path.suffix[1:]
        if self.image:
            tool("qemu-img", "convert", "-O", form, self.image, str(path))
        elif form == "raw":
            with open(path, "xb") as file:
                file.truncate(self.size)
        else:
            tool("qemu-img", "create", "-q", "-f", form, str(path), str(self.size))


def picture(path: Path, first_sector: int = 0, sectors: int | None = None) -> str:
    """A hash of what a disk's file holds, or a range of it. Zeroes that were written and room never used are the same.

    The machine must be off when the file is a qcow2, and should have called sync when it is not.
    """
    if path.suffix == ".qcow2":
        with tempfile.TemporaryDirectory(dir=path.parent) as folder:
            raw = Path(folder) / "disk.raw"
            tool("qemu-img", "convert", "-O", "raw", str(path), str(raw))
            return picture(raw, first_sector, sectors)
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        begin = first_sector * SECTOR_BYTES
        size = os.fstat(file.fileno()).st_size
        end = size if sectors is None else min(size, begin + sectors * SECTOR_BYTES)
        digest.update(b"%d" % (end - begin))
        at = _data_from(file.fileno(), begin, begin)
        while at < end:
            data = os.pread(file.fileno(), min(_PIECE_BYTES, end - at), at)
            if data.count(0) != len(data):
                digest.update(b"%d:" % (at - begin) + data)
            at = _data_from(file.fileno(), at + len(data), begin)
    return digest.hexdigest()


def _data_from(descriptor: int, at: int, begin: int) -> int:
    """Where the file has data next, at or behind `at`, as the start of one of the pieces counted from `begin`."""
    try:
        found = os.lseek(descriptor, at, os.SEEK_DATA)
    except OSError as error:
        if error.errno != errno.ENXIO:
            raise
        return os.fstat(descriptor).st_size
    return max(at, begin + (found - begin) // _PIECE_BYTES * _PIECE_BYTES)
