"""The emulator's control socket: requests and events as lines of JSON (docs/interop/qmp-spec.txt of QEMU)."""

import json
import socket
import time
from pathlib import Path
from types import TracebackType
from typing import Any

from lab.agent import GuestLost, socket_address


class QmpError(Exception):
    """The emulator refused a request; the text is its own."""


class Qmp:
    """One connection, for the time of a with statement. Others wait until it is closed."""

    def __init__(self, folder: Path, timeout: float = 60) -> None:
        self._deadline = time.monotonic() + timeout
        self._socket = socket.socket(socket.AF_UNIX)
        try:
            with socket_address(folder / "qmp") as address:
                self._socket.connect(address)
        except OSError as error:
            self._socket.close()
            raise GuestLost(f"the machine does not run: {error}") from None
        self._lines = self._socket.makefile("rb")
        self._events: list[dict[str, Any]] = []

    def __enter__(self) -> "Qmp":
        self._read()  # the greeting
        self.do("qmp_capabilities")
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._lines.close()
        self._socket.close()

    def _read(self) -> dict[str, Any]:
        self._socket.settimeout(max(0.01, self._deadline - time.monotonic()))
        line = self._lines.readline()
        if not line:
            raise GuestLost("the machine ended")
        message: dict[str, Any] = json.loads(line)
        return message

    def do(self, command: str, **arguments: Any) -> Any:
        """Gives a command and returns its answer."""
        self._socket.sendall(json.dumps({"execute": command, "arguments": arguments}).encode() + b"\n")
        while True:
            answer = self._read()
            if "event" in answer:
                self._events.append(answer)
            elif "error" in answer:
                raise QmpError(f"{command}: {answer['error']['desc']}")
            else:
                return answer["return"]

    def wait_event(self, name: str, **data: Any) -> dict[str, Any]:
        """Waits for an event of this name that holds these values, also one that came with an earlier answer."""
        while True:
            for event in self._events:
                if event["event"] == name and data.items() <= event.get("data", {}).items():
                    self._events.remove(event)
                    return event.get("data", {})
            answer = self._read()
            if "event" in answer:
                self._events.append(answer)

    def job(self, command: str, name: str, **arguments: Any) -> None:
        """Runs a command that goes on as a job, and waits for the job's end."""
        self.do(command, **{"job-id": name}, **arguments)
        self.wait_event("JOB_STATUS_CHANGE", id=name, status="concluded")
        job = next(job for job in self.do("query-jobs") if job["id"] == name)
        self.do("job-dismiss", id=name)
        if "error" in job:
            raise QmpError(f"{command}: {job['error']}")
