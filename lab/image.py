"""The guest's first root file system: Debian's programs and kernel modules below, our own build on top.

The lower part is packed once and kept in the cache; the upper part is packed anew for each build. The file that the
emulator gets is the two, one behind the other.
"""

import fnmatch
import hashlib
import os
import re
import shutil
import stat
import subprocess
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

from lab.archive import Archive
from lab.kernel import Kernel, Module
from lab.packages import LabError, fetch, locked, tool

SOURCE = Path(__file__).resolve().parent.parent
WORK = SOURCE / "build/lab"

# The guest has one folder of programs, as Debian has: these names lead into usr.
_MERGED = ("bin", "sbin", "lib", "lib64")
_HOST_LIBRARIES = (Path("/lib/x86_64-linux-gnu"), Path("/usr/lib/x86_64-linux-gnu"), Path("/lib64"))
# Opened late by name, so that no executable's list of libraries tells of them.
_LATE_LIBRARIES = ("libcurl.so.4",)
_LOADER = "ld-linux-x86-64.so.2"
_LIBRARY_DIR = "usr/lib/x86_64-linux-gnu"
_SYSTEM_KEY = "0.pem"  # the key of a whole system's patches, as the builder of patches names it


@dataclass(frozen=True)
class Image:
    kernel: Kernel
    initrd: Path

    @classmethod
    def built(cls, build_dir: Path) -> "Image":
        """Compiles what goes into the image, and makes it. What has not changed is not done again."""
        with locked(WORK / "lock"):
            _compile(build_dir)
            kernel = Kernel.fetched()
            base, base_libraries = _base(kernel)
            root = WORK / "root"
            _root(root, build_dir, kernel)
            _add_libraries(root, known=base_libraries)
            initrd = WORK / "initrd"
            fresh = WORK / "initrd.new"
            shutil.copyfile(base, fresh)
            with open(fresh, "ab") as out:
                archive = Archive(out)
                archive.add_tree(root)
                archive.close()
            fresh.rename(initrd)  # a running machine keeps the file that it was started with
            return cls(kernel, initrd)

    @classmethod
    def existing(cls) -> "Image":
        """The image as it was last built."""
        initrd = WORK / "initrd"
        if not initrd.exists():
            raise LabError("there is no image yet: run lab/vm build")
        return cls(Kernel.fetched(), initrd)


def _compile(build_dir: Path) -> None:
    """The executable and what stands around it, not the tests."""
    if not (build_dir / "CMakeCache.txt").exists():
        tool("cmake", "--preset", "release", "-S", str(SOURCE), "-B", str(build_dir))
    around = [f"platform/{path.parent.name}/all" for path in (SOURCE / "platform").glob("*/CMakeLists.txt")]
    tool("cmake", "--build", str(build_dir), "--target", "norv", "norv-patch", "norvfind", "tools/norv-plan/all", *around)


def _base(kernel: Kernel) -> tuple[Path, set[str]]:
    """The lower part, and the names of the libraries in it."""
    programs = _table(SOURCE / "lab/programs")
    modules = _table(SOURCE / "lab/modules")
    tree = fetch("guest", lambda: [package for package, *_ in programs],
                 list_key=" ".join(sorted(package for package, *_ in programs)))
    key = hashlib.sha256(repr((programs, modules, str(tree), str(kernel.modules))).encode())
    key.update(Path(__file__).read_bytes())
    base = WORK / f"base-{key.hexdigest()[:12]}.cpio"
    names = base.with_suffix(".libraries")
    if not names.exists():
        for old in WORK.glob("base-*"):
            old.unlink()
        root = WORK / "base"
        _make_root(root)
        for package, *wanted in programs:
            for pattern in wanted:
                _take(tree, pattern, root, package)
        _busybox_links(root)
        _modules(root, kernel, modules)
        _add_libraries(root, extra=_LATE_LIBRARIES, tree=tree)
        with open(base, "wb") as out:
            archive = Archive(out)
            archive.add("dev", stat.S_IFDIR | 0o755)
            archive.add("dev/console", stat.S_IFCHR | 0o600, device=(5, 1))
            archive.add_tree(root)
            archive.close()
        names.write_text("\n".join(path.name for path in (root / _LIBRARY_DIR).iterdir()))
        shutil.rmtree(root)
    return base, set(names.read_text().split("\n"))


def _root(root: Path, build_dir: Path, kernel: Kernel) -> None:
    """The upper part, as a plain folder."""
    _make_root(root)
    shutil.copytree(SOURCE / "lab/guest", root, symlinks=True, dirs_exist_ok=True)
    env = os.environ | {"DESTDIR": str(root)}
    for options in (["--prefix", "/usr", "--component", "Unspecified"], ["--prefix", "/", "--component", "guest"]):
        done = subprocess.run(["cmake", "--install", build_dir, *options], env=env, text=True, capture_output=True)
        if done.returncode != 0:
            raise LabError(f"the build in {build_dir} could not be installed:\n{done.stderr}")
    keys = root / "usr/norv/etc/codesign"
    keys.mkdir(parents=True)
    tool(str(build_dir / "tools/norv-patch/norv-patch"), "keys", "--keys", str(build_dir / "keys"))
    shutil.copy2(build_dir / "keys" / _SYSTEM_KEY, keys)
    programs = root / "usr/libexec/lab"
    programs.mkdir(parents=True, exist_ok=True)
    for name in ("agent", "logger"):
        shutil.copy2(_compiled(name), programs / name)
    board = SOURCE / "platform/board"
    if (board / "kernel").is_dir():
        extra = root / f"usr/lib/modules/{kernel.release}/extra"
        extra.mkdir(parents=True)
        for module in kernel.build_module(board, "kernel", WORK / "board"):
            shutil.copy2(module, extra)


