// What the disks hold, as norvupgrade --check-system tells it.
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
constexpr char kVersion[] = "/etc.defaults/VERSION";
const std::string kModel = "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\n";
const std::string kRaidModel = kModel + "supportraid=yes\n";
const std::string kFlash = "majorversion=6\nminorversion=2\nbuildnumber=23739\n";
const std::string kNewer = "majorversion=6\nminorversion=2\nbuildnumber=25556\n";
const RunOptions kLeaves = {.leaves = {"/tmp/*", "/tmpRoot*"}};

// A machine with one disk of layout 9 and a healthy, newer system on it, from which the flash can be recovered.
void healthy(Sandbox &box)
{
    box.file(kConf, kRaidModel);
    box.file(kVersion, kFlash);
    box.file("/proc/cmdline", "quiet xroot=/dev/sdb1 root=/dev/sda1 ro\n");
    box.file("/proc/partitions",
             "major minor  #blocks  name\n\n   9        0  2490176 md0\n   9        1  2097088 md1\n");
    box.directory("/sys/block/sda");
    box.program("/sbin/sfdisk", {{.args = "-l -uS -N1 /dev/sda", .output = "/dev/sda1 8192 16777216 fd\n"},
                                 {.args = "-l -uS -N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 fd\n"},
                                 {.args = "-l *", .exit_status = 1}});
    for (const char *program : {"/bin/mount", "/bin/umount", "/bin/sync", "/sbin/e2fsck"})
        box.program(program, {{}});
    box.program("/bin/mkdir", {{}});
    box.directory("/tmpRoot/lost+found");
    box.file("/tmpRoot/etc.defaults/norvinfo.conf", kModel + "upnpmodelname=\"NS0804\"\n");
    box.file("/tmpRoot/etc.defaults/VERSION", kNewer + "productversion=\"6.2.1\"\n");
    box.file("/tmpRoot/etc/norvinfo.conf", "admin_port=\"5001\"\n");
    box.file("/tmpRoot/.system_info/endian", "little\n");
    box.file("/tmpRoot/.system_info/pgsql_alignment", "8\n");
    box.file("/tmpRoot/.norv/patch/VERSION", kNewer + "unique=norv_avoton_1817\n");
    box.program("/tmpRoot/.norv/patch/updater", {{}});
}

// Puts a root block on sda that leaves the disk to systems whose root is on a disk of its own.
void root_block_put(Sandbox &box)
{
    using namespace std::string_literals;
    std::string disk(2 << 20, '\0');
    disk.replace(256000, 19, "NORVESSA_ROOT_BLOCK").replace(256064, 12, "\0\0\0\3\0\0\0\0\0\4\0\0"s);
    disk[262144 + 103] = 2;
    box.device("/dev/sda", disk.size());
    box.file("/dev/sda", disk);
}

// The model whose one array is on fixed disks, with their first partitions of this many sectors.
void fixed_model(Sandbox &box, const std::string &sectors)
{
    const std::string model = "usbportcfg=\"10\"\ninternalportcfg=\"3\"\nunique=\"norv_x86_hd60\"\n";
    box.file(kConf, model + "supportraid=yes\n");
    box.file("/tmpRoot/etc.defaults/norvinfo.conf", model);
    box.file("/tmpRoot/.norv/patch/VERSION", kNewer + "unique=norv_x86_hd60\n");
    box.file("/proc/partitions", "   9 0 1 md0\n");
    for (const char *disk : {"sda", "sdb"}) {
        const std::string path = std::string("/dev/") + disk;
        box.directory(std::string("/sys/block/md0/md/dev-") + disk + "1");
        box.program("/sbin/sfdisk",
                    {{.args = "-l -uS -N1 " + path,
                      .output = path + "1 8192 " + (path == "/dev/sda" ? "209715200" : sectors) + " fd\n"}});
    }
}

struct Outcome {
    const char *what;
    std::function<void(Sandbox &)> change;
    const char *word;
    std::vector<std::string> record;
};

