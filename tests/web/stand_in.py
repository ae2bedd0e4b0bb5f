"""Plays the machine's web server for the install page: the page as it is, and answers of programs from a table."""

import json
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from typing import Any

WEB = Path(__file__).resolve().parent.parent.parent / "web"
_KINDS = {".html": "text/html; charset=utf-8", ".css": "text/css", ".js": "text/javascript", ".svg": "image/svg+xml"}

LOCKED = {"success": False, "errinfo": {"sec": "error", "key": "error_apply_lock"}}
FREE: dict[str, Any] = {"success": True, "data": {}}


def stage(word: str, **more: str) -> dict[str, Any]:
    return {"success": True, "data": {"stage": word, **more}}


def error(sec: str, key: str, line: int) -> dict[str, Any]:
    return {"success": False, "data": {}, "errinfo": {"sec": sec, "key": key, "line": line}}


def disk(number: int, size: int, erased: bool = True) -> dict[str, Any]:
    return {"name": f"sd{chr(96 + number)}", "place": f"Internal HDD{number}", "product": "EXAMPLE DISK", "bytes": size,
            "erased": erased}


def machine(status: str, **more: object) -> dict[str, Any]:
    return {"host": "norvstation", "model": "NS0400", "version": "7.2-64500", "status": status, "found": "",
            "memory_test": "", "addresses": ["192.168.1.20", "192.168.2.20"],
            "disks": [disk(number, 4000 * 10 ** 9) for number in (1, 2, 3, 4)], **more}


class StandIn:
    """What each program answers: an object, a text that goes out as it is, "" for 204, or None for a server that hangs
    up. What was posted is kept.
    """

    def __init__(self, url: str) -> None:
        self.url = url
        self.posts: list[tuple[str, str, bytes]] = []  # path with the query, content type, body
        self.gates: dict[str, threading.Event] = {}  # an answer waits for its gate
        self.answers: dict[str, Any] = {}
        self.reset()

    def reset(self, **answers: Any) -> None:
        """An idle machine with blank disks, but for these answers."""
        self.release()
        self.posts, self.gates = [], {}
        self.answers = {"session": {"lang": "enu"}, "lock_check": FREE, "progress": "",
                        "machine": machine("not_install"),
                        "version": {"success": True, "data": {"version": "NOS 7.2-64570"}},
                        "install": {"success": True, "data": {}, "redirectIP": ""}, "recover": FREE,
                        "clean_button_flags": {"success": True}, "start_telnet": {"success": True},
                        "restart": {"success": True}, **answers}

    def hold(self, *names: str) -> None:
        """The answers of these programs wait for `release`."""
        self.gates |= {name: threading.Event() for name in names}

    def release(self) -> None:
        for gate in self.gates.values():
            gate.set()

    def at_work(self, word: str, **more: str) -> None:
        self.answers |= {"lock_check": LOCKED, "progress": stage(word, **more)}

    def ended(self, progress: Any) -> None:
        self.answers |= {"progress": progress, "lock_check": FREE}


class _Handler(BaseHTTPRequestHandler):
    stand_in: StandIn

    def do_GET(self) -> None:
        path = self.path.partition("?")[0]
        if path.startswith("/cgi-bin/"):
            return self._answer(path)
        file = WEB / (path[1:] or "index.html")
        if file.suffix not in _KINDS or not file.is_file():
            return self._send(404, "text/plain", b"")
        data = file.read_bytes().replace(b'data-poll-ms="2000"', b'data-poll-ms="60"')
        self._send(200, _KINDS[file.suffix], data)

    def do_POST(self) -> None:
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.stand_in.posts.append((self.path, self.headers.get("Content-Type", ""), body))
        self._answer(self.path.partition("?")[0])

    def _answer(self, path: str) -> None:
        name = path.removeprefix("/cgi-bin/").removesuffix(".cgi")
        gate = self.stand_in.gates.get(name)
        if gate is not None:
            gate.wait(600)
        answer = self.stand_in.answers[name]
        if answer is None:
            self.close_connection = True
        elif answer == "":
            self._send(204, "text/html", b"")
        else:
            self._send(200, "text/html; charset=UTF-8",
                       (answer if isinstance(answer, str) else json.dumps(answer)).encode())

    def _send(self, status: int, kind: str, data: bytes) -> None:
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Cache-Control", "no-store")
        if status != 204:
            self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def log_message(self, *_: object) -> None:
        pass


@contextmanager
def stand_in() -> Iterator[StandIn]:
    handler = type("Handler", (_Handler,), {})
    server = ThreadingHTTPServer(("127.0.0.1", 0), handler)
    server.daemon_threads = True
    server.handle_error = lambda *_: None  # type: ignore[method-assign]  # a browser that goes away is none
    one = handler.stand_in = StandIn(f"http://127.0.0.1:{server.server_address[1]}/")
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        yield one
    finally:
        one.reset()
        server.shutdown()
        server.server_close()
