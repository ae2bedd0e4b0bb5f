"""Nothing is left running after a run, however it ended."""

import signal
import subprocess
import sys
from pathlib import Path

from lab import emulator
from lab.image import SOURCE
from lab.machine import wait_for
from scenario import Scenario

RUN = """
import sys, time
sys.path.insert(0, sys.argv[1])
from pathlib import Path
from lab.machine import Machine
with Machine(Path(sys.argv[2])) as machine:
    machine.start()
    print("started", flush=True)
    machine.wait_ready()
    time.sleep(600)
"""


def has_ended(pid: int) -> bool:
    """Whether a process is gone; whoever should collect it may not do so."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] == "Z"
    except FileNotFoundError:
        return True


class Leftover(Scenario):
    def test_an_interrupted_run_takes_its_machines_along(self) -> None:
        for sent in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            with self.subTest(signal=sent.name):
                machine = self.create("64M", name=sent.name)
                run = subprocess.Popen([sys.executable, "-c", RUN, SOURCE, machine.folder], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
                assert run.stdout
                with run.stdout:
                    self.assertEqual(run.stdout.readline(), "started\n")
                pid = int((machine.folder / "pid").read_text())
                run.send_signal(sent)
                run.wait(30)
                wait_for(lambda: not emulator.runs(machine.folder), 10, "the emulator to end")
                wait_for(lambda: has_ended(pid), 10, "its process to be gone")
