// The patch of the boot partition, and the flash that is brought in line with the disks.
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
constexpr char kFlag[] = "/proc/sys/kernel/norv_install_flag";
constexpr char kCode[] = "/tmp/update.progress";
const std::string kModel =
    "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\nsupportraid=\"yes\"\n";
const std::string kVersion = "majorversion=6\nminorversion=2\nbuildnumber=25556\n";

using Change = std::function<void(Sandbox &)>;

void machine(Sandbox &box)
{
    box.file(kConf, kModel);
    box.file("/etc.defaults/VERSION", kVersion);
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
    const ScratchDir scratch;
    scratch.write("firmware/VERSION", kVersion);
    scratch.write("firmware/hda1.tgz", "image");
    scratch.write("firmware/updater", "#!/bin/sh\n", 0755);
    const Finished made = run_program({NORV_BINARY_DIR "/tools/norv-patch/norv-patch", "make", scratch.path("firmware"),
                                       scratch.path("a.pat"), "--keys", scratch.path("keys"), "--old"});
    ASSERT_EQ(made.status, 0) << made.out;

    const std::string kBoot = "/dev/norvboot2";
    const auto in_boot = [&](const char *name, const std::string &content) {
        return [=](Sandbox &box) { box.file(box.volume(kBoot) + "/" + name, content); };
    };
    const auto not_in_boot = [&](const char *name) {
        return [=](Sandbox &box) {
            box.remove(box.volume(kBoot) + "/" + name);
            box.directory(box.volume(kBoot) + "/" + name); // a folder is none
        };
    };
    const auto mount_fails = [](const char *type, int error) {
        return [=](Sandbox &box) {
            box.call({.call = "mount", .args = std::string("* /tmp/bootmnt ") + type + " *", .error = error});
        };
    };
    constexpr char kGood[] = "10 0 02 0 0", kNoMount[] = "10 0 010 5 0", kNoPatch[] = "10 0 010 45 0",
                   kNoInstall[] = "10 0 02 0 05 43 0";
    const std::string list = scratch.read("firmware/checksum.norv");
    const struct {
        const char *what, *steps;
        Change change;
        std::vector<std::string> record;
        const char *not_in_record = "";
        int semaphore_changes = 2; // taken once, given back once
    } kRows[] = {
        {"good",
         kGood,
         [](Sandbox &) {},
         {"semop *", "run /bin/mkdir -p /tmp/bootmnt", "mount /dev/norvboot2 /tmp/bootmnt ext2 0x8000",
          "run /usr/norv/sbin/installer.sh -r", "run /bin/mount /dev/md0 /tmpData",
          "run /bin/sh -c '/usr/bin/xz -cd /tmp/bootmnt/hda1.tgz > /tmpData/NorvUpgrade.tar'",
          "run /bin/sh -c '/bin/cp /tmp/bootmnt/updater /tmpData/.updater'", "run /bin/mount /dev/md0 /mnt",
          "umount2 /tmp/bootmnt 0x0", "semop *"}},
        {"other device",
         kGood,
         [&](Sandbox &box) {
             box.file(kConf, kModel + "ali_nos=\"yes\"\n");
             for (const char *name : {"VERSION", "hda1.tgz", "updater", "checksum.norv"})
                 box.file(box.volume("/dev/sda2") + "/" + name, scratch.read(std::string("firmware/") + name));
         },
         {"mount /dev/sda2 /tmp/bootmnt ext2 0x8000"}},
        {"other file system",
         kGood,
         mount_fails("ext2", EINVAL),
         {"mount * ext2 0x8000 = EINVAL", "mount /dev/norvboot2 /tmp/bootmnt vfat 0x8000"},
         "log *failed to mount*"},
        {"not mounted",
         kNoMount,
         mount_fails("*", ENXIO),
         {"mount * vfat 0x8000 = ENXIO",
          "log err MountBootPartition(*): failed to mount boot device /dev/norvboot2 /tmp/bootmnt (errno:6)", "semop *",
          "log err *Failed to mount boot partition", "umount2 /tmp/bootmnt 0x0 = EINVAL"}},
        {"busy", kNoMount, mount_fails("ext2", EBUSY), {"mount * ext2 0x8000 = EBUSY"}, "*vfat*"},
        {"busy at last",
         kNoMount,
         [&](Sandbox &box) {
             mount_fails("ext2", EINVAL)(box);
             mount_fails("vfat", EBUSY)(box);
         },
         {"mount * vfat 0x8000 = EBUSY"},
         "log *failed to mount boot*"},
        {"no semaphore",
         kNoMount,
         [](Sandbox &box) { box.call({.call = "semget", .error = EACCES}); },
         {"log err NORVBootSemGet fail*", "log err Wait fail"},
         "mount *",
         0},
        {"not taken",
         kNoMount,
         [](Sandbox &box) { box.call({.call = "semop", .error = EIDRM}); },
         {"semop *", "log err semop fail semid * errno 43*", "log err Wait fail"},
         "mount *",
         1},
        {"no flag",
         kGood,
         [](Sandbox &box) { box.directory(kFlag); },
         {"log err boot_lock_take(*): failed to open /proc/sys/kernel/norv_install_flag",
          "log err boot_lock_give(*): failed to open /proc/sys/kernel/norv_install_flag"}},
        {"no image", kNoPatch, not_in_boot("hda1.tgz"), {"log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail"}},
        {"no version", kNoPatch, not_in_boot("VERSION"), {"log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail"}},
        {"no updater", kNoPatch, not_in_boot("updater"), {"log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail"}},
        {"no list", kNoPatch, not_in_boot("checksum.norv"), {"log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail"}},
        {"damaged",
         kNoPatch,
         in_boot("hda1.tgz", "imago"),
         {"log err *Fail to verify checksum of /tmp/bootmnt...(retv=0x3800) [*"},
         "run /usr/norv/sbin/installer.sh*"},
        {"list without totals", kGood, in_boot("checksum.norv", list.substr(0, list.find('#'))), {}},
        {"another version",
         kNoPatch,
         [](Sandbox &box) { box.file("/etc.defaults/VERSION", "majorversion=6\nminorversion=2\nbuildnumber=25557\n"); },
         {"log err *version in /tmp/bootmnt/VERSION is different from /etc.defaults/VERSION"}},
        {"format",
         "10 0 02 0 02 35 0",
         [](Sandbox &box) { box.program("/usr/norv/sbin/installer.sh", {{.exit_status = 3}}); },
         {"log err *FormatPartition fail"},
         "run /usr/bin/xz*"},
        {"not unpacked",
         kNoInstall,
         [](Sandbox &box) { box.program("/usr/bin/xz", {{.exit_status = 1}}); },
         {"log err *system(/usr/bin/xz -cd /tmp/bootmnt/hda1.tgz > /tmpData/NorvUpgrade.tar) fail [256, *",
          "log err *NORVJCustBootInstall(/tmp/bootmnt, /tmpData) fail"},
         "run /bin/cp*"},
        {"not copied",
         kNoInstall,
         [](Sandbox &box) { box.program("/bin/cp", {{.exit_status = 1}}); },
         {"log err *system(/bin/cp /tmp/bootmnt/updater /tmpData/.updater) fail [256, *"},
         "run /bin/mount /dev/md0 /mnt"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        for (const char *name : {"VERSION", "hda1.tgz", "updater", "checksum.norv"})
            box.file(box.volume(kBoot) + "/" + name, scratch.read(std::string("firmware/") + name));
        box.call({.call = "semop", .real = true});
        row.change(box); // of two answers of a program the first counts, of two files the last
        machine(box);
        row.change(box);
        box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
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
        EXPECT_TRUE(result.record.in_order(row.record));
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
    const auto updater = [&](const ProgramRow &row) { return [=](Sandbox &box) { box.program(kUpdater, {row}); }; };
    const struct {
        const char *what;
        Change change;
        int code;     // 0: good
        bool has_run; // what brings the flash in line
        std::vector<std::string> record;
        bool has_cache = false; // afterwards
    } kRows[] = {
        {"good",
         [](Sandbox &) {},
         0,
         true,
         {"run /bin/mount /dev/md0 /recover", "run /recover/.norv/patch/updater -a /recover",
          "run /recover/.norv/patch/updater -r /recover",
          "log err run_recover_updater.cpp:* Executing /recover//.norv/patch/updater -r /recover [0]",
          "run /bin/umount -f /recover"},
         true},
        {"refused",
         updater({.args = "-r *", .exit_status = 255}),
         -10,
         true,
         {"log err *Executing * -r /recover [255]", "log err recover system image failed [255]",
          "run /bin/umount -f /recover"}},
        {"failed", updater({.args = "-r *", .exit_status = 9}), -9, true, {"log err recover system image failed [9]"}},
        {"killed",
         updater({.args = "-r *", .signal = SIGKILL}),
         -1,
         true,
         {"log err recover system image failed [-1]"}},
        {"cache stays",
         [&](Sandbox &box) {
             updater({.args = "-r *", .exit_status = 9})(box);
             box.call({.call = "unlink", .args = kCache, .error = EPERM});
         },
         -9,
         true,
         {"log err root_info_cache.cpp:* Failed to delete cache data: [Operation not permitted]",
          "log err run_recover_updater.cpp:* Failed to delete cache"},
         true},
        {"no copy that fits",
         updater({.args = "-a *", .exit_status = 1}),
         13,
         false,
         {"log err recover_flash.cpp:* /recover is not recoverable", "run /bin/umount -f /recover"},
         true},
        {"failed before",
         [](Sandbox &box) { box.file("/tmp/recover_fail", ""); },
         13,
         false,
         {"log err *recover fail flag on", "log err recover_flash.cpp:* /recover is not recoverable"},
         true},
        {"not mounted",
         [](Sandbox &box) { box.program("/bin/mount", {{.exit_status = 32}}); },
         -1,
         false,
         {"log err *mount  partition failed. dev=/dev/md0, path=/recover", "run /bin/umount -f /recover"},
         true},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box);
        machine(box);
        box.file("/recover/etc.defaults/norvinfo.conf", kModel);
        box.file("/recover/etc.defaults/VERSION", "majorversion=6\nminorversion=2\nbuildnumber=25560\n");
        box.file("/recover/.norv/patch/VERSION",
                 "majorversion=6\nminorversion=2\nbuildnumber=25560\nunique=norv_avoton_1817\n");
        box.program(kUpdater, {{}});
        box.file(kCode, "of the one before");
        box.file(kCache, "fhost_status_static_part=\"11\"\n");
        const Result result = box.run({"norvupgrade", "--recover"}, {.leaves = {"/tmp/recover_fail", "/tmp/*.lock"}});
        EXPECT_EQ(result.exit_status, row.code == 0 ? 0 : 255);
        const std::string said = " recover system image fail [" + std::to_string(row.code) + "]\nrecover_flash.cpp:";
        EXPECT_NE(result.out.find(row.code == 0 ? " Recover flash success!\n" : said), std::string::npos) << result.out;
        EXPECT_EQ(result.out.ends_with(" Recover flash fail\n"), row.code != 0) << result.out;
        EXPECT_TRUE(result.record.in_order(row.record));
        EXPECT_EQ(result.record.count("run * -r /recover"), row.has_run ? 1 : 0);
        const bool is_recorded = row.has_run && row.code != 0;
        EXPECT_EQ(box.exists(kCode) ? box.read_file(kCode) : "",
                  is_recorded ? "A:" + std::to_string(row.code) + ":" + '\0' : "");
        EXPECT_EQ(result.err.find("recover system image failed [") != std::string::npos, is_recorded);
        EXPECT_EQ(box.exists("/tmp/recover_fail"), is_recorded || std::string(row.what) == "failed before");
        EXPECT_EQ(box.exists(kCache), row.has_cache);
    }
}

} // namespace