void expect_outcome(const Outcome &row)
{
    SCOPED_TRACE(row.what);
    Sandbox box;
    row.change(box); // of two answers of a program the first counts, of two files the last
    healthy(box);
    row.change(box);
    const Result result = box.run({"norvupgrade", "--check-system"}, kLeaves);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, row.word);
    EXPECT_TRUE(result.record.in_order(row.record));
}

TEST(CheckSystem, Outcomes)
{
    const Outcome kRows[] = {
        {"recoverable",
         [](Sandbox &) {},
         "sys_recoverable",
         {"log err *Dev: sda, DiskPath: /dev/sda, Partition version: 9", "run /bin/mkdir -p /tmpRoot", "run /bin/sync",
          "run /bin/sync", "run /bin/sync", "run /bin/mount /dev/md0 /tmpRoot", "run /bin/umount -f /tmpRoot",
          "run /sbin/e2fsck -pvf -C 0 /dev/md0", "run /bin/mount /dev/md0 /tmpRoot", "run /bin/umount -f /tmpRoot",
          "run /bin/mount /dev/md0 /tmpRoot", "run /tmpRoot/.norv/patch/updater -a /tmpRoot",
          "log err is_system_recoverable.cpp:* Executing /tmpRoot//.norv/patch/updater -a /tmpRoot [0]",
          "log err *SYSTEM_NORMAL, [Recoverable=1]", "run /bin/umount -f /tmpRoot",
          "log err *(FillUpgradeVolumeInfo): gszUpgradeVolDev = /dev/md0 *",
          "log err *gblSupportRaid: 1, gSysStatus: 1, gblCreateDataVol: 0, gblSystemRecoverable: 1"}},
        {"arrays missing",
         [](Sandbox &box) { box.file("/proc/partitions", "major\n 9 1 1 md1\n 9 0 1 md0"); }, // no newline at the end
         "not_install",
         {"log err *SYSTEM_NOT_INSTALLED: Raid but md0 or md1 not exist"}},
        {"found in lost+found",
         [](Sandbox &box) { box.file("/tmpRoot/lost+found/#12", ""); },
         "sys_crash",
         {"log err *Check Lost and Found Fail", "log err *SYSTEM_CRASHED: lost+found or fsck failed"}},
        {"no lost+found", [](Sandbox &box) { box.remove("/tmpRoot/lost+found"); }, "sys_recoverable", {}},
        {"file system check 4",
         [](Sandbox &box) { box.program("/sbin/e2fsck", {{.exit_status = 4}}); },
         "sys_crash",
         {"log err *Fsck fail with /dev/md0, ret = 4*", "log err *SYSTEM_CRASHED: lost+found or fsck failed"}},
        {"file system check 12 passes",
         [](Sandbox &box) { box.program("/sbin/e2fsck", {{.exit_status = 12}}); },
         "sys_recoverable",
         {}},
        {"lost after the file system check",
         [](Sandbox &box) {
             box.program("/sbin/e2fsck",
                         {{.effect = [&box](const ProgramCall &) { box.file("/tmpRoot/lost+found/#12", ""); }}});
         },
         "sys_crash",
         {"log err *Check Lost and Found Fail after fsck", "log err *SYSTEM_CRASHED: lost+found or fsck failed"}},
        {"not mounted at last",
         [](Sandbox &box) {
             box.program("/bin/mount", {{.times = 2}, {.exit_status = 32}});
         },
         "sys_crash",
         {"log err *mount  partition failed. dev=/dev/md0, path=/tmpRoot", "log err *SYSTEM_CRASHED: Mount Failed"}},
        {"both markers",
         [](Sandbox &box) {
             box.file("/tmpRoot/.restore_to_default", "");
             box.file("/tmpRoot/.system_crashed", "");
         },
         "not_install",
         {"log err *SYSTEM_NOT_INSTALLED: .restore_to_default in disk", "run /bin/umount*"}},
        {"crashed",
         [](Sandbox &box) { box.file("/tmpRoot/.system_crashed", ""); },
         "sys_crash",
         {"log err *SYSTEM_CRASHED: .system_crashed in disk"}},
        {"recorder and not",
         [](Sandbox &box) { box.file(kConf, kRaidModel + "nvr=\"yes\"\n"); },
         "sys_crash",
         {"log err *SYSTEM_CRASHED: Migrate between NVR and not NVR model"}},
        {"marker of a failed recovery",
         [](Sandbox &box) { box.file("/tmp/recover_fail", ""); },
         "sys_migrat",
         {"log err *recover fail flag on", "log err *SYSTEM_NORMAL, [Recoverable=0]"}},
        {"unknown layout, recoverable",
         [](Sandbox &box) { box.program("/sbin/sfdisk", {{.exit_status = 1}}); },
         "sys_recoverable",
         {"log err *Dev: sda, DiskPath: /dev/sda, Partition version: [not norv partition]"}},
        {"unknown layout, not recoverable",
         [](Sandbox &box) {
             box.program("/sbin/sfdisk", {{.exit_status = 1}});
             box.file("/tmpRoot/.system_crashed", "");
         },
         "not_install",
         {"log err *SYSTEM_CRASHED: .system_crashed in disk",
          "log err *SYSTEM_NOT_INSTALLED: Not NorvParitition and Not Recoverable"}},
        {"lost+found is no folder",
         [](Sandbox &box) {
             box.remove("/tmpRoot/lost+found");
             box.file("/tmpRoot/lost+found", "");
         },
         "sys_crash",
         {"log err *open /tmpRoot/lost+found dir fail Not a directory", "run /bin/umount -f /tmpRoot",
          "log err *Check Lost and Found Fail"}},
        {"boot disk of another kind of system",
         root_block_put,
         "not_install",
         {"log err *SYSTEM_NOT_INSTALLED: Migration with incompatible root block", "run /bin/umount -f /tmpRoot"}},
        {"such a disk in the boot array",
         [](Sandbox &box) {
             root_block_put(box);
             box.file("/proc/cmdline", "root=/dev/md0 root=/dev/none");
             box.device("/dev/md0", 3 << 20);
             box.request({.device = "/dev/md0", .request = 0x80480911, .bytes = std::string(72, '\1')});
             box.file("/sys/block/md0/md/array_state", "clean\n");
             for (const char *member : {"sda1", "sdb1"}) {
                 box.file(std::string("/sys/block/md0/md/dev-") + member + "/state", "in_sync\n");
                 box.file(std::string("/sys/block/md0/md/dev-") + member + "/slot", "0\n");
             }
         },
         "not_install",
         {"log err *Find incompatible root block on disk: [/dev/sda1]",
          "log err *SYSTEM_NOT_INSTALLED: Migration with incompatible root block"}},
        {"boot array unknown",
         [](Sandbox &box) {
             root_block_put(box);
             box.file("/proc/cmdline", "root=/dev/md0\n");
         },
         "sys_recoverable",
         {"log err *Failed to get root device from /dev/md0, skip"}},
        {"boot arguments unknown",
         [](Sandbox &box) {
             root_block_put(box);
             box.remove("/proc/cmdline");
         },
         "sys_recoverable",
         {"log err *Failed to get boot arguments"}},
        {"fixed model",
         [](Sandbox &box) { fixed_model(box, "209715200"); },
         "sys_recoverable",
         {"run /sbin/sfdisk -l -uS -N1 /dev/sdb", "log err *SYSTEM_NORMAL, [Recoverable=1]"}},
        {"fixed model, one disk of another size, not recoverable",
         [](Sandbox &box) {
             fixed_model(box, "209715201");
             box.file("/tmp/recover_fail", "");
         },
         "not_install",
         {"log err *SYSTEM_NORMAL, [Recoverable=0]", "log err *Not NorvParitition and Not Recoverable"}},
        {"fixed model without its array",
         [](Sandbox &box) {
             fixed_model(box, "209715200");
             box.file("/proc/partitions", "   9 1 1 md1\n   9 0 1 md0p1 md0\n");
         },
         "not_install",
         {"log err *SYSTEM_NOT_INSTALLED: Raid but md0 not exist"}},
        {"healthy without RAID on a foreign layout, not recoverable",
         [](Sandbox &box) {
             box.file(kConf, kModel);
             box.program("/sbin/sfdisk", {{.exit_status = 1}});
             box.program("/tmpRoot/.norv/patch/updater", {{.exit_status = 1}});
         },
         "not_install",
         {"log err *SYSTEM_NORMAL, [Recoverable=0]", "log err *Not NorvParitition and Not Recoverable",
          "log err *gblSupportRaid: 0, gSysStatus: 3, gblCreateDataVol: 1, gblSystemRecoverable: 0"}},
        {"memory test", [](Sandbox &box) { box.file("/.memtest", ""); }, "mem_testing", {}},
        {"blank disk without RAID",
         [](Sandbox &box) {
             box.file(kConf, kModel);
             box.program("/sbin/sfdisk", {{.exit_status = 1}});
             box.program("/bin/mount", {{.exit_status = 32}});
         },
         "not_install",
         {"log err *Mount Device /dev/sda1 Fail", "log err *SYSTEM_CRASHED: lost+found or fsck failed",
          "log err *gblSupportRaid: 0, gSysStatus: 3, gblCreateDataVol: 1, gblSystemRecoverable: 0"}},
    };
    for (const Outcome &row : kRows)
        expect_outcome(row);
}

