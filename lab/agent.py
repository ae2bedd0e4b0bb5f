"""Runs commands in a guest, through its agent (agent.c tells how the two talk)."""

import contextlib
import fcntl
import os
import secrets
import select
import socket
import struct
import time
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path

PORTS = 4  # commands that may run at once

_MAGIC = 0xA5
_HEADER = struct.Struct("<BBHI")
_PAYLOAD_BYTES = 32760
_WINDOW_BYTES = 262144


class GuestLost(Exception):
    """The machine ended, or its agent left, while a command was to run."""


@contextlib.contextmanager
def socket_address(path: Path) -> Iterator[str]:
    """An address for the socket file `path` that is short enough however long the path is."""
    folder = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
    try:
        yield f"/proc/self/fd/{folder}/{path.name}"
    finally:
        os.close(folder)


@contextlib.contextmanager
def _port(folder: Path, deadline: float) -> Iterator[socket.socket]:
    """A connection to a port of the agent that nobody else uses."""
    while True:
        for number in range(PORTS):
            with open(folder / f"agent{number}.lock", "w") as lock:
                try:
                    fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                except BlockingIOError:
                    continue
                with socket.socket(socket.AF_UNIX) as port:
                    try:
                        with socket_address(folder / f"agent{number}") as address:
                            port.connect(address)
                    except OSError as error:
                        raise GuestLost(f"the machine does not run: {error}") from None
                    yield port
                    return
        if time.monotonic() > deadline:
            raise TimeoutError("all ports of the agent are in use")
        time.sleep(0.05)


def run(folder: Path, arguments: Sequence[str], *, timeout: float, stdin: int | None = None,
        out: Callable[[bytes], object] = lambda data: None, err: Callable[[bytes], object] = lambda data: None) -> int:
    """Runs a program in the guest of a machine's folder, and waits for its end.

    stdin: a descriptor that is read to its end, as far as the program takes it; out, err: get what the program writes,
    as it comes. Returns the exit status, or minus the signal's number. A command that takes longer than `timeout`
    seconds is killed, and TimeoutError raised; GuestLost when there is no guest any more.
    """
    text = b"".join(os.fsencode(argument) + b"\0" for argument in arguments)
    if len(text) > _PAYLOAD_BYTES:
        raise ValueError("the command is too long")
    deadline = time.monotonic() + timeout
    with _port(folder, deadline) as port:
        return _Session(port, text, stdin, {ord("O"): out, ord("E"): err}).run(deadline)


class _Session:
    def __init__(self, port: socket.socket, text: bytes, stdin: int | None,
                 sinks: dict[int, Callable[[bytes], object]]) -> None:
        self._port = port
        self._port.setblocking(False)
        self._id = secrets.randbits(32) | 1
        # The NULs fill up a packet that another session may have left half sent.
        self._to_send = bytearray(_HEADER.size + _PAYLOAD_BYTES) + self._packet(b"R", text)
        self._received = bytearray()
        self._started = False
        self._stdin = stdin
        self._unanswered = 0  # bytes of input that the program has not taken yet
        self._sinks = sinks
        if stdin is None:
            self._to_send += self._packet(b"I", b"")

    def _packet(self, kind: bytes, payload: bytes) -> bytes:
        return _HEADER.pack(_MAGIC, ord(kind), len(payload), self._id) + payload

    def run(self, deadline: float) -> int:
        while True:
            poll = select.poll()
            poll.register(self._port, select.POLLIN | (select.POLLOUT if self._to_send else 0))
            if self._stdin is not None and self._started and self._unanswered + _PAYLOAD_BYTES <= _WINDOW_BYTES:
                poll.register(self._stdin, select.POLLIN)
            ready = dict(poll.poll(max(0, deadline - time.monotonic()) * 1000))
            if not ready:
                raise TimeoutError("the command in the guest took too long")
            if self._stdin is not None and self._stdin in ready:
                self._read_input(self._stdin)
            port = ready.get(self._port.fileno(), 0)
            data = None
            try:
                if port & select.POLLOUT:
                    del self._to_send[:self._port.send(self._to_send)]
                if port & ~select.POLLOUT:
                    data = self._port.recv(1 << 18)
            except OSError:
                raise GuestLost("the machine ended") from None
            status = self._take(data) if data is not None else None
            if status is not None:
                return os.waitstatus_to_exitcode(status)

    def _read_input(self, stdin: int) -> None:
        data = os.read(stdin, _PAYLOAD_BYTES)
        self._to_send += self._packet(b"I", data)
        self._unanswered += len(data)
        if not data:
            self._stdin = None

    def _take(self, data: bytes) -> int | None:
        """Takes what has come; returns the wait status when the command has ended."""
        if not data:
            raise GuestLost("the machine ended")
        self._received += data
        if not self._started:
            hello = self._packet(b"H", b"")
            at = self._received.find(hello)
            if at < 0:
                return None
            del self._received[:at + len(hello)]  # what came before belongs to a session that was cut off
            self._started = True
        at = 0
        status = None
        while status is None and len(self._received) - at >= _HEADER.size:
            magic, kind, size, session = _HEADER.unpack_from(self._received, at)
            if magic != _MAGIC or session != self._id:
                raise GuestLost("the agent lost step")
            if len(self._received) - at - _HEADER.size < size:
                break
            payload = bytes(self._received[at + _HEADER.size:at + _HEADER.size + size])
            at += _HEADER.size + size
            if kind == ord("X"):
                status = int.from_bytes(payload, "little")
            elif kind == ord("A"):
                self._unanswered -= int.from_bytes(payload, "little")
            else:
                self._sinks[kind](payload)
        del self._received[:at]
        return status
