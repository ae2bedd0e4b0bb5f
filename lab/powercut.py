"""Power cuts: an install is cut off at a moment, the machine starts again on the same disks, and installs again.

A moment is a stage of a road and how far into it. How long each stage takes is measured first, by a run without a cut.
What was not flushed when the power goes may be lost: the emulator is killed together with its caches.
"""

import random
import threading
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass, replace
from pathlib import Path

from lab import firmware, road
from lab.agent import GuestLost
from lab.bridge import Bridge
from lab.disks import Disk
from lab.installer import SUCCESS, Refused
from lab.machine import wait_for
from lab.packages import LabError
from lab.qmp import QmpError

_DISK = "12G"  # the system takes ten, so that a data volume is small
_REQUEST, _RECOVERY, _RESTART = "request", "recovery", "restart"  # stages that no progress tells of
_TROUBLE = (LabError, GuestLost, QmpError, Refused, TimeoutError, OSError)


@dataclass(frozen=True)
class Way:
    """A road and where it begins."""

    name: str
    by: str  # how the patch comes: upload, download, builtin; recover: the flash is written from the disks
    disks: str  # the saved state: blank, installed
    status: str  # what the installer is told of them


WAYS = (
    Way("upload", "upload", "blank", "not_install"),
    Way("download", "download", "blank", "not_install"),
    Way("built-in", "builtin", "blank", "not_install"),
    Way("reinstall", "upload", "installed", "sys_recoverable"),
    Way("migration", "upload", "installed", "sys_migrat"),
    Way("recovery", "recover", "installed", "sys_recoverable"),
)


@dataclass(frozen=True)
class Moment:
    way: Way
    stage: str
    seconds: float  # from when the stage is seen


@dataclass(frozen=True)
class Row:
    """What came of a cut."""

    moment: Moment
    status: str  # the word after the restart
    end: str  # of the second install: Success, or what went wrong
    seconds: float  # from the restart to that end
    data: str  # kept, LOST, or - where there was none

    @property
    def is_good(self) -> bool:
        return self.end == SUCCESS and self.data != "LOST"


def moments(lengths: Mapping[Way, Mapping[str, float]], count: int, seed: int) -> list[Moment]:
    """Spreads cuts over the stages of the roads: at least one in each as far as they reach, more in the longer ones.

    lengths: of the stages, in seconds. Within a stage the moment is by chance.
    """
    chance = random.Random(seed)
    stages = [(way, stage, length) for way, found in lengths.items() for stage, length in found.items()]
    chance.shuffle(stages)
    shares = [1] * len(stages)
    for _ in range(count - len(stages)):
        # The stage with the longest stretch between two cuts.
        at = max(range(len(stages)), key=lambda index: stages[index][2] / shares[index])
        shares[at] += 1
    chosen = [Moment(way, stage, length * (part + chance.random()) / share)
              for (way, stage, length), share in zip(stages, shares) for part in range(share)]
    return sorted(chosen[:count], key=lambda moment: (WAYS.index(moment.way),
                                                      list(lengths[moment.way]).index(moment.stage), moment.seconds))


class Bench:
    """One appliance with two saved states: blank disks, and a system with a data volume. Both have an address."""

    def __init__(self, folder: Path, bridge: Bridge) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        self._patch = firmware.patch(folder)
        flash = firmware.flash(folder)
        self.one = road.create(folder / "machine", bridge, [Disk.parse(_DISK)] * 2, flash=flash, saves=True)
        machine = self.one.machine
        road.switch_on(self.one)
        road.set_network(self.one)
        machine.save("blank")
        road.install(self.one, "upload", "not_install", self._patch)
        wait_for(self.one.web.is_idle, road.PATIENCE, "the install to end")
        road.data_make(machine)
        machine.save("installed")

    def measure(self, way: Way) -> dict[str, float]:
        """Takes a road to its end. Returns how long each stage took."""
        begun: list[tuple[str, float]] = []
        self._take(way, lambda stage: begun.append((stage, time.monotonic())))
        begun.append(("", time.monotonic()))
        return {stage: end - begin for (stage, begin), (_, end) in zip(begun, begun[1:])}

    def cut(self, moment: Moment) -> Row:
        """Cuts the power at a moment and goes on from there. A stage that is over sooner is cut at its end."""
        begun = after = 0.0

        def power_goes() -> None:
            nonlocal after
            after = time.monotonic() - begun
            self.one.machine.cut()
            self.one.web.hang_up()

        timers: list[threading.Timer] = []

        def on_stage(stage: str) -> None:
            nonlocal begun
            if stage == moment.stage:
                begun = time.monotonic()
                timers.append(threading.Timer(moment.seconds, power_goes))
                timers[0].start()
            elif timers and not after:
                timers[0].cancel()
                power_goes()

        status, end, data = "-", SUCCESS, "-"
        try:
            self._take(moment.way, on_stage)
        except Refused as error:
            end = f"the first one: {error}"
        except _TROUBLE:
            pass  # the machine went off
        for timer in timers:
            timer.join()
        self.one.machine.cut()  # a short stage may not have been seen this time
        begin = time.monotonic()
        try:
            road.switch_on(self.one, "flash")
            road.set_network(self.one)
            status = road.check_system(self.one)
            self._go_on(moment.way, status)
            if moment.way.disks == "installed":
                data = "kept" if road.data_is_kept(self.one.machine) else "LOST"
        except _TROUBLE as error:
            end = str(error) or type(error).__name__
        return Row(replace(moment, seconds=after), status, end, time.monotonic() - begin, data)

    def _take(self, way: Way, on_stage: Callable[[str], object]) -> None:
        """Takes a road from its saved state to the banner of what was installed, or to the end of the recovery."""
        if self.one.boot != "disks" or not self.one.machine.runs:
            self.one.machine.cut()
            road.power_on(self.one, "disks")
        self.one.machine.restore(way.disks)
        on_stage(_REQUEST)
        if way.by == "recover":
            on_stage(_RECOVERY)
            self.one.web.recover()
            return
        # Success begins the restart.
        road.install(self.one, way.by, way.status, self._patch,
                     lambda stage: on_stage(_RESTART if stage == SUCCESS else stage))
        road.reboot(self.one)

    def _go_on(self, way: Way, status: str) -> None:
        """What a person does after the power is back: the same again, as far as it is still offered."""
        if way.by == "recover":
            if status == "sys_recoverable":
                self.one.web.recover()
            build = road.flash_version(self.one)
            if build != firmware.BUILD_NUMBER:
                raise LabError(f"the flash holds build {build or 'nothing whole'}")
            return
        road.install(self.one, way.by, status, self._patch)


def run(bench: Bench, count: int, seed: int, ways: Sequence[Way] = WAYS) -> Iterator[Row]:
    """Measures the roads and cuts them `count` times."""
    lengths = {way: bench.measure(way) for way in ways}
    for moment in moments(lengths, count, seed):
        yield bench.cut(moment)


HEAD = ("road", "stage", "after", "status", "second install", "seconds", "data")


def cells(row: Row) -> tuple[str, ...]:
    moment = row.moment
    return (moment.way.name, moment.stage, f"{moment.seconds:.1f} s", row.status, row.end, f"{row.seconds:.0f}",
            row.data)