// The first reason against recovery ends the test.
TEST(CheckSystem, Recoverability)
{
    const auto put = [](const char *path, const std::string &text) {
        return [path, text](Sandbox &box) { box.file(path, text); };
    };
    constexpr char kDisk[] = "/tmpRoot/etc.defaults/VERSION", kPatch[] = "/tmpRoot/.norv/patch/VERSION";
    const auto special = [&](const char *model, const char *revision) {
        return [&, model, revision](Sandbox &box) {
            const std::string version = "majorversion=6\nminorversion=2\nbuildnumber=42218\n";
            box.file(kDisk, version);
            box.file(kPatch, version + "unique=norv_avoton_1817\n");
            box.file("/proc/sys/kernel/norv_hw_version", model);
            box.file("/proc/sys/kernel/norv_hw_revision", revision);
        };
    };
    const Outcome kRows[] = {
        {"other model",
         put("/tmpRoot/etc.defaults/norvinfo.conf", "unique=norv_avoton_2\n"),
         "sys_migrat",
         {"log err *unique not match"}},
        {"flash is newer, as text",
         put(kDisk, "majorversion=10\nminorversion=2\nbuildnumber=1\n"),
         "sys_migrat",
         {"log err *flash version is newer than disk version"}},
        {"updater refuses before the patch's model is looked at",
         [&](Sandbox &box) {
             box.program("/tmpRoot/.norv/patch/updater", {{.exit_status = 1}});
             box.file(kPatch, kNewer + "unique=x\n");
         },
         "sys_migrat",
         {"log err *Executing *updater -a /tmpRoot [1]", "log err *Recover patch is not available."}},
        {"patch of another model",
         put(kPatch, kNewer + "unique=x\n"),
         "sys_migrat",
         {"log err *Recover image and disk not match"}},
        {"patch of another version",
         put(kPatch, "majorversion=6\nminorversion=2\nunique=norv_avoton_1817\n"),
         "sys_migrat",
         {"log err *fail to read [buildnumber] from [*]", "log err *Recover image and disk not match"}},
        {"same as the flash",
         put(kVersion, kNewer),
         "sys_migrat",
         {"log info *Recover image has the same version as flash does; no need to recover"}},
        {"same but for a small fix", put(kVersion, kNewer + "smallfixnumber=1\n"), "sys_recoverable", {}},
        {"special case",
         special("NSR05-j\n", "r2\n"),
         "sys_migrat",
         {"log info *NewModel Rx special case, don't recover"}},
        {"special case, later revision", special("NSR05-j\n", "r20\n"), "sys_recoverable", {}},
        {"special case, other model", special("XNSR05\n", "r1\n"), "sys_recoverable", {}},
    };
    for (const Outcome &row : kRows)
        expect_outcome(row);
}

