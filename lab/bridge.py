"""Several machines on one bridge, in a user and network namespace of their own, without root."""

import contextlib
import os
import socket
import subprocess
import sys
import threading
from types import TracebackType

from lab.packages import LabError

# Runs where the bridge is: for each byte that comes, a new socket goes back.
_SOCKETS = """
import socket, sys
with socket.socket(fileno=int(sys.argv[1])) as out:
    while out.recv(1):
        with socket.socket() as made:
            socket.send_fds(out, [b"x"], [made.fileno()])
"""


class Bridge:
    """The bridge br0 with the ports tap0, tap1 ... A machine on it has `tap` in its settings and starts `within`.

    The namespace, and with it the bridge, ends with the with statement, or with our process.
    """

    ADDRESS = "10.77.0.1"  # our own there, in a network of 24 bits

    def __init__(self, ports: int) -> None:
        lines = ["ip link set lo up", "ip link add br0 type bridge", f"ip addr add {self.ADDRESS}/24 dev br0",
                 "ip link set br0 up"]
        for port in range(ports):
            lines += [f"ip tuntap add tap{port} mode tap", f"ip link set tap{port} master br0 up"]
        # cat ends when our end of its input does, however we end.
        script = " && ".join([*lines, "echo ready", "exec cat"])
        command = ["unshare", "--user", "--map-root-user", "--net", "sh", "-c", script]
        self._keeper = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        self._sockets: socket.socket | None = None
        self._maker: subprocess.Popen[bytes] | None = None  # of sockets, at the other end
        self._lock = threading.Lock()
        assert self._keeper.stdout and self._keeper.stderr
        if self._keeper.stdout.readline() != "ready\n":
            said = self._keeper.stderr.read().strip()
            self._end()
            raise LabError(f"no bridge: {said} (it takes user namespaces, and /dev/net/tun for everybody)")

    def __enter__(self) -> "Bridge":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._end()

    def _end(self) -> None:
        if self._sockets is not None and self._maker is not None:
            self._sockets.close()
            self._maker.wait()
        self._keeper.communicate()

    @property
    def within(self) -> list[str]:
        """The words before a command that is to run where the bridge is."""
        return ["nsenter", f"--target={self._keeper.pid}", "--user", "--net", "--preserve-credentials", "--"]

    def tcp(self) -> socket.socket:
        """A TCP socket that is on the bridge, though we are not."""
        with self._lock:
            if self._sockets is None:
                self._sockets, theirs = socket.socketpair()
                with theirs:
                    self._maker = subprocess.Popen([*self.within, sys.executable, "-c", _SOCKETS, str(theirs.fileno())],
                                                   pass_fds=(theirs.fileno(),))
            self._sockets.sendall(b"x")
            _, files, _, _ = socket.recv_fds(self._sockets, 1, 1)
        if not files:
            raise LabError("the bridge is gone")
        return socket.socket(fileno=files[0])

    def forward(self, address: str, port: int) -> int:
        """A port of this machine, on its loopback address alone, that leads to a port on the bridge."""
        listener = socket.create_server(("127.0.0.1", 0))
        threading.Thread(target=self._forward, args=(listener, (address, port)), daemon=True).start()
        return int(listener.getsockname()[1])

    def _forward(self, listener: socket.socket, target: tuple[str, int]) -> None:
        while True:
            near, _ = listener.accept()
            threading.Thread(target=self._join, args=(near, target), daemon=True).start()

    def _join(self, near: socket.socket, target: tuple[str, int]) -> None:
        with near, self.tcp() as far, contextlib.suppress(OSError):
            far.connect(target)
            back = threading.Thread(target=_pump, args=(far, near), daemon=True)
            back.start()
            _pump(near, far)
            back.join()


def _pump(source: socket.socket, target: socket.socket) -> None:
    with contextlib.suppress(OSError):
        while data := source.recv(1 << 16):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)


def usable() -> bool:
    """Whether this machine lets us have a bridge."""
    if not os.access("/dev/net/tun", os.R_OK | os.W_OK):
        return False
    try:
        with Bridge(1):
            return True
    except (LabError, FileNotFoundError):
        return False
