"""Uncompressed newc archives, the form from which the kernel fills its first root file system.

The format is described in the kernel's Documentation/driver-api/early-userspace/buffer-format.rst. Several archives may
stand one behind the other; a later one's files replace an earlier one's.
"""

import os
import stat
from pathlib import Path
from typing import BinaryIO


class Archive:
    """Writes entries, all owned by root, to an open binary file."""

    def __init__(self, out: BinaryIO) -> None:
        self._out = out
        self._inode = 0

    def add(self, name: str, mode: int, data: bytes = b"", device: tuple[int, int] = (0, 0), mtime: int = 0) -> None:
        """Adds one entry: `name` without a leading slash, `mode` with the file type, `data` a file's or link's text."""
        self._inode += 1
        encoded = os.fsencode(name) + b"\0"
        links = 2 if stat.S_ISDIR(mode) else 1
        fields = (self._inode, mode, 0, 0, links, mtime, len(data), 0, 0, *device, len(encoded), 0)
        header = b"070701" + b"".join(b"%08X" % field for field in fields) + encoded
        self._out.write(header + bytes(-len(header) % 4))
        self._out.write(data)
        self._out.write(bytes(-len(data) % 4))

    def add_tree(self, root: Path, prefix: str = "") -> None:
        """Adds all that lies in a folder, folders before what is in them."""
        for entry in sorted(os.scandir(root), key=lambda entry: entry.name):
            name = prefix + entry.name
            status = entry.stat(follow_symlinks=False)
            if entry.is_symlink():
                self.add(name, status.st_mode, os.fsencode(os.readlink(entry.path)))
            elif entry.is_dir():
                self.add(name, status.st_mode)
                self.add_tree(Path(entry.path), name + "/")
            elif entry.is_file():
                self.add(name, status.st_mode, Path(entry.path).read_bytes(), mtime=int(status.st_mtime))

    def close(self) -> None:
        """Ends the archive, on a border that lets another follow."""
        self.add("TRAILER!!!", 0)
        self._out.write(bytes(-self._out.tell() % 512))
