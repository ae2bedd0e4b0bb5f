// The command line of an upgrade, and how it makes the disks ready.
#include <cerrno>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/statvfs.h>
#include <vector>

#include "tests/support/rows.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
const std::string kModel = "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\n"
                           "rss_server_ssl=file:///none\n";
const RunOptions kLeaves = {
    .leaves = {"/tmp/*", "/tmpData*", "/tmpRoot*", "/var/run/*", "/VERSION", "/proc/sys/*", "semaphore *"}};

// A machine with one blank disk, without RAID, that reaches no server.
void machine(Sandbox &box)
{
    box.file(kConf, kModel);
    box.file("/etc.defaults/VERSION", "majorversion=7\nminorversion=1\nbuildnumber=200\n");
    box.file("/a.pat", "patch");
    box.program("/sbin/sfdisk", {{.exit_status = 1}});
    for (const char *program : {"/bin/mount", "/bin/umount", "/bin/sync", "/bin/echo", "/sbin/e2fsck", "/bin/tar",
                                "/usr/norv/sbin/installer.sh"})
        box.program(program, {{}});
    for (const char *program : {"/bin/mkdir", "/bin/rm", "/bin/mv"})
        box.host_program(program);
}

constexpr char kUsage[] = "\t--auto\n"
                          "\t--check For fresh install\n"
                          "\t--check-migrate For disk migration\n"
                          "\t--check-reinstall For disk migration reinstall or system crash\n"
                          "\t--download\n"
                          "\t--start\n"
                          "\t--parse\n"
                          "\t--patch ABSOULATE_UPGRADE_FILE_PATH ABSOLUATE_UPGRADE_VOLUME\n"
                          "\t        ex: norvupgrade --patch /tmpRoot/upd@te.pat /tmpRoot\n"
                          "\t--buildin-install\n"
                          "\t--check-system\n"
                          "\t--recover\n";

TEST(NorvUpgrade, UsageForAllElse)
{
    Sandbox box;
    machine(box);
    for (const char *options :
         {"", "--download", "--help", "--check-", "--check-m=", "--auto=now", "check", "''", "-- --auto"}) {
        SCOPED_TRACE(options);
        const Result result = box.run(words(options, "norvupgrade"));
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_TRUE(result.err.ends_with(kUsage)) << result.err;
        EXPECT_TRUE(result.out.starts_with("Copyright (c) 2003-2021")) << result.out;
        EXPECT_EQ(result.record.count("run *"), 0);
    }
}

// What was told without the places in the source that it begins with.
std::string told(const Result &result)
{
    return std::regex_replace(result.out, std::regex("[a-z_]+\\.cpp:[0-9]+ "), "");
}

// Only the first option counts. What stands behind it are the patch and the volume, or nothing.
TEST(NorvUpgrade, ArgumentsOfEachOption)
{
    const auto refused = [](const std::string &path) {
        return "Upgrade by the manual patch [" + path + "] fail.\nUpgrade by the manual patch fail.\n";
    };
    const struct {
        const char *args;
        int exit_status;
        std::string told, err_end;
        const char *record = "*";
    } kRows[] = {
        {"--auto --check ''", 255, "Auto Upgrade Fail.\n", "\n2 0 012 0 012 46 0"},
        {"--check-migrate --patch", 255, "Check New NOS for [Migration] Fail.\n", ""},
        {"--patch", 255, "Too few arguement.\n", ""},
        {"--patch ''", 255, refused(""), "5 13 0"},
        {"--patch /none.pat /vol", 255, refused("/none.pat"), "5 13 0"},
        {"--patch /a.pat", 255, refused("/a.pat"), "5 13 0", "run /bin/tar * /a.pat -C * VERSION"},
        {"--patch /a.pat ''", 255, refused("/a.pat"), "5 0 05 13 0", "run /bin/mv /a.pat /upd@te.pat"},
        {"--patch /a.pat /vol x", 255, refused("/a.pat"), "5 0 05 13 0", "run /bin/mv /a.pat /vol/upd@te.pat"},
        {"--buildin-install --auto", 255, "Upgrade by the buildin patch fail.\n", "10 0 010 45 0"},
        {"--check-system --auto ''", 0, "not_install", "CheckSysStatus return 2\n"},
        {"--recover '' x", 255, "recover system image fail [13]\nRecover flash fail\n", ""},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.args);
        Sandbox box;
        box.program("/bin/tar", {{.args = "* VERSION",
                                  .effect =
                                      [&box](const ProgramCall & /*call*/) {
                                          box.file("/VERSION", "unique=norv_avoton_1817\nbuildnumber=1\n");
                                      }},
                                 {.exit_status = 1}});
        machine(box);
        box.directory("/vol");
        const Result result = box.run(words(row.args, "norvupgrade"), kLeaves);
        EXPECT_EQ(result.exit_status, row.exit_status);
        EXPECT_EQ(told(result), row.told);
        EXPECT_TRUE(result.err.ends_with(row.err_end)) << result.err;
        EXPECT_TRUE(result.record.in_order({row.record}));
        EXPECT_EQ(box.exists("/a.pat"), result.record.count("run /bin/mv*") == 0);
    }
}

