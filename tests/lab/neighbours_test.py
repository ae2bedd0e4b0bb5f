"""Two appliances on one segment."""

import subprocess
from concurrent.futures import ThreadPoolExecutor

from appliance import DISK, OnABridge
from lab import road
from lab.machine import wait_for


class Neighbours(OnABridge):
    def test_both_are_configured_at_once(self) -> None:
        both = [self.appliance(DISK, number=number) for number in (1, 2)]
        for one in both:
            self.assertEqual(road.find(one)["status"], 2)
        scan = [*self.bridge.within, str(road.NORVFIND), "scan", "--interface", "br0", "--seconds", "8"]
        wait_for(lambda: all(one.mac in subprocess.run(scan, text=True, capture_output=True).stdout for one in both),
                      road.PATIENCE, "both to be seen at once")
        with ThreadPoolExecutor(2) as threads:
            told = list(threads.map(road.set_network, both))
        for one, answer in zip(both, told):
            self.assertEqual((answer["mac"], answer["address"], answer["hostname"]),
                             (one.mac, one.address, one.hostname))
        both[0].machine.must(f"ping -c 1 -W 60 {both[1].address}")
        patch = self.patch()
        with ThreadPoolExecutor(2) as threads:
            ends = list(threads.map(lambda one: road.install(one, "upload", "not_install", patch), both))
        self.assertEqual([end["hostname"] for end in ends], [one.hostname for one in both])
