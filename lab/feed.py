"""The update server: a feed with one patch, for machines on a bridge."""

import contextlib
import http.server
import socket
import threading
from collections.abc import Iterator
from pathlib import Path

from lab.bridge import Bridge
from lab.firmware import BUILD_NUMBER, UNIQUE

_PORT = 80
_FEED = "/autoupdate/genRSS.php"
URL = f"http://{Bridge.ADDRESS}{_FEED}"  # what the appliance's key rss_server_ssl has to say


def feed_text(patch: Path, unique: str, build: str) -> str:
    return (f"<rss>\n<channel>\n<item>\n<MajorVer>7</MajorVer>\n<MinorVer>2</MinorVer>\n<BuildNum>{build}</BuildNum>\n"
            f"<mUnique>{unique}</mUnique>\n<mLink>http://{Bridge.ADDRESS}/{patch.name}</mLink>\n"
            "<mCheckSum>0</mCheckSum>\n</item>\n</channel>\n</rss>\n")


@contextlib.contextmanager
def served(bridge: Bridge, patch: Path, unique: str = UNIQUE, build: str = BUILD_NUMBER) -> Iterator[list[str]]:
    """Serves for the time of a with statement. Gives the list of what is asked for, which grows."""
    asked: list[str] = []

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self) -> None:
            asked.append(self.path)
            if self.path.partition("?")[0] == _FEED:
                body = feed_text(patch, unique, build).encode()
            elif self.path == f"/{patch.name}":
                body = patch.read_bytes()
            else:
                self.send_error(404)
                return
            self.send_response(200)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, format: str, *arguments: object) -> None:
            pass

    server = http.server.ThreadingHTTPServer((Bridge.ADDRESS, _PORT), Handler, bind_and_activate=False)
    server.socket.close()
    server.socket = bridge.tcp()
    server.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    server.socket.bind((Bridge.ADDRESS, _PORT))
    server.server_activate()
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        yield asked
    finally:
        server.shutdown()
        server.server_close()
