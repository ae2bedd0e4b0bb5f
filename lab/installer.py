"""The web installer from outside: posts what a browser posts, follows the progress, and reads the errors."""

import contextlib
import http.client
import json
import secrets
import socket
import time
import urllib.parse
from collections.abc import Callable, Iterator, Mapping
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from lab.agent import GuestLost
from lab.machine import Machine, wait_for
from lab.packages import LabError

_ANSWER_SECONDS = 600  # an upload is answered when the disks are formatted and all of it has come
_PIECE_BYTES = 1 << 20
INSTALL_SECONDS = 900
SUCCESS = "Success"


@dataclass
class Refused(Exception):
    """The installer's own error: the two words that a page translates, and the code."""

    section: str
    key: str
    line: int

    def __str__(self) -> str:
        return f"{self.section}/{self.key} ({self.line})"


def body_of(answer: str) -> dict[str, Any]:
    """The data of an answer, or of the progress file, which is one with its header. Raises Refused for an error."""
    try:
        told = json.loads(answer.rpartition("\r\n\r\n")[2])
    except ValueError:
        raise LabError(f"this is no answer of the installer: {answer!r}") from None
    if not told["success"]:
        error = told.get("errinfo", {})
        raise Refused(error.get("sec", ""), error.get("key", ""), error.get("line", 0))
    data: dict[str, Any] = told.get("data", {})
    return data


def form(fields: Mapping[str, str], patch: Path, boundary: str) -> tuple[int, Iterator[bytes]]:
    """A form with a file, multipart/form-data of RFC 7578: its length, and its pieces."""
    text = "".join(f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n{value}\r\n'
                   for name, value in fields.items())
    text += (f'--{boundary}\r\nContent-Disposition: form-data; name="filename"; filename="{patch.name}"\r\n'
             "Content-Type: application/octet-stream\r\n\r\n")
    head, tail = text.encode(), f"\r\n--{boundary}--\r\n".encode()

    def pieces() -> Iterator[bytes]:
        yield head
        with open(patch, "rb") as file:
            while piece := file.read(_PIECE_BYTES):
                yield piece
        yield tail

    return len(head) + patch.stat().st_size + len(tail), pieces()


