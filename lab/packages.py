"""Debian packages, downloaded and unpacked into folders of the cache. Nothing is installed, and no root is needed.

Versions are those that apt knows when a set is first fetched; the set then stays as it is until its list of packages
changes or `refresh` forgets it.
"""

import contextlib
import fcntl
import hashlib
import json
import os
import shutil
import subprocess
import tempfile
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path


class LabError(Exception):
    """Something that the lab needs is not there, or does not work. The text is for people."""


def cache() -> Path:
    """The folder that all checkouts share."""
    home = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
    return Path(os.environ.get("NORV_LAB_CACHE") or Path(home) / "norv-lab")


@contextlib.contextmanager
def locked(path: Path) -> Iterator[None]:
    """Holds the lock file `path` for the time of a with statement."""
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def tool(*command: str, cwd: Path | None = None) -> str:
    """Runs a program that must succeed, and returns its output."""
    try:
        done = subprocess.run(command, cwd=cwd, text=True, stdin=subprocess.DEVNULL, capture_output=True)
    except FileNotFoundError:
        raise LabError(f"{command[0]} is not installed: run scripts/setup") from None
    if done.returncode != 0:
        raise LabError(f"{' '.join(command[:4])} ... failed:\n{(done.stderr + done.stdout).strip()[-2000:]}")
    return done.stdout


def dependencies(package: str) -> list[str]:
    """What the newest version of a package depends on, directly."""
    lines = tool("apt-cache", "depends", "--no-recommends", "--no-suggests", "--no-conflicts", "--no-breaks",
                 "--no-replaces", "--no-enhances", package).splitlines()
    return [line.split()[-1] for line in lines if line.strip().startswith(("Depends:", "|Depends:"))]


def fetch(set_name: str, packages: Callable[[], Sequence[str]], list_key: str,
          prepare: Callable[[Path], None] = lambda tree: None) -> Path:
    """Returns the folder that holds the files of a set of packages.

    packages: asked for the names only when the set is not there; list_key: changes when the set must be made anew;
    prepare: puts finishing touches to a new folder.
    """
    pin = cache() / f"{set_name}.json"
    with locked(cache() / "lock"):
        if pin.exists():
            known = json.loads(pin.read_text())
            if known["key"] == list_key and Path(known["tree"]).is_dir():
                return Path(known["tree"])
        debs = _download(packages())
        names = sorted(deb.name for deb in debs)
        key = hashlib.sha256(json.dumps([names, list_key]).encode()).hexdigest()[:12]
        tree = cache() / f"{set_name}-{key}"
        shutil.rmtree(tree, ignore_errors=True)  # of a fetch that was cut off
        tree.mkdir()
        for deb in debs:
            tool("dpkg-deb", "-x", str(deb), str(tree))
        prepare(tree)
        pin.write_text(json.dumps({"key": list_key, "tree": str(tree), "packages": names}, indent=1))
        return tree


def refresh() -> None:
    """Forgets which versions were fetched; the next fetch takes what apt knows then."""
    with locked(cache() / "lock"):
        for pin in cache().glob("*.json"):
            tree = Path(json.loads(pin.read_text())["tree"])
            pin.unlink()
            shutil.rmtree(tree, ignore_errors=True)


def _download(packages: Sequence[str]) -> list[Path]:
    store = cache() / "debs"
    store.mkdir(parents=True, exist_ok=True)
    listing = tool("apt-get", "download", "--print-uris", *packages).splitlines()
    files = [store / line.split()[1] for line in listing if line.startswith("'")]
    missing = [file.name.split("_")[0] for file in files if not file.exists()]
    if missing:
        with tempfile.TemporaryDirectory(dir=cache()) as folder:
            os.chmod(folder, 0o777)
            tool("apt-get", "-qq", "download", *missing, cwd=Path(folder))
            for deb in Path(folder).glob("*.deb"):
                deb.rename(store / deb.name)
    absent = [file.name for file in files if not file.exists()]
    if absent or not files:
        raise LabError(f"apt did not bring {', '.join(absent) or ' '.join(packages)}: run apt-get update")
    return files