def _compiled(name: str) -> Path:
    """A program of the guest's own, one source file, linked with nothing outside."""
    source = SOURCE / f"lab/{name}.c"
    program = WORK / name
    if not program.exists() or program.stat().st_mtime < source.stat().st_mtime:
        fresh = program.with_suffix(".new")
        tool("cc", "-std=gnu11", "-O2", "-Wall", "-Wextra", "-Wshadow", "-Wconversion", "-Werror", "-static", "-s",
             "-o", str(fresh), str(source))
        fresh.rename(program)
    return program


def _make_root(root: Path) -> None:
    shutil.rmtree(root, ignore_errors=True)
    for name in _MERGED:
        (root / "usr" / name).mkdir(parents=True)
        (root / name).symlink_to(f"usr/{name}")


def _table(path: Path) -> list[list[str]]:
    """The rows of a text file with # comments, each a list of words."""
    rows = (line.partition("#")[0].split() for line in path.read_text().splitlines())
    return [row for row in rows if row]


def _take(tree: Path, pattern: str, root: Path, package: str) -> None:
    source, _, target = pattern.partition(">")
    folder, name = os.path.split(source)
    found = [entry for entry in (tree / folder).iterdir() if fnmatch.fnmatch(entry.name, name)] \
        if (tree / folder).is_dir() else []
    if not found:
        raise LabError(f"the package {package} has no file {source}")
    for entry in found:
        to = root / (target or f"{folder}/{entry.name}")
        to.parent.mkdir(parents=True, exist_ok=True)
        if entry.is_symlink():
            to.symlink_to(os.readlink(entry))
        else:
            shutil.copy2(entry, to)


def _busybox_links(root: Path) -> None:
    """Every program that busybox can be and that is not there already."""
    for path in tool(str(root / "bin/busybox"), "--list-full").split():
        if not os.path.lexists(root / path):
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            (root / path).symlink_to("/bin/busybox")


def _modules(root: Path, kernel: Kernel, table: list[list[str]]) -> None:
    """Kernel modules, in one folder, with the two indexes that busybox's modprobe reads."""
    folder = root / f"lib/modules/{kernel.release}"
    folder.mkdir(parents=True)
    modules = kernel.module_files(name for _, *names in table for name in names)
    depends, aliases = [], []
    for name, module in sorted(modules.items()):
        shutil.copy2(module.path, folder)
        chain = kernel.module_files(module.needs)
        depends.append(f"{module.path.name}: {' '.join(needed.path.name for needed in _ordered(chain))}".rstrip())
        aliases += [f"alias {alias} {name}" for alias in module.aliases]
    (folder / "modules.dep").write_text("\n".join(depends) + "\n")
    (folder / "modules.alias").write_text("\n".join(aliases) + "\n")
    lists = root / "etc/lab"
    lists.mkdir(parents=True)
    for when in ("disks", "devices"):
        (lists / f"modules.{when}").write_text("\n".join(name for row in table if row[0] == when for name in row[1:]))


def _ordered(chain: dict[str, Module]) -> list[Module]:
    """Modules, each before those that it needs, as modules.dep lists them."""
    order: list[str] = []

    def visit(name: str) -> None:
        if name not in order:
            for needed in chain[name].needs:
                visit(needed)
            order.append(name)

    for name in chain:
        visit(name)
    return [chain[name] for name in reversed(order)]


def _add_libraries(root: Path, known: Iterable[str] = (), extra: Iterable[str] = (), tree: Path | None = None) -> None:
    """Puts the shared libraries beside the executables below `root` that they need and that are not `known`."""
    have = set(known) | {path.name for path in root.rglob("*.so*")}
    folders = [folder for folder in ((tree / "lib/x86_64-linux-gnu", tree / "usr/lib/x86_64-linux-gnu") if tree else ())
               if folder.is_dir()] + list(_HOST_LIBRARIES)
    target = root / _LIBRARY_DIR
    look_at = [path for path in root.rglob("*") if path.is_file() and not path.is_symlink() and _is_elf(path)]
    wanted = dict.fromkeys(extra, "the lab")
    while look_at or wanted:
        for user, library in _needed(look_at):
            wanted.setdefault(library, user)
        look_at = []
        for name, user in wanted.items():
            if name in have:
                continue
            have.add(name)
            source = next((folder / name for folder in folders if (folder / name).exists()), None)
            if source is None:
                raise LabError(f"{user} needs {name}: name a package that has it in lab/programs")
            target.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, target / name)
            if name == _LOADER:
                (root / "usr/lib64" / name).symlink_to(f"/{_LIBRARY_DIR}/{name}")
            look_at.append(target / name)
        wanted = {}


def _is_elf(path: Path) -> bool:
    with open(path, "rb") as file:
        return file.read(4) == b"\x7fELF"


def _needed(files: list[Path]) -> list[tuple[str, str]]:
    """Pairs of a file and a library that it names."""
    if not files:
        return []
    pairs = []
    user = str(files[0])
    for line in tool("readelf", "-dWl", *map(str, files)).splitlines():
        if line.startswith("File: "):
            user = line[6:]
        match = re.search(r"\(NEEDED\).*\[(.*)\]|interpreter: /lib64/(.*)\]", line)
        if match:
            pairs.append((user, match[1] or match[2]))
    return pairs
