"""Pages and uploads through the guest's web server."""

import http.client
import urllib.parse
import urllib.request
from collections.abc import Iterator

from lab.machine import Machine, wait_for
from scenario import Scenario

COUNT_CGI = """#!/bin/sh
# Counts the body, and tells how far the machine's free memory fell meanwhile.
free() { sed -n 's/^MemAvailable: *\\([0-9]*\\) kB/\\1/p' /proc/meminfo; }
before=$(free)
(while sleep 0.2; do free; done >/run/free) &
bytes=$(wc -c)
kill $!
printf 'Content-Type: text/plain\\r\\n\\r\\n%s %s %s\\n' "$bytes" "$before" "$(sort -n /run/free | head -n1)"
"""

REFUSE_CGI = """#!/bin/sh
printf 'Status: 403 Forbidden\\r\\nContent-Type: text/plain\\r\\n\\r\\nnot now\\n'
"""

BODY_BYTES = 400 << 20


class Web(Scenario):
    def boot_with(self, name: str, program: str) -> tuple[Machine, str]:
        machine = self.create()
        path = machine.folder / "overlay/usr/lib/norv/cgi-bin" / name
        path.parent.mkdir(parents=True)
        path.write_text(program)
        path.chmod(0o755)
        machine.boot()
        host = urllib.parse.urlsplit(machine.page()).netloc
        wait_for(lambda: answers(host), 60, "the page")
        return machine, host

    def test_large_body_at_flat_memory(self) -> None:
        machine, host = self.boot_with("count.cgi", COUNT_CGI)

        def body() -> Iterator[bytes]:
            piece = bytes(range(256)) * 4096
            for _ in range(BODY_BYTES // len(piece)):
                yield piece

        client = http.client.HTTPConnection(host, timeout=300)
        client.request("POST", "/cgi-bin/count.cgi", body(), {"Content-Length": str(BODY_BYTES)})
        answer = client.getresponse()
        self.assertEqual(answer.status, 200)
        counted, before, least = map(int, answer.read().split())
        self.assertEqual(counted, BODY_BYTES)
        self.assertLess(before - least, 32 << 10, "KiB of memory in use at most")
        self.assertEqual(machine.must("ls /tmp"), "", "nothing is stored on the way")

    def test_early_refusal_reaches_the_client(self) -> None:
        _, host = self.boot_with("refuse.cgi", REFUSE_CGI)
        client = http.client.HTTPConnection(host, timeout=60)
        client.putrequest("POST", "/cgi-bin/refuse.cgi")
        client.putheader("Content-Length", str(BODY_BYTES))
        client.endheaders(b"x" * 65536)
        answer = client.getresponse()
        self.assertEqual((answer.status, answer.read()), (403, b"not now\n"))



def answers(host: str) -> bool:
    try:
        with urllib.request.urlopen(f"http://{host}/", timeout=20) as answer:
            return bool(answer.status == 200)
    except OSError:
        return False
