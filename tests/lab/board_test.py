"""The board behind /dev/norvbios, and what else the appliance's kernel tells: files, ports, arrays."""

import errno
import struct
from pathlib import Path
from typing import Any

from lab.image import WORK
from lab.machine import Machine, wait_for
from lab.packages import tool
from scenario import Scenario

EVENT_GET = "0xc0044b02"
GPIO_WRITE = "0xc0044bce"
MICRO_READ = "0xc0014b30"
MD_STATUS = "0x80040961"
MD_REBUILD = "0x80180960"

NORMAL, DEGRADED, CRASHED, NOT_STARTED = range(4)


class Board(Scenario):
    def boot(self, *disks: str, **settings: Any) -> Machine:
        machine = super().boot(*disks, **settings)
        program = WORK / "request"
        source = Path(__file__).with_name("request.c")
        if not program.exists() or program.stat().st_mtime < source.stat().st_mtime:
            tool("cc", "-std=gnu11", "-O2", "-Wall", "-Wextra", "-Werror", "-static", "-s", "-o", str(program),
                 str(source))
        machine.put(program, "/bin/request")
        return machine

    def transcript(self, machine: Machine) -> list[str]:
        return machine.must("cat /dev/norvboard").splitlines()

    def status(self, machine: Machine, array: str) -> int:
        return int(struct.unpack("<i", bytes.fromhex(machine.must(f"request /dev/{array} {MD_STATUS} 55555555")))[0])

    def rebuild(self, machine: Machine, array: str) -> tuple[int, ...]:
        return struct.unpack("<3q", bytes.fromhex(machine.must(f"request /dev/{array} {MD_REBUILD} {'55' * 24}")))

    def test_events_and_transcript(self) -> None:
        machine = self.boot()
        get = f"/dev/norvbios {EVENT_GET} 00000000"
        self.assertEqual(machine.run(f"request -w 0 {get}").status, 255, "readable without an event")
        self.assertEqual(machine.run(f"request {get}").status, errno.EAGAIN)
        raised = machine.must(f"request -w 30000 {get} & sleep 0.3; echo event 0x223 0x2800 >/dev/norvboard; wait")
        self.assertEqual(raised, "23020000\n")
        self.assertEqual(machine.must(f"request -w 0 {get}"), "00280000\n")
        # A button that is wired to an event wakes whoever waits, though no scenario line was written.
        machine.must("echo wire power 0x30 >/dev/norvboard")
        woken = f"request -w 30000 {get} & sleep 0.3; request /dev/norvbios 0xc0044b07 00000000 >/dev/null; wait"
        self.assertEqual(machine.must(woken), "30000000\n")
        machine.must("echo press copy >/dev/norvboard")
        self.assertEqual(machine.must(f"request /dev/norvbios {MICRO_READ} {'00' * 8}08000000"), "60" + "00" * 7 +
                         "01000000\n")
        self.assertEqual(self.transcript(machine), [
            "0xc0044b02 event_get = -EAGAIN", "0xc0044b02 event_get -> 0x223", "0xc0044b02 event_get -> 0x2800",
            "0xc0044b07 button_power", "0xc0044b02 event_get -> 0x30", '0xc0014b30 micro_read 8 -> "`" 1'])

    def test_requests_that_are_no_good(self) -> None:
        machine = self.boot()
        for code, record, error in (("0xc0044bff", "00000000", errno.ENOTTY), (GPIO_WRITE, "bad", errno.EFAULT),
                                    ("0xc0044b10", "bad", errno.EFAULT), ("0xc0014b21", "bad", errno.EFAULT),
                                    (GPIO_WRITE, "0001000001000000", errno.EINVAL)):
            with self.subTest(code=code, record=record):
                self.assertEqual(machine.run(f"request /dev/norvbios {code} {record}").status, error)
        self.assertEqual(machine.must("/usr/libexec/lab/board_check --change /dev/norvbios").splitlines()[-1],
                         "0 of 33 requests odd or failed")

    def test_kernel_files(self) -> None:
        machine = self.boot(ports=2)
        mac = [machine.settings.mac(port).replace(":", "") for port in range(2)]
        table = (("norv_hw_version", "NS0400", "VirtualNOS"), ("norv_hw_revision", "r1", "r23"),
                 ("norv_serial", "NS04002400001", "1234567890ABCDEF"), ("norv_mac_address1", mac[0], "0123456789ab"),
                 ("norv_mac_address2", mac[1], "ba9876543210"), ("norv_mac_address3", "", ""),
                 ("norv_internal_netif_num", "2", "4"), ("norv_swap_flag", "0", "1"), ("norv_install_flag", "0", "1"),
                 ("norv_vender_format_version", "1", "2"))
        for name, first, then in table:
            with self.subTest(name=name):
                path = f"/proc/sys/kernel/{name}"
                self.assertEqual(machine.must(f"cat {path}"), first + "\n")
                machine.must(f"printf %s '{then}' >{path}" if then else "true")
                self.assertEqual(machine.must(f"cat {path}"), then + "\n")
        self.assertEqual(self.transcript(machine), [f"{name} {then}" for name, _, then in table if then])
        ports = "/proc/sys/kernel/norv_unsupported_sfp_notify"
        for written in ("7 2 ", "-1 31"):
            machine.must(f"printf '%s' '{written}' >{ports}")
        for refused in ("1 32", "1 -1", "1", "x"):
            self.assertNotEqual(machine.run(f"printf '%s' '{refused}' >{ports}").status, 0, refused)
        self.assertEqual(machine.must(f"cat {ports}").split(), ["0", "0", "7", *["0"] * 28, "-1"])

    def test_disk_ports(self) -> None:
        machine = self.boot("64M", "64M")
        name = "/sys/class/scsi_host/host{}/norv_diskname_trans"
        thaw = "/sys/class/scsi_host/host{}/norv_port_thaw"
        self.assertEqual(machine.must("cat /sys/class/scsi_host/*/norv_port_thaw"), "1\n" * 4)
        self.assertEqual([machine.must(f"cat {name.format(bay)}") for bay in range(4)], ["sda\n", "sdb\n", "", ""])
        machine.must(f"printf 0 >{thaw.format(1)}; printf SAS >{name.format(3)}")
        self.assertEqual(machine.must("cat /sys/class/scsi_host/*/norv_port_thaw").split(), ["1", "0", "1", "1"])
        self.assertEqual(machine.must(f"cat {name.format(3)}"), "SAS")
        machine.must("echo 1 >/sys/block/sdb/device/delete")
        self.assertEqual(machine.must(f"cat {name.format(1)}"), "sdb\n", "the name of a disk that is gone")
        machine.must(f"printf old >{name.format(1)}; echo 0 0 0 >/sys/class/scsi_host/host1/scan")
        machine.until(f"grep -q '^sdb$' {name.format(1)}")

    def test_state_of_arrays(self) -> None:
        machine = self.boot("128M", "128M", "128M")
        table = b"label: dos\n,32M,fd\n,32M,fd\n,32M,fd\n"
        for disk in "abc":
            machine.must(f"/usr/lib/lab/sfdisk -q /dev/sd{disk}", stdin=table)
        create = "/sbin/mdadm -C /dev/md{} -e 0.9 -amd -R --assume-clean -l{} >/dev/null 2>&1 "
        machine.must(create.format(0, 1) + "-n4 /dev/sda1 /dev/sdb1 missing missing")
        self.assertEqual(machine.must("cat /sys/block/md0/md/degraded"), "2\n", "the kernel counts the places")
        self.assertEqual(self.status(machine, "md0"), NORMAL)
        self.assertEqual(self.rebuild(machine, "md0"), (0, 0, 0))
        machine.must("mdadm /dev/md0 --fail /dev/sdb1")
        self.assertEqual(self.status(machine, "md0"), DEGRADED)
        machine.must("mdadm /dev/md0 --remove /dev/sdb1")
        wait_for(lambda: self.status(machine, "md0") == NORMAL, 10, "a member that is not listed to be forgotten")

        with self.subTest("rebuild"):
            machine.must("mdadm --zero-superblock /dev/sdb1; cd /proc/sys/dev/raid; echo 64 >speed_limit_min; "
                         "echo 64 >speed_limit_max; mdadm /dev/md0 --add /dev/sdb1")
            machine.until("grep -q / /sys/block/md0/md/sync_completed")
            running, done, total = self.rebuild(machine, "md0")
            size = int(machine.must("cat /sys/block/md0/md/component_size")) * 2
            self.assertEqual((running, total), (1, size))
            self.assertTrue(0 <= done < total)
            self.assertEqual(self.status(machine, "md0"), DEGRADED)
            # A second array on the same disks has to wait.
            machine.must("mdadm -C /dev/md1 -e 0.9 -amd -R -l1 -n2 /dev/sda2 /dev/sdb2 >/dev/null 2>&1")
            machine.until("grep -q delayed /sys/block/md1/md/sync_completed")
            self.assertEqual(self.rebuild(machine, "md1"), (1, 0, size))
            self.assertEqual(self.status(machine, "md1"), NORMAL)
            machine.must("echo 200000 >/proc/sys/dev/raid/speed_limit_max")
            machine.until("cat /sys/block/md[01]/md/sync_action | grep -v idle | wc -l | grep -q '^0$'")
            self.assertEqual((self.status(machine, "md0"), self.rebuild(machine, "md0")), (NORMAL, (0, 0, 0)))

        with self.subTest("crashed"):
            machine.must(create.format(2, 5).replace("-e 0.9", "-e 1.2") + "-n3 /dev/sda3 /dev/sdb3 /dev/sdc3")
            for member, status in (("sdb3", DEGRADED), ("sdc3", CRASHED)):
                machine.run(f"mdadm /dev/md2 --fail /dev/{member}")  # the last is told as a failure, and done
                self.assertEqual(self.status(machine, "md2"), status)
            machine.must("mdadm -S /dev/md2 && mdadm -I /dev/sda3")
            self.assertEqual(machine.must("cat /sys/block/md2/md/array_state"), "inactive\n")
            self.assertEqual(self.status(machine, "md2"), NOT_STARTED)

        with self.subTest("no array"):
            machine.must("mdadm -S /dev/md2; mknod /dev/md9 b 9 9")
            for code, record in ((MD_STATUS, "00" * 4), (MD_REBUILD, "00" * 24), ("0x80480911", "00" * 72)):
                self.assertEqual(machine.run(f"request /dev/md9 {code} {record}").status, errno.ENODEV)
            self.assertEqual(machine.run(f"request /dev/md0 {MD_STATUS} bad").status, errno.EFAULT)
            self.assertNotEqual(machine.run(f"request /dev/sda {MD_STATUS} 00000000").status, 0)

        with self.subTest("a disk of a striped array is pulled"):
            machine.must("mdadm -C /dev/md2 -amd -R -l0 -n2 /dev/sda3 /dev/sdc3 >/dev/null 2>&1")
            self.assertEqual((self.status(machine, "md2"), self.rebuild(machine, "md2")), (NORMAL, (0, 0, 0)))
            machine.pull(2)
            machine.until("! test -e /sys/block/sdc")
            machine.run("dd if=/dev/zero of=/dev/md2 bs=1M count=4 conv=fsync")
            self.assertEqual(self.status(machine, "md2"), CRASHED)
        self.assertNotIn("Call Trace", machine.must("dmesg"))
