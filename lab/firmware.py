"""The sample firmware as patches that the lab's appliance trusts, and as the content of its boot flash."""

import sys
from pathlib import Path

from lab.image import SOURCE
from lab.packages import tool

BUILD = SOURCE / "build/release"
_MAKER = SOURCE / "tools/sample-firmware/make_firmware.py"
_BUILDER = BUILD / "tools/norv-patch/norv-patch"
_FLASH_BYTES = "64M"
UNIQUE, BUILD_NUMBER = "norv_x86_lab4", "64570"  # of the sample
_FLASH_VERSION = ("buildnumber=64500", "productversion=7.2-64500")  # older than the sample

# Patches that are refused: what is wrong with their VERSION, and the code of the refusal. What norv-patch can break is
# refused for what it finds: 13.
VERSION_FAULTS = {
    "model": ("unique=norv_x86_other", 12),
    "limit": ("partitionversionlimit=99", 70),
    "room": ("extractsize=99999999", 13),
}
BUILDER_FAULTS = ("unsigned", "signature", "stranger", "truncated", "payload", "extra-file", "escape", "absolute",
                  "link", "device", "checksum", "totals", "no-totals", "missing-file")


def patch(folder: Path, *pairs: str, options: tuple[str, ...] = (), name: str = "sample.pat",
          updater: str = "") -> Path:
    """Makes a patch for the lab's model, with these values in its VERSION; `options` are those of norv-patch.

    updater: a script in the place of the sample's.
    """
    firmware, path = folder / "firmware", folder / name
    tool(sys.executable, str(_MAKER), str(firmware), *pairs)
    if updater:
        (firmware / "updater").write_text(updater)
    tool(str(_BUILDER), "make", str(firmware), str(path), "--keys", str(BUILD / "keys"), *options)
    return path


def bad_patch(folder: Path, what: str) -> tuple[Path, int]:
    """Makes a patch that is refused, and tells with which code."""
    if what in VERSION_FAULTS:
        pair, code = VERSION_FAULTS[what]
        return patch(folder, pair, name="bad.pat"), code
    return patch(folder, options=("--break", what), name="bad.pat"), 13


def flash(folder: Path, *pairs: str) -> Path:
    """Makes a boot flash with that firmware in it, as a disk's image."""
    patch(folder, *_FLASH_VERSION, *pairs, name="flash.pat")
    image = folder / "flash.img"
    image.unlink(missing_ok=True)
    tool("/sbin/mke2fs", "-q", "-t", "ext2", "-d", str(folder / "firmware"), str(image), _FLASH_BYTES)
    return image
