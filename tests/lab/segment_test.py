"""The network segment, from the side of a client on it."""

from lab.segment import BROADCAST, Datagram, Neighbour, Segment, mac_text
from scenario import Scenario

CLIENT_MAC = "02:00:5e:10:00:01"


class OnTheSegment(Scenario):
    def test_frames_go_in_and_out(self) -> None:
        machine = self.boot(net="none")
        own = machine.settings.mac(0)
        with Segment(machine) as segment:
            with self.subTest("a guest without an address hears a broadcast from a spoofed source"):
                machine.must("nc -k -u -l -p 9999 >/run/heard 2>&1 </dev/null &")
                machine.until("netstat -lun | grep -q :9999")
                call = Datagram(BROADCAST, "02:de:ad:be:ef:01", "255.255.255.255", "1.1.1.1", 9999, 1234, b"who?\0\xff")
                for _ in range(3):
                    segment.send(call.frame())
                machine.until("test -s /run/heard")
                self.assertIn("who?\0\udcff", machine.must("cat /run/heard; killall nc"))

            with self.subTest("a guest's frames carry its MAC, and it talks to a neighbour"):
                machine.must("ifconfig eth0 10.9.8.7 netmask 255.255.255.0 up")
                neighbour = Neighbour(CLIENT_MAC, "10.9.8.1")
                machine.must("ping -c 1 -W 20 10.9.8.1 >/run/ping 2>&1 &")
                asked = []

                def serve(frame: bytes) -> bool:
                    answer = neighbour.answer(frame)
                    if answer is None:
                        return False
                    asked.append((mac_text(frame[6:12]), frame[12:14]))
                    segment.send(answer)
                    return frame[12:14] == b"\x08\x00"

                segment.expect(serve, 60, "ping")
                self.assertEqual(asked, [(own, b"\x08\x06"), (own, b"\x08\x00")])
                machine.until("grep -q ' 0% packet loss' /run/ping")

            with self.subTest("a datagram comes out whole, twice when it was sent twice"):
                send = "for i in 1 2; do printf 'two words' | nc -u -w 1 10.9.8.1 1234; done"
                machine.must(f"arp -s 10.9.8.1 {CLIENT_MAC}; {send}")
                for _ in range(2):
                    heard = segment.expect(Datagram.parse, 60, "datagram")
                    self.assertEqual((heard.source_mac, heard.to_mac, heard.source, heard.to_port, heard.payload),
                                     (own, CLIENT_MAC, "10.9.8.7", 1234, b"two words"))

            with self.subTest("a pulled cable carries nothing, and the guest sees it"):
                machine.unlink()
                machine.until("grep -q 0 /sys/class/net/eth0/carrier")
                machine.run("printf lost | nc -u -w 1 10.9.8.1 1234")
                with self.assertRaises(TimeoutError):
                    segment.expect(Datagram.parse, 2)
                machine.link()
                machine.until("grep -q 1 /sys/class/net/eth0/carrier")
                machine.must("printf back | nc -u -w 1 10.9.8.1 1234")
                self.assertEqual(segment.expect(Datagram.parse, 60).payload, b"back")
