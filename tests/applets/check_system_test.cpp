// What the disks hold, as norvupgrade --check-system tells it.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/storage/root_block_bytes.h"
#include "tests/support/rows.h"

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
    Change change;
    const char *word;
    std::string record = "";
};

void expect_outcomes(const std::vector<Outcome> &rows)
{
    for (const Outcome &row : rows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box); // of two answers of a program the first counts, of two files the last
        healthy(box);
        row.change(box);
        const Result result = box.run({"norvupgrade", "--check-system"}, kLeaves);
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, row.word);
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
    }
}

TEST(CheckSystem, Outcomes)
{
    constexpr char kGood[] = "sys_recoverable", kNone[] = "not_install", kCrash[] = "sys_crash";
    constexpr char kFound[] = "/tmpRoot/lost+found", kProc[] = "/proc/partitions", kSfdisk[] = "/sbin/sfdisk";
    // It leaves the disk to systems whose root is on a disk of its own.
    const Change root_block = file("/dev/sda", root_block_disk(2)),
                 fixed = [](Sandbox &box) { fixed_model(box, "209715200"); },
                 other_size = [](Sandbox &box) { fixed_model(box, "209715201"); }, no_raid = file(kConf, kModel),
                 foreign = program(kSfdisk, {.exit_status = 1}), crashed = file("/tmpRoot/.system_crashed"),
                 recover_failed = file("/tmp/recover_fail"),
                 lost_in_check =
                     [&](Sandbox &box) {
                         box.program("/sbin/e2fsck", {{.effect = [&box](const ProgramCall &) {
                                         box.file("/tmpRoot/lost+found/#12", "");
                                     }}});
                     },
                 mounts_twice =
                     [](Sandbox &box) {
                         box.program("/bin/mount", {{.times = 2}, {.exit_status = 32}});
                     },
                 boot_array = root_block + file("/proc/cmdline", "root=/dev/md0 root=/dev/none") + [](Sandbox &box) {
                     box.device("/dev/md0", 3 << 20);
                     box.request({.device = "/dev/md0", .request = 0x80480911, .bytes = std::string(72, '\1')});
                     box.file("/sys/block/md0/md/array_state", "clean\n");
                     for (const std::string member : {"sda1", "sdb1"}) {
                         box.file("/sys/block/md0/md/dev-" + member + "/state", "in_sync\n");
                         box.file("/sys/block/md0/md/dev-" + member + "/slot", "0\n");
                     }
                 };
    expect_outcomes({
        {"recoverable", kNoChange, kGood,
         "log err *Dev: sda, DiskPath: /dev/sda, Partition version: 9\n"
         "run /bin/mkdir -p /tmpRoot\nrun /bin/sync\nrun /bin/sync\nrun /bin/sync\n"
         "run /bin/mount /dev/md0 /tmpRoot\nrun /bin/umount -f /tmpRoot\nrun /sbin/e2fsck -pvf -C 0 /dev/md0\n"
         "run /bin/mount /dev/md0 /tmpRoot\nrun /bin/umount -f /tmpRoot\nrun /bin/mount /dev/md0 /tmpRoot\n"
         "run /tmpRoot/.norv/patch/updater -a /tmpRoot\n"
         "log err is_system_recoverable.cpp:* Executing /tmpRoot//.norv/patch/updater -a /tmpRoot [0]\n"
         "log err *SYSTEM_NORMAL, [Recoverable=1]\nrun /bin/umount -f /tmpRoot\n"
         "log err *(FillUpgradeVolumeInfo): gszUpgradeVolDev = /dev/md0 *\n"
         "log err *gblSupportRaid: 1, gSysStatus: 1, gblCreateDataVol: 0, gblSystemRecoverable: 1"},
        {"arrays missing", file(kProc, "major\n 9 1 1 md1\n 9 0 1 md0"), kNone, // no newline at the end
         "log err *SYSTEM_NOT_INSTALLED: Raid but md0 or md1 not exist"},
        {"found in lost+found", file("/tmpRoot/lost+found/#12"), kCrash,
         "log err *Check Lost and Found Fail\nlog err *SYSTEM_CRASHED: lost+found or fsck failed"},
        {"no lost+found", gone(kFound), kGood},
        {"file system check 4", program("/sbin/e2fsck", {.exit_status = 4}), kCrash,
         "log err *Fsck fail with /dev/md0, ret = 4*\nlog err *SYSTEM_CRASHED: lost+found or fsck failed"},
        {"file system check 12 passes", program("/sbin/e2fsck", {.exit_status = 12}), kGood},
        {"lost after the file system check", lost_in_check, kCrash,
         "log err *Check Lost and Found Fail after fsck\nlog err *SYSTEM_CRASHED: lost+found or fsck failed"},
        {"not mounted at last", mounts_twice, kCrash,
         "log err *mount  partition failed. dev=/dev/md0, path=/tmpRoot\nlog err *SYSTEM_CRASHED: Mount Failed"},
        {"both markers", file("/tmpRoot/.restore_to_default") + crashed, kNone,
         "log err *SYSTEM_NOT_INSTALLED: .restore_to_default in disk\nrun /bin/umount*"},
        {"crashed", crashed, kCrash, "log err *SYSTEM_CRASHED: .system_crashed in disk"},
        {"recorder and not", file(kConf, kRaidModel + "nvr=\"yes\"\n"), kCrash,
         "log err *SYSTEM_CRASHED: Migrate between NVR and not NVR model"},
        {"marker of a failed recovery", recover_failed, "sys_migrat",
         "log err *recover fail flag on\nlog err *SYSTEM_NORMAL, [Recoverable=0]"},
        {"unknown layout, recoverable", foreign, kGood,
         "log err *Dev: sda, DiskPath: /dev/sda, Partition version: [not norv partition]"},
        {"unknown layout, not recoverable", foreign + crashed, kNone,
         "log err *SYSTEM_CRASHED: .system_crashed in disk\n"
         "log err *SYSTEM_NOT_INSTALLED: Not NorvParitition and Not Recoverable"},
        {"lost+found is no folder", gone(kFound) + file(kFound), kCrash,
         "log err *open /tmpRoot/lost+found dir fail Not a directory\nrun /bin/umount -f /tmpRoot\n"
         "log err *Check Lost and Found Fail"},
        {"boot disk of another kind of system", root_block, kNone,
         "log err *SYSTEM_NOT_INSTALLED: Migration with incompatible root block\nrun /bin/umount -f /tmpRoot"},
        {"such a disk in the boot array", boot_array, kNone,
         "log err *Find incompatible root block on disk: [/dev/sda1]\n"
         "log err *SYSTEM_NOT_INSTALLED: Migration with incompatible root block"},
        {"fixed model, one disk of another size, not recoverable", other_size + recover_failed, kNone,
         "log err *SYSTEM_NORMAL, [Recoverable=0]\nlog err *Not NorvParitition and Not Recoverable"},
        {"fixed model without its array", fixed + file(kProc, "   9 1 1 md1\n   9 0 1 md0p1 md0\n"), kNone,
         "log err *SYSTEM_NOT_INSTALLED: Raid but md0 not exist"},
        {"memory test", file("/.memtest"), "mem_testing"},
        {"blank disk without RAID", no_raid + foreign + program("/bin/mount", {.exit_status = 32}), kNone,
         "log err *Mount Device /dev/sda1 Fail\nlog err *SYSTEM_CRASHED: lost+found or fsck failed\n"
         "log err *gblSupportRaid: 0, gSysStatus: 3, gblCreateDataVol: 1, gblSystemRecoverable: 0"},
    });
}