TEST(NorvUpgrade, LockOfAnInstall)
{
    const std::pair<Change, const char *> kTroubles[] = {
        {call({.call = "flock", .args = "/tmp/install.lock 0x6", .error = EWOULDBLOCK, .times = 1}),
         "flock /tmp/install.lock 0x6 = EAGAIN\nlog err norvupgrade.cpp:* Get file lock fail"},
        {directory("/tmp/install.lock"), "log err norvupgrade.cpp:* create lock file fail"}};
    for (const char *option : {"--auto", "--patch", "--buildin-install"})
        for (const auto &[trouble, record] : kTroubles) {
            SCOPED_TRACE(option);
            Sandbox box;
            machine(box);
            trouble(box);
            const Result result = box.run({"norvupgrade", option, "/a.pat", "/vol"}, kLeaves);
            EXPECT_EQ(result.exit_status, 255);
            EXPECT_EQ(result.err, "11 41 0");
            EXPECT_EQ(result.record.count("run *"), 0);
            EXPECT_TRUE(result.record.in_order(lines(record)));
        }
}

// A volume with so many bytes free.
Change bytes_free(unsigned long bytes)
{
    struct statvfs status = {};
    status.f_bsize = 4096;
    status.f_frsize = 1;
    status.f_bavail = bytes;
    status.f_bfree = bytes + (1UL << 30); // some for root alone
    const std::string record(reinterpret_cast<const char *>(&status), sizeof(status));
    return call({.call = "statvfs", .args = "/tmpData", .bytes = record});
}

// Up to the moment when the server is asked, or a failure on the way there.
TEST(NorvUpgrade, FormatOfTheDisks)
{
    constexpr char kReady[] = "\n2 0 012 0 012 46 0", kNoFormat[] = "\n2 0 02 35 0", kNoVolume[] = "\n2 0 02 21 0",
                   kInstaller[] = "/usr/norv/sbin/installer.sh";
    const Change installed =
        program("/sbin/sfdisk", {.args = "*-N1 /dev/sda", .output = "/dev/sda1 8192 16777216 83\n"}) +
        program("/sbin/sfdisk", {.args = "*-N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 82\n"});
    const auto mount_fails = [](const char *args) { return program("/bin/mount", {.args = args, .exit_status = 32}); };
    const struct {
        const char *what, *err_end;
        Change change;
        const char *record;
    } kRows[] = {
        {"blank", kReady, kNoChange,
         "log err *system status = 3\nlog err format_partition.cpp:* CreateDataVol=[1]\n"
         "run /bin/sh -c '/bin/rm -f /tmp/norvdd.*'\nrun /bin/umount -f /tmpData\n"
         "log err *installer cmd=[/usr/norv/sbin/installer.sh -r -d  >> /tmp/installer_sh.log 2>&1]\n"
         "run /usr/norv/sbin/installer.sh -r -d\nrun /bin/mount /dev/sda1 /tmpRoot\n"
         "run /bin/sh -c '/bin/echo 1 > /tmpRoot/.upgrade_vol'\nrun /bin/umount -f /tmpRoot\n"
         "log err format_partition.cpp:* retv=[0]\nlog err format_partition.cpp:*(ErrFHOSTDoFdiskFormat) retv=[0]\n"
         "run /bin/mount /dev/sda1 /tmpData\nlog err *Check NEW NOS fail*\nrun /bin/umount -f /tmpData"},
        {"in order", kReady, installed,
         "log err *gSysStatus: 1, *\nlog err *system status = 2\n"
         "log err *installer cmd=[/usr/norv/sbin/installer.sh -r   >> *"},
        {"of another kind of layout", kReady, file("/.unknown_norv_partition_migrate"),
         "run /usr/norv/sbin/installer.sh -r -d -m"},
        {"not formatted", kNoFormat, program(kInstaller, {.exit_status = 7}),
         "log err *szCmd=[/usr/norv/sbin/installer.sh -r -d  >> *], retv=[7]\nlog err *:* retv=[7]\n"
         "log err *(ErrFHOSTDoFdiskFormat) retv=[7]"},
        {"system not mounted", kReady, mount_fails("* /tmpRoot"),
         "log err *mount root partition failed.\nlog err *(ErrFHOSTDoFdiskFormat) retv=[0]"},
        {"volume not noted", kReady, program("/bin/echo", {.exit_status = 1}),
         "log err *set upgrade volume failed.\nrun /bin/umount -f /tmpRoot\n"
         "log err *(ErrFHOSTDoFdiskFormat) retv=[0]"},
        {"no folder", kNoVolume, call({.call = "mkdir", .args = "/tmpData *", .error = EROFS}),
         "log err *Fail to mkdir /tmpData[0x8100 volume.cpp:*]\n"
         "log err *PrepareMntPoint(/dev/sda1, /tmpData) fail\nlog err *FormatPartition fail"},
        {"200 MiB free", kReady, bytes_free(200UL << 20), "statvfs /tmpData"},
        {"a byte less", "\n2 0 02 16 0", bytes_free((200UL << 20) - 1),
         "log err *FreeSize = 209715199 bytes, not enough*\nlog err *PrepareMntPoint(/dev/sda1, /tmpData) fail\n"
         "run /bin/umount -f /tmpData"},
        {"free space unknown", kNoVolume, call({.call = "statvfs", .error = EIO}),
         "log err *NLIBGetFsFreeSize(/tmpData) fail.[0x8100 format_partition.cpp:*]"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box); // of two answers of a program the first counts
        machine(box);
        for (const char *path : {"/tmp/mkfs.progress.sda1", "/tmp/mkfs.progress.sda3", "/tmp/norvdd.1"})
            box.file(path, "");
        const Result result = box.run({"norvupgrade", "--auto"}, kLeaves);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.err.ends_with(row.err_end)) << result.err;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(told(result), "Auto Upgrade Fail.\n");
        EXPECT_EQ(box.exists("/tmpData"), false);
        for (const char *path : {"/tmp/mkfs.progress.sda1", "/tmp/mkfs.progress.sda3", "/tmp/norvdd.1"})
            EXPECT_FALSE(box.exists(path)) << path;
    }
}

} // namespace
