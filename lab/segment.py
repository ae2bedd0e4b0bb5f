"""The network segment that a machine's port is on: every frame as it passes, and any frame that one likes to send."""

import socket
import struct
import time
from collections.abc import Callable
from dataclasses import dataclass
from types import TracebackType
from typing import TypeVar

from lab.agent import socket_address
from lab.machine import Machine

T = TypeVar("T")

BROADCAST = "ff:ff:ff:ff:ff:ff"
IPV4, ARP = 0x0800, 0x0806
_ICMP, _UDP = 1, 17


class Segment:
    """A station on the segment. Frames are Ethernet frames without their check sum. There is one station to a port."""

    def __init__(self, machine: Machine, port: int = 0) -> None:
        self._machine = machine
        self._wire = machine.folder / f"wire{port}"
        self._own = machine.folder / f"wire{port}.host"
        self._own.unlink(missing_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        with socket_address(self._own) as address:
            self._socket.bind(address)

    def __enter__(self) -> "Segment":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._socket.close()
        self._own.unlink(missing_ok=True)

    def send(self, frame: bytes) -> None:
        with socket_address(self._wire) as address:
            self._socket.sendto(frame, address)

    def receive(self, seconds: float) -> bytes | None:
        """The next frame, or None when none comes in time."""
        self._socket.settimeout(max(seconds, 0.001))
        try:
            return self._socket.recv(65536)
        except TimeoutError:
            return None

    def expect(self, look: Callable[[bytes], T | None], seconds: float, what: str = "frame") -> T:
        """Hands every frame to `look` until it returns something true, which is the result."""
        deadline = time.monotonic() + seconds
        while (left := deadline - time.monotonic()) > 0:
            frame = self.receive(left)
            found = look(frame) if frame is not None else None
            if found:
                return found
        raise TimeoutError(f"no {what} on the segment in {seconds} seconds")


def mac_bytes(mac: str) -> bytes:
    return bytes.fromhex(mac.replace(":", ""))


def mac_text(mac: bytes) -> str:
    return mac.hex(":")


def ethernet(to: str, source: str, kind: int, payload: bytes) -> bytes:
    """A frame, filled up to the least length that Ethernet has."""
    return (mac_bytes(to) + mac_bytes(source) + struct.pack(">H", kind) + payload).ljust(60, b"\0")


def checksum(data: bytes) -> int:
    """The Internet check sum (RFC 1071)."""
    even = data + bytes(len(data) % 2)
    total = sum(int.from_bytes(even[at:at + 2], "big") for at in range(0, len(even), 2))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def ipv4(to: str, source: str, protocol: int, payload: bytes) -> bytes:
    head = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 0, 0, 64, protocol, 0, socket.inet_aton(source),
                       socket.inet_aton(to))
    return head[:10] + struct.pack(">H", checksum(head)) + head[12:] + payload


@dataclass(frozen=True)
class Datagram:
    """A UDP packet with all its addresses."""

    to_mac: str
    source_mac: str
    to: str
    source: str
    to_port: int
    source_port: int
    payload: bytes

    def frame(self) -> bytes:
        size = 8 + len(self.payload)
        pseudo = socket.inet_aton(self.source) + socket.inet_aton(self.to) + struct.pack(">HH", _UDP, size)
        head = struct.pack(">HHH", self.source_port, self.to_port, size)
        total = checksum(pseudo + head + b"\0\0" + self.payload) or 0xFFFF
        udp = head + struct.pack(">H", total) + self.payload
        return ethernet(self.to_mac, self.source_mac, IPV4, ipv4(self.to, self.source, _UDP, udp))

    @classmethod
    def parse(cls, frame: bytes) -> "Datagram | None":
        """None when the frame carries no whole UDP packet, or one with a wrong check sum."""
        if len(frame) < 42 or frame[12:14] != b"\x08\x00" or frame[14] >> 4 != 4 or frame[23] != _UDP:
            return None
        at = 14 + (frame[14] & 15) * 4
        source, to = frame[26:30], frame[30:34]
        source_port, to_port, size, total = struct.unpack_from(">HHHH", frame, at)
        udp = frame[at:at + size]
        if len(udp) < max(size, 8) or total and checksum(source + to + struct.pack(">HH", _UDP, size) + udp):
            return None
        return cls(mac_text(frame[:6]), mac_text(frame[6:12]), socket.inet_ntoa(to), socket.inet_ntoa(source), to_port,
                   source_port, udp[8:])


@dataclass(frozen=True)
class Neighbour:
    """A station with an address, as far as a guest needs one to talk to: it answers ARP and pings."""

    mac: str
    address: str

    def answer(self, frame: bytes) -> bytes | None:
        """The frame to send back, or None."""
        own = socket.inet_aton(self.address)
        asker = mac_text(frame[6:12])
        if frame[12:14] == b"\x08\x06" and frame[20:22] == b"\x00\x01" and frame[38:42] == own:
            body = frame[14:20] + b"\x00\x02" + mac_bytes(self.mac) + own + frame[22:32]
            return ethernet(asker, self.mac, ARP, body)
        if frame[12:14] == b"\x08\x00" and frame[23] == _ICMP and frame[30:34] == own and frame[34] == 8:
            size, = struct.unpack_from(">H", frame, 16)
            echo = b"\0\0\0\0" + frame[38:14 + size]
            echo = echo[:2] + struct.pack(">H", checksum(echo)) + echo[4:]
            return ethernet(asker, self.mac, IPV4, ipv4(socket.inet_ntoa(frame[26:30]), self.address, _ICMP, echo))
        return None