class Installer:
    """The web server of one appliance. `connect` gives a connected socket."""

    def __init__(self, machine: Machine, connect: Callable[[], socket.socket]) -> None:
        self._machine = machine
        self._connect = connect
        self._clients: set[http.client.HTTPConnection] = set()

    def ask(self, program: str, query: Mapping[str, str] | None = None, body: Any = None, length: int = 0,
            kind: str = "") -> str:
        """Asks a program of the web server and returns the body of its answer. With a body it is a POST."""
        path = f"/cgi-bin/{program}" + (f"?{urllib.parse.urlencode(query)}" if query else "")
        return self.get(path, body, length, kind)

    def restart(self) -> None:
        """Has the machine restarted, as the page does."""
        body_of(self.get("/cgi-bin/restart.cgi", b"", more={"X-Install-Page": "1"}))

    def get(self, path: str, body: Any = None, length: int = 0, kind: str = "",
            more: Mapping[str, str] | None = None) -> str:
        """The same for any path; `more` fields of the head."""
        client = http.client.HTTPConnection("appliance", timeout=_ANSWER_SECONDS)
        client.sock = self._connect()
        client.sock.settimeout(_ANSWER_SECONDS)
        self._clients.add(client)
        with contextlib.closing(client):
            if body is None:
                client.request("GET", path)
            else:
                # An answer may come before all is sent, and the connection go.
                with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                    client.request("POST", path, body,
                                   {"Content-Length": str(length), "Content-Type": kind, **(more or {})})
            try:
                text = client.getresponse().read().decode(errors="replace")
            except http.client.HTTPException as error:
                raise LabError(f"{path} was not answered: {error!r}") from None
        self._clients.discard(client)
        return text

    def hang_up(self) -> None:
        """Ends requests that nobody answers any more."""
        for client in list(self._clients):
            with contextlib.suppress(OSError, AttributeError):
                client.sock.shutdown(socket.SHUT_RDWR)
        self._clients.clear()

    def is_idle(self) -> bool:
        """Whether the web server answers, and neither an install nor a change of settings is at work.

        Raises GuestLost when the machine is off, so that nobody waits for it.
        """
        if not self._machine.runs:
            raise GuestLost("the machine is off")
        try:
            body_of(self.ask("lock_check.cgi"))
        except (OSError, LabError, Refused):
            return False
        return True

    def start(self, status: str, fields: Mapping[str, str], patch: Path | None = None) -> None:
        """Asks for an install over what the status word says; with a patch it is sent along. Raises Refused."""
        query = {"status": status, "utctime": str(int(time.time()))}
        if patch is None:
            body = urllib.parse.urlencode(fields).encode()
            answer = self.ask("install.cgi", query, body, len(body), "application/x-www-form-urlencoded")
        else:
            boundary = f"----FormBoundary{secrets.token_hex(8)}"
            length, pieces = form(fields, patch, boundary)
            answer = self.ask("install.cgi", query | {"upload": "true"}, pieces, length,
                              f"multipart/form-data; boundary={boundary}")
        body_of(answer)

    def send_no_file(self, status: str) -> None:
        """An upload whose form has no file in it. Raises Refused."""
        form = b'--empty\r\nContent-Disposition: form-data; name="hostname"\r\n\r\nattic\r\n--empty--\r\n'
        body_of(self.ask("install.cgi", {"status": status, "upload": "true"}, form, len(form),
                         "multipart/form-data; boundary=empty"))

    def send_half(self, status: str, patch: Path) -> None:
        """Begins an upload, and goes away in the middle of it, once the installer is at work."""
        length, pieces = form({}, patch, "half")
        sent = b"".join(pieces)
        head = (f"POST /cgi-bin/install.cgi?status={status}&upload=true HTTP/1.1\r\nHost: appliance\r\n"
                f"Content-Type: multipart/form-data; boundary=half\r\nContent-Length: {length}\r\n\r\n")
        with self._connect() as client:
            client.sendall(head.encode() + sent[:length // 2])
            wait_for(lambda: not self.is_idle(), _ANSWER_SECONDS, "the installer to take the upload")

    def recover(self) -> None:
        """Has the flash recovered from the disks. Raises Refused."""
        body = f"utctime={int(time.time())}".encode()
        body_of(self.ask("recover.cgi", None, body, len(body), "application/x-www-form-urlencoded"))

    def progress(self) -> dict[str, Any]:
        """What the page is told of the progress; nothing when there is none, or it is just written. Raises Refused."""
        text = self.ask("progress.cgi")
        return body_of(text) if text else {}

    def _text(self) -> str:
        """The progress file, past the web server, so that polling costs the guest little."""
        return self._machine.run("cat /tmp/install.progress").out

    def install(self, status: str, fields: Mapping[str, str], patch: Path | None = None, *,
                on_stage: Callable[[str], object] = lambda stage: None, seconds: float = INSTALL_SECONDS
                ) -> dict[str, Any]:
        """A whole install: `start`, and the progress up to its end, whose data are the result.

        The one before may still be about to end: that is waited for.
        on_stage: gets each stage when it begins. Raises Refused; TimeoutError; what on_stage raises.
        """
        wait_for(self.is_idle, seconds, "the appliance to take an install")
        before = self._text()  # of the install before this one
        with ThreadPoolExecutor(1) as thread, contextlib.ExitStack() as last:
            last.callback(self.hang_up)
            request = thread.submit(self.start, status, fields, patch)
            stage = ""
            deadline = time.monotonic() + seconds
            while time.monotonic() < deadline:
                if request.done():
                    request.result()
                    before = ""
                text = self._text()
                data = body_of(text) if text and text != before else {}
                if data.get("stage", stage) != stage:
                    stage = data["stage"]
                    on_stage(stage)
                if stage == SUCCESS:
                    return data
                time.sleep(0.3)
        raise TimeoutError(f"the install did not end in {seconds:.0f} seconds; it stands at {stage or 'its begin'}")
