"""Commands and files through the guest's agent."""

import random
import subprocess
import sys

from lab.image import SOURCE
from scenario import Scenario

ENDLESS = """
import sys
sys.path.insert(0, sys.argv[1])
from pathlib import Path
from lab.machine import Machine
Machine(Path(sys.argv[2])).stream(sys.argv[3], out=lambda data: print(flush=True), err=print, timeout=600)
"""


# Whether a process with such a command line is there.
RUNS = "(cd /proc; for p in [0-9]*; do tr '\\0' ' ' <$p/cmdline | sed 's/ $//'; echo; done 2>/dev/null) | grep -q '^{}'"


class Agent(Scenario):
    def test_commands(self) -> None:
        machine = self.boot()
        with self.subTest("status and output"):
            for command, status, out, err in (
                    ("printf out; printf err >&2; exit 7", 7, "out", "err"),
                    (["/bin/printf", "%s|", "a b", ""], 0, "a b||", ""),
                    ("kill -9 $$", -9, "", ""), (["/none"], 127, "", "/none: No such file or directory\n"),
                    ("cat; sleep 1000 >/dev/null 2>&1 &", 0, "", "")):
                result = machine.run(command)
                self.assertEqual((result.status, result.out, result.err), (status, out, err), command)
            self.assertEqual(machine.must("pidof sleep | wc -w"), "1\n", "what is in the background stays")

        with self.subTest("every byte, in and out at once"):
            data = random.Random(1).randbytes(3 << 20) + bytes(100000) + b"\xa5" * 100000
            self.assertEqual(machine.must("cat", stdin=data).encode(errors="surrogateescape"), data)
            source, target = self.folder / "source", self.folder / "target"
            source.write_bytes(data)
            source.chmod(0o751)
            machine.put(source, "/run/a name with 'blanks'")
            machine.get("/run/a name with 'blanks'", target)
            self.assertEqual(target.read_bytes(), data)
            self.assertEqual(machine.must(["stat", "-c", "%a", "/run/a name with 'blanks'"]), "751\n")
            self.assertEqual(machine.must("head -c 5", stdin=data).encode(errors="surrogateescape"), data[:5])

        with self.subTest("a command that takes too long is killed with its children"):
            with self.assertRaises(TimeoutError):
                machine.run("sleep 2000 & sleep 2000; true", timeout=2)
            machine.until("! " + RUNS.format("sleep 2000"))

        with self.subTest("a host that is killed leaves a port that works"):
            for command, pattern in (("cat /dev/zero; true", "cat /dev/zero"), ("sleep 3000; true", "sleep 3000")):
                host = subprocess.Popen([sys.executable, "-c", ENDLESS, SOURCE, machine.folder, command],
                                        stdout=subprocess.PIPE)
                assert host.stdout
                machine.until(RUNS.format(pattern))
                host.kill()
                host.wait()
                host.stdout.close()
                for _ in range(5):
                    self.assertEqual(machine.must("cat", stdin=b"\xa5" * 40000), "\udca5" * 40000)
                machine.until("! " + RUNS.format(pattern))

    def test_log_outlives_the_guest(self) -> None:
        machine = self.boot()
        machine.must("logger -p daemon.crit -t here 'told '")
        machine.wait_log(r"^daemon\.crit .*here: told $")
        self.assertEqual(machine.must("grep -c 'here: told' /var/log/messages"), "1\n")
        machine.cut()
        self.assertIn("here: told", machine.log())
