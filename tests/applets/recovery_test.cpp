// The patch of the boot partition, and the flash that is brought in line with the disks.
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/firmware.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
constexpr char kFlag[] = "/proc/sys/kernel/norv_install_flag";
constexpr char kCode[] = "/tmp/update.progress";
const std::string kModel =
    "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\nsupportraid=\"yes\"\n";

void machine(Sandbox &box)
{
    box.file(kConf, kModel);
    box.file("/etc.defaults/VERSION", kFirmwareVersion);
    box.directory("/sys/block/sda");
    box.device("/dev/md0", 4ULL << 30);
    for (const char *path : {"/bin/mount", "/bin/umount", "/bin/sync", "/bin/rm", "/usr/norv/sbin/installer.sh"})
        box.program(path);
    box.program("/sbin/sfdisk", {{.exit_status = 1}});
    for (const char *path : {"/bin/mkdir", "/bin/cp"})
        box.host_program(path);
}

TEST(Buildin, Outcomes)
{
    Firmware firmware;
    static_cast<void>(firmware.pack(kFirmwareVersion, "#!/bin/sh\n", "image", {"--old"}));
    const std::string kBoot = "/.box/volumes/dev:norvboot2/", list = firmware.read("checksum.norv");
    const auto no_file = [&](const char *name) { return gone(kBoot + name) + directory(kBoot + name); };
    const auto mount_fails = [](const std::string &type, int error) {
        return call({.call = "mount", .args = "* /tmp/bootmnt " + type + " *", .error = error});
    };
    const auto fails = [](const char *path) { return program(path, {.exit_status = 3}); };
    const Change other_device =
        file(kConf, kModel + "ali_nos=\"yes\"\n") + [&](Sandbox &box) { firmware.boot_partition(box, "/dev/sda2"); };
    constexpr char kGood[] = "10 0 02 0 0", kNoMount[] = "10 0 010 5 0", kNoPatch[] = "10 0 010 45 0",
                   kNoInstall[] = "10 0 02 0 05 43 0", kNotOk[] = "log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail";
    const struct {
        const char *what, *steps;
        Change change;
        std::string record;
        const char *not_in_record = "";
        int semaphore_changes = 2; // taken once, given back once
    } kRows[] = {
        {"good", kGood, kNoChange,
         "semop *\n"
         "run /bin/mkdir -p /tmp/bootmnt\n"
         "mount /dev/norvboot2 /tmp/bootmnt ext2 0x8000\n"
         "run /usr/norv/sbin/installer.sh -r\n"
         "run /bin/mount /dev/md0 /tmpData\n"
         "run /bin/sh -c '/usr/bin/xz -cd /tmp/bootmnt/hda1.tgz > /tmpData/NorvUpgrade.tar'\n"
         "run /bin/sh -c '/bin/cp /tmp/bootmnt/updater /tmpData/.updater'\n"
         "run /bin/mount /dev/md0 /mnt\n"
         "umount2 /tmp/bootmnt 0x0\n"
         "semop *"},
        {"other device", kGood, other_device, "mount /dev/sda2 /tmp/bootmnt ext2 0x8000"},
        {"other file system", kGood, mount_fails("ext2", EINVAL),
         "mount * ext2 0x8000 = EINVAL\nmount /dev/norvboot2 /tmp/bootmnt vfat 0x8000", "log *failed to mount*"},
        {"not mounted", kNoMount, mount_fails("*", ENXIO),
         "mount * vfat 0x8000 = ENXIO\n"
         "log err MountBootPartition(*): failed to mount boot device /dev/norvboot2 /tmp/bootmnt (errno:6)\n"
         "semop *\nlog err *Failed to mount boot partition\numount2 /tmp/bootmnt 0x0 = EINVAL"},
        {"busy", kNoMount, mount_fails("ext2", EBUSY), "mount * ext2 0x8000 = EBUSY", "*vfat*"},
        {"no semaphore", kNoMount, call({.call = "semget", .error = EACCES}),
         "log err NORVBootSemGet fail*\nlog err Wait fail", "mount *", 0},
        {"not taken", kNoMount, call({.call = "semop", .error = EIDRM}),
         "semop *\nlog err semop fail semid * errno 43*\nlog err Wait fail", "mount *", 1},
        {"no flag", kGood, directory(kFlag),
         "log err boot_lock_take(*): failed to open /proc/sys/kernel/norv_install_flag\n"
         "log err boot_lock_give(*): failed to open /proc/sys/kernel/norv_install_flag"},
        {"no updater", kNoPatch, no_file("updater"), kNotOk},
        {"damaged", kNoPatch, file(kBoot + "hda1.tgz", "imago"),
         "log err *Fail to verify checksum of /tmp/bootmnt...(retv=0x3800) [*", "run /usr/norv/sbin/installer.sh*"},
        {"list without totals", kGood, file(kBoot + "checksum.norv", list.substr(0, list.find('#'))), ""},
        {"another version", kNoPatch,
         file("/etc.defaults/VERSION", "majorversion=6\nminorversion=2\nbuildnumber=25557\n"),
         "log err *version in /tmp/bootmnt/VERSION is different from /etc.defaults/VERSION"},
        {"not unpacked", kNoInstall, fails("/usr/bin/xz"),
         "log err *system(/usr/bin/xz -cd /tmp/bootmnt/hda1.tgz > /tmpData/NorvUpgrade.tar) fail [768, *\n"
         "log err *NORVJCustBootInstall(/tmp/bootmnt, /tmpData) fail",
         "run /bin/cp*"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        firmware.boot_partition(box);
        box.call({.call = "semop", .real = true});
        row.change(box); // of two answers of a program the first counts, of two files the last
        machine(box);
        row.change(box);
        firmware.trust(box);
        box.program("/usr/bin/xz", {{.output = "unpacked"}});
        const Result result =
            box.run({"norvupgrade", "--buildin-install"},
                    {.leaves = {"/tmp/bootmnt", "/tmp/install*", "/tmpData*", "/mnt*", "semaphore 0x09335808", kFlag}});
        const bool is_good = row.steps == kGood;
        EXPECT_EQ(result.exit_status, is_good ? 0 : 255);
        EXPECT_TRUE(result.err.starts_with("10 0 0") && result.err.ends_with(row.steps + 6)) << result.err;
        EXPECT_TRUE(result.out.ends_with(is_good ? " Success to upgrade by the buildin patch.\n"
                                                 : " Upgrade by the buildin patch fail.\n"))
            << result.out;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(result.record.count(row.not_in_record), 0);
        EXPECT_EQ(result.record.count("semop *"), row.semaphore_changes);
        EXPECT_EQ(result.record.count("umount2 /tmp/bootmnt*"), 1);
        EXPECT_EQ(box.exists("/mnt/var/.NormalShutdown"), is_good);
        if (is_good) {
            EXPECT_EQ(box.read_file("/tmpData/NorvUpgrade.tar"), "unpacked");
            EXPECT_EQ(box.read_file("/tmpData/.updater"), "#!/bin/sh\n");
        }
    }
}

TEST(RecoverFlash, Outcomes)
{
    constexpr char kUpdater[] = "/recover/.norv/patch/updater", kCache[] = "/tmp/root_info.cache";
    const auto updater = [&](const ProgramRow &row) { return program(kUpdater, row); };
    const struct {
        const char *what;
        Change change;
        int code;     // 0: good
        bool has_run; // what brings the flash in line
        std::string record;
        bool has_cache = false; // afterwards
    } kRows[] = {
        {"good", kNoChange, 0, true,
         "run /bin/mount /dev/md0 /recover\nrun /recover/.norv/patch/updater -a /recover\n"
         "run /recover/.norv/patch/updater -r /recover\n"
         "log err run_recover_updater.cpp:* Executing /recover//.norv/patch/updater -r /recover [0]\n"
         "run /bin/umount -f /recover",
         true},
        {"failed", updater({.args = "-r *", .exit_status = 9}), -9, true, "log err recover system image failed [9]"},
        {"killed", updater({.args = "-r *", .signal = SIGKILL}), -1, true, "log err recover system image failed [-1]"},
        {"cache stays",
         updater({.args = "-r *", .exit_status = 9}) + call({.call = "unlink", .args = kCache, .error = EPERM}), -9,
         true,
         "log err root_info_cache.cpp:* Failed to delete cache data: [Operation not permitted]\n"
         "log err run_recover_updater.cpp:* Failed to delete cache",
         true},
        {"no copy that fits", updater({.args = "-a *", .exit_status = 1}), 13, false,
         "log err recover_flash.cpp:* /recover is not recoverable\nrun /bin/umount -f /recover", true},
        {"failed before", file("/tmp/recover_fail"), 13, false,
         "log err *recover fail flag on\nlog err recover_flash.cpp:* /recover is not recoverable", true},
        {"not mounted", program("/bin/mount", {.exit_status = 32}), -1, false,
         "log err *mount  partition failed. dev=/dev/md0, path=/recover\nrun /bin/umount -f /recover", true},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box);
        machine(box);
        box.file("/recover/etc.defaults/norvinfo.conf", kModel);
        const std::string newer = "majorversion=6\nminorversion=2\nbuildnumber=25560\n";
        box.file("/recover/etc.defaults/VERSION", newer);
        box.file("/recover/.norv/patch/VERSION", newer + "unique=norv_avoton_1817\n");
        box.program(kUpdater, {{}});
        box.file(kCode, "of the one before");
        box.file(kCache, "fhost_status_static_part=\"11\"\n");
        const Result result = box.run({"norvupgrade", "--recover"}, {.leaves = {"/tmp/recover_fail", "/tmp/*.lock"}});
        EXPECT_EQ(result.exit_status, row.code == 0 ? 0 : 255);
        const std::string said = " recover system image fail [" + std::to_string(row.code) + "]\nrecover_flash.cpp:";
        EXPECT_NE(result.out.find(row.code == 0 ? " Recover flash success!\n" : said), std::string::npos) << result.out;
        EXPECT_EQ(result.out.ends_with(" Recover flash fail\n"), row.code != 0) << result.out;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(result.record.count("run * -r /recover"), row.has_run ? 1 : 0);
        const bool is_recorded = row.has_run && row.code != 0;
        EXPECT_EQ(text_of(box, kCode), is_recorded ? "A:" + std::to_string(row.code) + ":" + '\0' : "");
        EXPECT_EQ(result.err.find("recover system image failed [") != std::string::npos, is_recorded);
        EXPECT_EQ(box.exists("/tmp/recover_fail"), is_recorded || std::string(row.what) == "failed before");
        EXPECT_EQ(box.exists(kCache), row.has_cache);
    }
}

} // namespace
