#!/usr/bin/env python3
"""Makes a folder that a firmware patch can be made of, from Debian's busybox: a small system that boots.

usage: make_firmware.py [--busybox FILE] FOLDER [KEY=VALUE ...]

FOLDER gets VERSION, updater and hda1.tgz; norv-patch does the rest. Keys are those of VERSION and upnpmodelname. The
same arguments and the same busybox make the same bytes.
"""

import argparse
import io
import lzma
import os
import stat
import struct
import subprocess
import sys
import tarfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
SECONDS = 1735689600  # all that is made bears this time: the beginning of 2025
FOLDERS = ("dev", "etc.defaults", "mnt", "proc", "root", "sys", "tmp", "usr/norv/etc", "var/log")

VERSION = {
    "majorversion": "7", "minorversion": "2", "productversion": "7.2-sample", "buildphase": "GM",
    "buildnumber": "64570", "smallfixnumber": "0", "builddate": "2025/01/01", "packing": "sample", "packing_id": "1",
    "unique": "norv_x86_lab4", "partitionversionlimit": "7", "extractsize": "",  # as it is, when nothing is given
}
MODEL = {"upnpmodelname": "NS0400", "hostname": "norvstation", "supportraid": "yes", "maxdisks": "4"}


def key_values(pairs: dict[str, str]) -> bytes:
    return "".join(f'{key}="{value}"\n' for key, value in pairs.items()).encode()


def is_static(program: bytes) -> bool:
    """Whether an ELF file of this machine's kind asks for no loader."""
    if program[:5] != b"\x7fELF\x02":
        return False
    at, = struct.unpack_from("<Q", program, 32)
    size, count = struct.unpack_from("<HH", program, 54)
    return all(struct.unpack_from("<I", program, at + size * i)[0] != 3 for i in range(count))  # PT_INTERP


class Root:
    """The system's root folder, as entries of a tar."""

    def __init__(self) -> None:
        self._entries: dict[str, tuple[tarfile.TarInfo, bytes]] = {}

    def add(self, path: str, kind: bytes = tarfile.REGTYPE, mode: int = 0o644, data: bytes = b"",
            target: str = "") -> None:
        """Adds an entry, and the folders above it. The last one of a path counts."""
        above = os.path.dirname(path)
        if above and above not in self._entries:
            self.add(above, tarfile.DIRTYPE, 0o755)
        entry = tarfile.TarInfo(path)
        entry.type, entry.mode, entry.mtime, entry.linkname = kind, mode, SECONDS, target
        entry.uname = entry.gname = "root"
        entry.size = len(data)
        self._entries[path] = entry, data

    def kibibytes(self) -> int:
        """The room that it takes unpacked: in blocks of 4 KiB, with one for each entry's own facts."""
        return sum(4 + (len(data) + 4095) // 4096 * 4 for _, data in self._entries.values())

    def packed(self) -> bytes:
        out = io.BytesIO()
        with tarfile.open(fileobj=out, mode="w", format=tarfile.USTAR_FORMAT) as tar:
            for _, (entry, data) in sorted(self._entries.items()):
                tar.addfile(entry, io.BytesIO(data))
        return lzma.compress(out.getvalue(), preset=6)


def root_fill(busybox: Path, version: dict[str, str], model: dict[str, str]) -> Root:
    root = Root()
    program = busybox.read_bytes()
    if not is_static(program):
        sys.exit(f"{busybox} is not linked statically: install busybox-static, or name another by --busybox")
    for folder in FOLDERS:
        root.add(folder, tarfile.DIRTYPE, 0o1777 if folder == "tmp" else 0o755)
    for path in subprocess.check_output([busybox, "--list-full"], text=True).split():
        root.add(path, tarfile.SYMTYPE, 0o777, target="/bin/busybox")
    root.add("bin/busybox", mode=0o755, data=program)
    for path in (HERE / "root").rglob("*"):
        if path.is_file():
            mode = 0o755 if path.stat().st_mode & stat.S_IXUSR else 0o644
            root.add(str(path.relative_to(HERE / "root")), mode=mode, data=path.read_bytes())
    conf = key_values({"unique": version["unique"], **model})
    root.add("etc.defaults/norvinfo.conf", data=conf)
    root.add("etc/norvinfo.conf", data=conf)
    root.add("etc.defaults/VERSION", data=key_values(version))
    for name, value in (("endian", "little"), ("bits", "64"), ("pgsql_alignment", "8")):
        root.add(f".system_info/{name}", data=f"{value}\n".encode())
    return root


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--busybox", type=Path, default=Path("/bin/busybox"))
    parser.add_argument("folder", type=Path, metavar="FOLDER")
    parser.add_argument("pairs", nargs="*", metavar="KEY=VALUE")
    chosen = parser.parse_args()
    version, model = dict(VERSION), dict(MODEL)
    for key, _, value in (pair.partition("=") for pair in chosen.pairs):
        if key not in version and key not in model:
            parser.error(f"no key {key}: known are {' '.join([*version, *model])}")
        (version if key in version else model)[key] = value
    root = root_fill(chosen.busybox, version, model)
    version["extractsize"] = version["extractsize"] or str(root.kibibytes())
    chosen.folder.mkdir(parents=True, exist_ok=True)
    for name, mode, data in (("VERSION", 0o644, key_values(version)), ("hda1.tgz", 0o644, root.packed()),
                             ("updater", 0o755, (HERE / "updater").read_bytes())):
        path = chosen.folder / name
        path.write_bytes(data)
        path.chmod(mode)
        os.utime(path, (SECONDS, SECONDS))


if __name__ == "__main__":
    main()
