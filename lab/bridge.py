"""Several machines on one bridge, in a user and network namespace of their own, without root."""

import os
import subprocess
from types import TracebackType

from lab.packages import LabError


class Bridge:
    """The bridge br0 with the ports tap0, tap1 ... A machine on it has `tap` in its settings and starts `within`.

    The namespace, and with it the bridge, ends with the with statement, or with our process.
    """

    def __init__(self, ports: int) -> None:
        lines = ["ip link set lo up", "ip link add br0 type bridge", "ip link set br0 up"]
        for port in range(ports):
            lines += [f"ip tuntap add tap{port} mode tap", f"ip link set tap{port} master br0 up"]
        # cat ends when our end of its input does, however we end.
        script = " && ".join([*lines, "echo ready", "exec cat"])
        command = ["unshare", "--user", "--map-root-user", "--net", "sh", "-c", script]
        self._keeper = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        assert self._keeper.stdout and self._keeper.stderr
        if self._keeper.stdout.readline() != "ready\n":
            said = self._keeper.stderr.read().strip()
            self._end()
            raise LabError(f"no bridge: {said}")

    def __enter__(self) -> "Bridge":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._end()

    def _end(self) -> None:
        self._keeper.communicate()

    @property
    def within(self) -> list[str]:
        """The words before a command that is to run where the bridge is."""
        return ["nsenter", f"--target={self._keeper.pid}", "--user", "--net", "--preserve-credentials", "--"]


def usable() -> bool:
    """Whether this machine lets us have a bridge."""
    if not os.access("/dev/net/tun", os.R_OK | os.W_OK):
        return False
    try:
        with Bridge(1):
            return True
    except (LabError, FileNotFoundError):
        return False