// The first reason against recovery ends the test.
TEST(CheckSystem, Recoverability)
{
    constexpr char kGood[] = "sys_recoverable", kNot[] = "sys_migrat";
    const std::string kDisk = "/tmpRoot/etc.defaults/VERSION", kPatch = "/tmpRoot/.norv/patch/VERSION";
    const auto special = [&](const char *model, const char *revision) {
        const std::string version = "majorversion=6\nminorversion=2\nbuildnumber=42218\n";
        return file(kDisk, version) + file(kPatch, version + "unique=norv_avoton_1817\n") +
               file("/proc/sys/kernel/norv_hw_version", model) + file("/proc/sys/kernel/norv_hw_revision", revision);
    };
    const Change other_patch = file(kPatch, kNewer + "unique=x\n");
    expect_outcomes({
        {"other model", file("/tmpRoot/etc.defaults/norvinfo.conf", "unique=norv_avoton_2\n"), kNot,
         "log err *unique not match"},
        {"flash is newer, as text", file(kDisk, "majorversion=10\nminorversion=2\nbuildnumber=1\n"), kNot,
         "log err *flash version is newer than disk version"},
        {"updater refuses before the patch's model is looked at",
         program("/tmpRoot/.norv/patch/updater", {.exit_status = 1}) + other_patch, kNot,
         "log err *Executing *updater -a /tmpRoot [1]\nlog err *Recover patch is not available."},
        {"patch of another model", other_patch, kNot, "log err *Recover image and disk not match"},
        {"patch of another version", file(kPatch, "majorversion=6\nminorversion=2\nunique=norv_avoton_1817\n"), kNot,
         "log err *fail to read [buildnumber] from [*]\nlog err *Recover image and disk not match"},
        {"same as the flash", file(kVersion, kNewer), kNot,
         "log info *Recover image has the same version as flash does; no need to recover"},
        {"same but for a small fix", file(kVersion, kNewer + "smallfixnumber=1\n"), kGood},
        {"special case", special("NSR05-j\n", "r2\n"), kNot, "log info *NewModel Rx special case, don't recover"},
        {"special case, later revision", special("NSR05-j\n", "r20\n"), kGood},
        {"special case, other model", special("XNSR05\n", "r1\n"), kGood},
    });
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
    } kRows[] = {{"\"4\"", "sys_crash", false}, {"7", "7", false}, {"14x", "sys_recoverable", true}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.cached);
        box.file("/tmp/root_info.cache", std::string("fhost_status_static_part=") + row.cached + "\n");
        box.remove("/tmp/disk_sysinfo");
        result = box.run({"norvupgrade", "-check-system"}, kLeaves);
        EXPECT_EQ(result.out, row.word);
        EXPECT_EQ(box.exists("/tmp/disk_sysinfo"), row.detects);
    }

    // An install comes before the cache, and never gets into it. Who cannot have the cache finds out anew, and keeps
    // nothing.
    box.file("/tmp/root_info.cache", "fhost_status_static_part=14\n");
    box.compress_sleeps();
    const auto while_locked = [&](const std::string &path) {
        Process holder = lock_holder(box, path);
        Result seen = box.run({"norvupgrade", "--check-system"}, kLeaves);
        holder.close_input();
        holder.wait();
        return seen;
    };
    EXPECT_EQ(while_locked("/tmp/install.lock").out, "updating");
    EXPECT_EQ(box.run({"norvupgrade", "--check-system"}, kLeaves).out, "sys_migrat");
    result = while_locked("/tmp/root_info.cache.lock");
    EXPECT_EQ(result.out, "sys_recoverable");
    EXPECT_TRUE(
        result.record.in_order({"log err scoped_lock.cpp:* Failed to get lock[0x0400 *]", "log err *SYSTEM_NORMAL*",
                                "log err scoped_lock.cpp:* Failed to get lock[0x0400 *]",
                                "log err *Failed to set key: [fhost_status_static_part][0x0400 *]",
                                "log err *Failed to save system status cache"}));
    EXPECT_EQ(box.read_file("/tmp/root_info.cache"), "fhost_status_static_part=14\n");
}

TEST(CheckSystem, AdminPort)
{
    const std::pair<const char *, const char *> kRows[] = {
        {R"({"a": {"port" : 80}, "port": 81})", "80"},
        {R"({"x": ""y, "port": 8080})", "8080"},
        {R"({"port": 65536})", "5000"},
        {R"({"port": "90"})", "5000"},
        {R"({"port)", "5000"},
    };
    for (const auto &[settings, port] : kRows) {
        SCOPED_TRACE(settings);
        Sandbox box;
        healthy(box);
        box.remove("/tmpRoot/etc/norvinfo.conf");
        box.file("/tmpRoot/usr/norv/etc/www/NOS.json", settings);
        box.run({"norvupgrade", "--check-system"}, kLeaves);
        EXPECT_NE(box.read_file("/tmp/disk_sysinfo").find(std::string("\"admin_port\": ") + port + "}"),
                  std::string::npos);
    }
}

} // namespace