TEST(CheckSystem, TellsOfTheDisksAndKeepsTheAnswer)
{
    Sandbox box;
    healthy(box);
    Result result = box.run({"norvupgrade", "--check-system"}, kLeaves);
    EXPECT_NE(result.err.find("CheckSysStatus return 11\n"), std::string::npos);
    EXPECT_EQ(box.read_file("/tmp/fhost.status"), "11");
    EXPECT_EQ(box.read_file("/tmp/disk_sysinfo"),
              R"({"model": "NS0804", "version": "6.2.1", "build_num": 25556, "admin_port": 5001})");
    EXPECT_EQ(box.read_file("/tmp/root_info.cache"), "fhost_status_static_part=\"11\"\n");

    const struct {
        const char *cached, *word;
        bool detects;
    } kRows[] = {{"\"4\"", "sys_crash", false},
                 {"7", "7", false},
                 {"14x", "sys_recoverable", true},
                 {"", "sys_recoverable", true},
                 {"99999999999999999999", "sys_recoverable", true}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.cached);
        box.file("/tmp/root_info.cache", std::string("fhost_status_static_part=") + row.cached + "\n");
        box.remove("/tmp/disk_sysinfo");
        result = box.run({"norvupgrade", "-check-system"}, kLeaves);
        EXPECT_EQ(result.out, row.word);
        EXPECT_EQ(box.exists("/tmp/disk_sysinfo"), row.detects);
    }

    // An install and a memory test come before the cache, and never get into it.
    box.file("/tmp/root_info.cache", "fhost_status_static_part=14\n");
    box.host_program("/usr/bin/flock");
    Process holder = box.start({"/usr/bin/flock", "-x", "/tmp/install.lock", "-c", "echo held; read line"},
                               {.input_open = true, .leaves = {"/tmp/*"}});
    while (holder.running() && holder.out() != "held\n")
        usleep(1000);
    EXPECT_EQ(box.run({"norvupgrade", "--check-system"}, kLeaves).out, "updating");
    holder.close_input();
    holder.wait();
    EXPECT_EQ(box.run({"norvupgrade", "--check-system"}, kLeaves).out, "sys_migrat");

    // Who cannot have the cache finds out anew, and keeps nothing.
    box.compress_sleeps();
    holder = box.start({"/usr/bin/flock", "-x", "/tmp/root_info.cache.lock", "-c", "echo held; read line"},
                       {.input_open = true, .leaves = {"/tmp/*"}});
    while (holder.running() && holder.out() != "held\n")
        usleep(1000);
    result = box.run({"norvupgrade", "--check-system"}, kLeaves);
    EXPECT_EQ(result.out, "sys_recoverable");
    EXPECT_TRUE(
        result.record.in_order({"log err scoped_lock.cpp:* Failed to get lock[0x0400 *]", "log err *SYSTEM_NORMAL*",
                                "log err scoped_lock.cpp:* Failed to get lock[0x0400 *]",
                                "log err *Failed to set key: [fhost_status_static_part][0x0400 *]",
                                "log err *Failed to save system status cache"}));
    holder.close_input();
    holder.wait();
    EXPECT_EQ(box.read_file("/tmp/root_info.cache"), "fhost_status_static_part=14\n");
}

TEST(CheckSystem, AdminPort)
{
    const struct {
        const char *conf, *settings, *port;
    } kRows[] = {
        {"", R"({"a": {"port" : 80}, "port": 81})", "80"},
        {"", R"({"x": ""y, "port": 8080})", "8080"},
        {"", R"({"port": 65536})", "5000"},
        {"", R"({"port": "90"})", "5000"},
        {"", R"({"port)", "5000"},
        {"", R"(""""""")", "5000"},
        {"admin_port=80,evil\n", "", "80,evil"}, // is told as it stands
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.settings);
        Sandbox box;
        healthy(box);
        box.file("/tmpRoot/etc/norvinfo.conf", row.conf);
        box.file("/tmpRoot/usr/norv/etc/www/NOS.json", row.settings);
        box.run({"norvupgrade", "--check-system"}, kLeaves);
        EXPECT_NE(box.read_file("/tmp/disk_sysinfo").find(std::string("\"admin_port\": ") + row.port + "}"),
                  std::string::npos);
    }
}

} // namespace
