"""Debian's cloud kernel: the image, its modules, and the headers of the same version for a module of our own."""

import hashlib
import os
import re
import shutil
import struct
import subprocess
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

from lab.packages import LabError, dependencies, fetch, tool

_IMAGE = "linux-image-cloud-amd64"
_HEADERS = "linux-headers-cloud-amd64"
_UNPACKERS = {b"\x02\x21\x4c\x18": "lz4", b"\x28\xb5\x2f\xfd": "zstd", b"\xfd7zX": "xz", b"\x1f\x8b\x08": "gzip"}


@dataclass(frozen=True)
class Kernel:
    release: str  # as uname -r prints it
    image: Path  # the uncompressed ELF, which starts sooner than the packed form
    modules: Path  # lib/modules/<release>
    headers: Path  # for KDIR

    @classmethod
    def fetched(cls) -> "Kernel":
        """Downloads and unpacks it on first use."""
        tree = fetch("kernel", _packages, list_key=f"{_IMAGE} {_HEADERS} 1", prepare=_prepare)
        modules = next((tree / "lib/modules").iterdir())
        return cls(modules.name, tree / "vmlinux", modules, tree / f"usr/src/linux-headers-{modules.name}")

    def module_files(self, names: Iterable[str]) -> dict[str, "Module"]:
        """The modules of these names and all that they need, by name."""
        files = {_plain(path.stem): path for path in self.modules.rglob("*.ko")}
        found: dict[str, Module] = {}
        wanted = [_plain(name) for name in names]
        while wanted:
            name = wanted.pop()
            if name in found:
                continue
            if name not in files:
                raise LabError(f"the kernel {self.release} has no module {name}")
            found[name] = Module.read(files[name])
            wanted += found[name].needs
        return found

    def build_module(self, source: Path, part: str, work: Path) -> list[Path]:
        """Builds the kernel modules of the folder `part` of `source`, which has a Makefile for kbuild, in a copy.

        The copy, below `work`, ends like the source's own path, so that includes by that path are found.
        """
        digest = hashlib.sha256(self.release.encode())
        for file in sorted(path for path in source.rglob("*") if path.is_file()):
            digest.update(file.relative_to(source).as_posix().encode() + b"\0" + file.read_bytes())
        copy = work / digest.hexdigest()[:16]
        folder = copy / source.parent.name / source.name / part
        if not (copy / "built").exists():
            shutil.rmtree(work, ignore_errors=True)
            shutil.copytree(source, folder.parent)
            tool("make", "-C", str(self.headers), f"M={folder}", "modules")
            (copy / "built").touch()
        return sorted(folder.glob("*.ko"))


@dataclass(frozen=True)
class Module:
    path: Path
    needs: list[str]
    aliases: list[str]

    @classmethod
    def read(cls, path: Path) -> "Module":
        """Reads what the module tells of itself: its .modinfo section is a list of NUL-terminated key=value texts."""
        texts = re.findall(rb"(?:\A|\0)(depends|alias)=([^\0]*)", path.read_bytes().replace(b"\0", b"\0\0"))
        needs = [_plain(name) for key, text in texts if key == b"depends" for name in text.decode().split(",") if name]
        return cls(path, needs, [text.decode() for key, text in texts if key == b"alias"])


def _plain(name: str) -> str:
    return name.replace("-", "_")


def _packages() -> list[str]:
    """The image and the headers behind the names without a version. A version that has only one of them is no use."""
    image = [name for name in dependencies(_IMAGE) if name.startswith("linux-image-")]
    headers = [name for name in dependencies(_HEADERS) if name.startswith("linux-headers-")]
    if len(image) != 1 or len(headers) != 1 or image[0].split("-", 2)[2] != headers[0].split("-", 2)[2]:
        raise LabError(f"no kernel with headers of its own version: {image}, {headers}: run apt-get update")
    return [*image, *headers, *(name for name in dependencies(headers[0]) if name.startswith("linux-") and
                                not name.startswith("linux-compiler-"))]


def _prepare(tree: Path) -> None:
    """Unpacks the kernel image, and lets the headers be used where they lie."""
    compressed = next((tree / "boot").glob("vmlinuz-*")).read_bytes()
    # Boot protocol 2.08 (Documentation/x86/boot.rst): setup_sects, payload_offset and payload_length.
    at = (compressed[0x1F1] + 1) * 512 + struct.unpack_from("<I", compressed, 0x248)[0]
    payload = compressed[at:at + struct.unpack_from("<I", compressed, 0x24C)[0]]
    program = next((program for magic, program in _UNPACKERS.items() if payload.startswith(magic)), None)
    if program is None:
        raise LabError("the kernel image is packed in an unknown way")
    # The kernel's build appends the unpacked size, 4 bytes, to what the packer wrote.
    size, = struct.unpack("<I", payload[-4:])
    try:
        unpacked = subprocess.run([program, "-dc"], input=payload[:-4], capture_output=True).stdout
    except FileNotFoundError:
        raise LabError(f"{program} is not installed: run scripts/setup") from None
    if len(unpacked) != size or not unpacked.startswith(b"\x7fELF"):
        raise LabError(f"{program} could not unpack the kernel image")
    (tree / "vmlinux").write_bytes(unpacked)
    for makefile in (tree / "usr/src").glob("linux-headers-*/Makefile"):
        text = makefile.read_text()
        if text.startswith("include /usr/src/"):
            makefile.write_text(text.replace("include /usr/src/", f"include {os.fspath(tree)}/usr/src/"))
