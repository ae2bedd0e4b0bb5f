"""The sample firmware as patches that the lab's appliance trusts, and as the content of its boot flash."""

import sys
from pathlib import Path

from lab.image import SOURCE
from lab.packages import tool

BUILD = SOURCE / "build/release"
_MAKER = SOURCE / "tools/sample-firmware/make_firmware.py"
_BUILDER = BUILD / "tools/norv-patch/norv-patch"
_FLASH_BYTES = "64M"
FLASH_BUILD = "buildnumber=64500"  # older than the sample


def patch(folder: Path, *pairs: str, options: tuple[str, ...] = (), name: str = "sample.pat") -> Path:
    """Makes a patch for the lab's model, with these values in its VERSION; `options` are those of norv-patch."""
    firmware, path = folder / "firmware", folder / name
    tool(sys.executable, str(_MAKER), str(firmware), *pairs)
    tool(str(_BUILDER), "make", str(firmware), str(path), "--keys", str(BUILD / "keys"), *options)
    return path


def flash(folder: Path, *pairs: str) -> Path:
    """Makes a boot flash with that firmware in it, as a disk's image."""
    patch(folder, FLASH_BUILD, *pairs, name="flash.pat")
    image = folder / "flash.img"
    image.unlink(missing_ok=True)
    tool("/sbin/mke2fs", "-q", "-t", "ext2", "-d", str(folder / "firmware"), str(image), _FLASH_BYTES)
    return image
