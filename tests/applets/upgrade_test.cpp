// A patch on its way from a file to an installed system: what it is told, what it leaves, and that a hostile one leaves
// nothing.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/web_install.h"

namespace
{

using namespace std::string_literals;

constexpr char kPatch[] = "/in/a.pat";
constexpr char kCode[] = "/tmp/update.progress";
const std::string kPorts = "usbportcfg=\"10\"\ninternalportcfg=\"1\"\n";
const std::string kUnique = "unique=\"norv_avoton_1817\"\n";
const std::string kBuild = "buildnumber=25556\n";
// Of the lock, the state that a download's side reads, and a shell's output.
const std::vector<std::string> kLeaves = {
    "/tmp/install.lock", "/var/run/downloadNOS.status", "/tmp/update.progress", "/in/VERSION", "/vol*", "/mnt*"};

class Upgrade : public testing::Test
{
  protected:
    // Makes a signed patch. `updater` is what its script does.
    std::string patch_make(const std::string &version, const std::string &updater = "exit 0", size_t image_bytes = 2047,
                           const std::vector<std::string> &options = {})
    {
        return firmware.pack(version, "#!/bin/sh\n" + updater + "\n", std::string(image_bytes, 'x'), options);
    }
    // A machine of one disk with the real programs, and the patch.
    void machine(Sandbox &box, const std::string &patch) const
    {
        box.file(kConf, kPorts + kUnique);
        box.file(kPatch, patch);
        box.directory("/vol");
        box.file(kCode, "of the one before");
        box.file("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
        box.program("/sbin/sfdisk", {{.args = "*-N1 /dev/sda", .output = "/dev/sda1 8192 16777216 83\n"},
                                     {.args = "*-N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 82\n"},
                                     {.exit_status = 1}});
        for (const char *path : {"/bin/mkdir", "/bin/rm", "/bin/mv", "/bin/tar"})
            box.host_program(path);
        for (const char *path : {"/bin/mount", "/bin/umount", "/bin/sync"})
            box.program(path);
        firmware.trust(box);
        box.symlink("/usr/norv/bin/norvcodesign", "/usr/sbin/norvcodesign");
    }
    Firmware firmware;
};

Result upgrade(Sandbox &box, const std::string &path = kPatch, const std::string &volume = "/vol")
{
    return box.run({"norvupgrade", "--patch", path, volume}, {.leaves = kLeaves});
}

std::string code_text(int code)
{
    return "A:" + std::to_string(code) + ":" + '\0';
}

TEST_F(Upgrade, WhatItRuns)
{
    Sandbox box;
    machine(box, patch_make(kUnique + kBuild, "echo $0 $* >>/ran"));
    box.leaves({"/ran"});
    box.file("/in/VERSION", "of another patch");
    box.file("/vol/upd@te.pat", "stale");
    box.file("/vol/upd@te/updater", "#!/bin/sh\n", 0755);
    const Result result = upgrade(box);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_TRUE(result.out.ends_with(" Patch Upgrade Success and please wait for reboot finish.\n")) << result.out;
    EXPECT_NE(result.err.find(" Unique Check Pass\n\n5 0 0"), std::string::npos) << result.err;
    EXPECT_EQ(box.read_file("/ran"), "/vol/upd@te/updater -v /vol\n");
    EXPECT_EQ(box.read_file("/var/run/downloadNOS.status"), "100 0 /in/a.pat Link");
    EXPECT_EQ(box.read_file("/in/VERSION"), kUnique + kBuild);
    EXPECT_FALSE(box.exists(kCode));
    EXPECT_EQ(box.list("/vol"), std::vector<std::string>());
    EXPECT_EQ(box.mode("/mnt/var/.NormalShutdown"), 0644U);
    EXPECT_TRUE(result.record.in_order(
        {"log info is_patch_compatible.cpp:* Extracting VERSION from Old Patch Format [/in/a.pat][/in]",
         "run /bin/tar -x -f /in/a.pat -C /in VERSION",
         "log err is_patch_compatible.cpp:* Extracting VERSION from NorvArchive",
         "log info *[/in/a.pat][EXTRACT_ONE][VERSION] End: [Success]*",
         "log err check_partition_version.cpp:* Patch version is: [25556], ignore the partition version check",
         "log err is_patch_compatible.cpp:* Unique Check Pass*",
         "run /bin/mv /in/a.pat /vol/upd@te.pat",
         "run /bin/sh -c '/bin/rm -rf /vol/upd@te > /dev/null 2>&1'",
         "run /bin/sh -c '/bin/mkdir -p /vol/upd@te > /dev/null 2>&1'",
         "log err do_upgrade.cpp:* Extracting Old Patch Format [/vol/upd@te.pat][/vol/upd@te]",
         "run /bin/sh -c '/bin/tar xpf \"/vol/upd@te.pat\" -C /vol/upd@te > /dev/null 2>&1'",
         "log err do_upgrade.cpp:* Extracting NorvArchive",
         "log info *[EXTRACT_ALL] End: [Success]*",
         "log err RemoveUpgradeFile: Remove /vol/upd@te.pat...",
         "log err Verify checksum of [/vol/upd@te]...",
         "log err Pass checksum of /vol/upd@te...",
         "run /bin/sh -c '/vol/upd@te/updater -v /vol > /dev/null 2>&1'",
         "log err do_upgrade.cpp:* Executing [/vol/upd@te/updater -v /vol > /dev/null 2>&1] error[0]",
         "run /bin/sh -c '/bin/rm -rf /vol/upd@te > /dev/null 2>&1'",
         "log err do_upgrade.cpp:*(ErrFHOSTDoUpgrade) err=[0]",
         "log err do_upgrade.cpp:*(ErrFHOSTDoUpgrade) retv=[0]",
         "run /bin/sh -c '/bin/mkdir -p /mnt > /dev/null 2>&1'",
         "run /bin/sh -c /bin/sync;/bin/sync;/bin/sync;",
         "run /bin/sh -c '/bin/mount  /mnt > /dev/null 2>&1'",
         "run /bin/sh -c '/bin/mkdir /mnt/var'",
         "run /bin/sh -c '/bin/umount -f /mnt > /dev/null 2>&1'"}));
}

// A patch that is refused before it is moved is left where it is; one that came further is gone.
TEST_F(Upgrade, Refused)
{
    const std::string kGood = kUnique + kBuild, k33 = "unique=\"norv_" + std::string(28, 'u') + "\"\n";
    const auto limited = [](const std::string &text) { return kUnique + "buildnumber=" + text + "\n"; };
    const auto conf = [](const std::string &more) { return file(kConf, kPorts + more); };
    const Change firmware_failed = file("/.sas_fw_upgrade_fail");
    const struct {
        const char *what;
        std::string version, updater;
        int code;     // of the stage
        int recorded; // 0: nothing, and the patch is not moved
        std::string record = "";
        Change change = {};
    } kRows[] = {
        {"no model of its own", kGood, "", 13, 0,
         "log err *Get Org Unique Key Fail*\n"
         "log err IsPatchCompatible(*): Check patch compatible failed with /in/a.pat (-1).",
         conf("")},
        {"no model", kBuild, "", 13, 0, "log err *Get Org Version Key Fail*"},
        {"another model", "unique=\"norv_other\"\n", "", 12, 0,
         "log err *Check Unique Fail, Current Unique = norv_avoton_1817, Patch Unique = norv_other*\n"
         "log err IsPatchCompatible(*): Check patch compatible failed with /in/a.pat (-12)."},
        {"no build", kUnique, "", 70, 0, "log err *Get patch build number failed"},
        {"a limit is needed", limited("40658"), "", 70, 0, "log err *Get patch partition version limit Key Fail"},
        {"layout too old", limited("40658\npartitionversionlimit=10"), "", 70, 0,
         "log err *Check partition version Fail, Current partition = 9, Patch limit partition = 10\n"
         "log err IsPatchCompatible(*): Check patch compatible failed with /in/a.pat (-70)."},
        {"layout just new enough", limited("40658\npartitionversionlimit=9"), "exit 7", 13, -7},
        {"last build without a limit", limited("40657\npartitionversionlimit=10"), "exit 7", 13, -7},
        {"model of 33 letters", k33 + kBuild, "", 13, -8, "", conf(k33)},
        {"failed SAS firmware", kGood, "", 13, -21, "log err *(ErrFHOSTDoUpgrade) retv=[-21]",
         conf(kUnique + "supportsas=yes\n") + firmware_failed},
        {"failed SAS firmware of another model", kGood, "exit 7", 13, -7, "", firmware_failed},
        {"updater 255", kGood, "exit 255", 10, -10,
         "log err *Executing [/vol/upd@te/updater -v /vol > /dev/null 2>&1] error[255]\n"
         "log err ErrFHOSTDoUpgrade(*): child process failed, retv=-10\n"
         "log err *(ErrFHOSTDoUpgrade) err=[-10]\nlog err *(ErrFHOSTDoUpgrade) retv=[-10]\n"
         "log err do_upgrade.cpp:* Failed to unpack firmware.*"},
        {"updater 1", kGood, "exit 1", 13, -1},
        {"updater 12", kGood, "exit 12", 12, -12},
        {"updater 65", kGood, "exit 65", 65, -65},
        {"updater 70", kGood, "exit 70", 13, -70},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        const std::string patch = patch_make(row.version, row.updater);
        Sandbox box;
        machine(box, patch);
        row.change(box);
        const Result result = upgrade(box);
        EXPECT_EQ(result.exit_status, 255);
        const bool is_moved = row.recorded != 0;
        const std::string steps = (is_moved ? "5 0 0" : "\n") + "5 "s + std::to_string(row.code) + " 0";
        EXPECT_TRUE(result.err.ends_with(steps)) << result.err;
        EXPECT_NE(result.out.find(" Upgrade by the manual patch [/in/a.pat] fail.\n"), std::string::npos);
        EXPECT_TRUE(result.out.ends_with(" Upgrade by the manual patch fail.\n")) << result.out;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(box.exists(kPatch), !is_moved);
        EXPECT_EQ(box.read_file(kCode), is_moved ? code_text(row.recorded) : "of the one before");
        EXPECT_EQ(box.list("/vol"), std::vector<std::string>());
        EXPECT_FALSE(box.exists("/mnt"));
    }
}

TEST_F(Upgrade, OldForm)
{
    const std::string kNotSigned = "log err ExtractTarUpgradeFile: Fail to verify codesign of /vol/upd@te...",
                      kNotListed = "log err ErrFHOSTCheckUpgradeFile: Fail to verify checksum of "
                                   "/vol/upd@te...(retv=0x3800)";
    const struct {
        const char *fault;
        std::string record;
    } kRows[] = {{"", "log err Pass checksum of /vol/upd@te..."},
                 {"unsigned", kNotSigned},
                 {"stranger", kNotSigned},
                 {"extra-file", kNotSigned},
                 {"checksum", kNotListed},
                 {"no-totals", kNotListed}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.fault);
        const bool is_good = row.fault[0] == '\0', is_signed = row.record != kNotSigned;
        std::vector<std::string> options = {"--old"};
        if (!is_good)
            options.insert(options.end(), {"--break", row.fault});
        const std::string patch = patch_make(kUnique + kBuild, "exit 0", 2047, options);
        Sandbox box;
        machine(box, patch);
        const Result result = upgrade(box);
        EXPECT_EQ(result.exit_status, is_good ? 0 : 255);
        EXPECT_TRUE(
            result.record.in_order({"log err Verify codesign of [/vol/upd@te]...", row.record, "log * retv=[*]"}));
        EXPECT_EQ(result.record.count("*Extracting NorvArchive"), is_signed ? 0 : 1);
        EXPECT_EQ(result.record.count("*Extraction failed [/vol/upd@te.pat][/vol/upd@te]"), is_signed ? 0 : 1);
        EXPECT_EQ(text_of(box, kCode), is_good ? "" : code_text(-13));
        EXPECT_EQ(box.list("/vol"), std::vector<std::string>());
    }
}

// What is said of arguments that are no good, and what stays of the volume and the patch.
TEST_F(Upgrade, Arguments)
{
    const std::string patch = patch_make(kUnique + kBuild);
    std::string long_volume;
    while (long_volume.size() < 4080)
        long_volume += "/" + std::string(std::min<size_t>(200, 4084 - long_volume.size()), 'v');
    const std::string kNone = " The file does not exist, please type the right patch path\n\n",
                      kNotMoved = " Fail to MoveFile from /in/a.pat to ", kPassed = "*Unique Check Pass*",
                      kState = "/var/run/downloadNOS.status";
    const struct {
        const char *what, *path, *volume; // NULL: none
        int exit_status;
        std::string said, log; // on standard error
        Change change = {};
    } kRows[] = {
        {"another extension", "/in/b.pat.gz", "/vol", 255, " Wrong File Extension.\n\n",
         "IsPatchCompatible(*): Bad format of szFilePath(/in/b.pat.gz): wrong file extension."},
        {"no such patch", "/in/none.pat", "/vol", 255, kNone,
         "IsPatchCompatible(*): szFilePath(/in/none.pat) does not exist"},
        {"a folder", "/in/dir.pat", "/vol", 255, kNone, "IsPatchCompatible(*): szFilePath(/in/dir.pat) does not exist",
         directory("/in/dir.pat")},
        {"no folder in the path", "b.pat", "/vol", 255, " Check patch compatible failed with b.pat.\n",
         "IsPatchCompatible(*): Check patch compatible failed with b.pat (-1).", file("/b.pat")},
        {"state cannot be written", kPatch, "/vol", 255, " Fail to open file " + kState + "\n",
         "is_patch_compatible.cpp:* Fail to open file " + kState + "*", directory(kState)},
        {"no patch in it", kPatch, "/vol", 255, " Version Check Fail.\n",
         "is_patch_compatible.cpp:* VERSION Extraction failed [/in/a.pat]",
         file(kPatch, "patch") + file("/in/VERSION", kUnique + kBuild)},
        {"no volume", kPatch, nullptr, 255, kNotMoved + "\n", kPassed},
        {"no such volume", kPatch, "/none", 255, kNotMoved + "/none/upd@te.pat\n", kPassed},
        {"too long a volume", kPatch, long_volume.c_str(), 255, kNotMoved + long_volume + "/upd@te.", kPassed},
        {"not moved", kPatch, "/vol", 255,
         " Failed to mv /in/a.pat to /vol/upd@te.pat, NorvErr =[0x2A00 do_upgrade.cpp:", kPassed,
         program("/bin/mv", {.exit_status = 1})},
        {"there already", "/vol/upd@te.pat", "/vol", 0, " Unique Check Pass\n\n5 0 0",
         "RemoveUpgradeFile: Remove /vol/upd@te.pat...", file("/vol/upd@te.pat", patch)},
        {"below the root", "/a.pat", "/vol", 0, " Unique Check Pass\n\n5 0 0",
         "*Extracting VERSION from Old Patch Format [/a.pat][/]", file("/a.pat", patch)},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        machine(box, patch);
        box.file("/vol/data", "of the user");
        box.leaves({"/VERSION"});
        row.change(box);
        std::vector<std::string> words = {"norvupgrade", "--patch", row.path};
        if (row.volume != nullptr)
            words.emplace_back(row.volume);
        const Result result = box.run(words, {.leaves = kLeaves});
        EXPECT_EQ(result.exit_status, row.exit_status);
        EXPECT_NE(result.err.find(row.said), std::string::npos) << result.err;
        EXPECT_TRUE(result.record.in_order({"log * " + row.log}));
        EXPECT_TRUE(box.exists(kPatch));
        EXPECT_EQ(text_of(box, kCode), row.exit_status != 0 ? "of the one before" : "");
        EXPECT_EQ(box.read_file("/vol/data"), "of the user");
        EXPECT_FALSE(box.exists("/vol/upd@te.pat"));
        EXPECT_EQ(result.record.count("run * -rf *"), row.exit_status == 0 ? 4 : 0); // twice, a shell and the program
    }
}

// Installs a patch that a browser uploads. Of all roads this one and its like alone know the system's own device.
void upload(Sandbox &box, const std::string &patch)
{
    for (const char *path : {"/usr/norv/sbin/installer.sh", "/usr/sbin/inetd", "/usr/sbin/pppoe-stop", "/bin/cp"})
        box.program(path);
    RunOptions request = cgi_request("upload=true", patch_form(patch));
    request.leaves = {"*"};
    box.run({"install.cgi"}, request);
    install_child_wait(box);
}

// The room on the system's own device: KiB to unpack, 20482 more, and those of the image, of which half of one does not
// count.
TEST_F(Upgrade, Room)
{
    constexpr uint64_t kFits = (1000 + 20482 + 1) * 1024;
    const std::string kGood = kUnique + kBuild;
    const auto size = [&](const std::string &text) { return kGood + "extractsize=" + text + "\n"; };
    const struct {
        const char *what;
        std::string version;
        uint64_t device_bytes;
        bool fits;
        const char *record = "";
        bool has_image = true;
    } kRows[] = {
        {"just enough", size("1000"), kFits, true},
        {"one byte short", size("1000"), kFits - 1, false,
         "log err *[/dev/md0] has [21998591] bytes but requires [21998592] bytes\n"
         "log err *partition /dev/md0 is not enough for 21483\n"
         "log err ErrFHOSTDoUpgrade(*): child process failed, retv=-16"},
        {"no size", kGood, kFits, false, "log err *fail to read [extractsize] from [/tmpData/upd@te/VERSION]"},
        {"size with letters", size("12ab"), kFits, false, "log err *fail to convert [12ab] to long long"},
        {"size below 0", size("-1"), kFits, false, "log err *fail to convert [-1] to long long"},
        {"size beyond all", size("18446744073709551615"), kFits, false},
        {"more bytes than numbers", size("18014398509481984"), kFits, false},
        {"no image", size("1000"), kFits, false,
         "log err *stat [/tmpData/upd@te/hda1.tgz] failed, errno=2(No such file or directory)", false},
        {"no device", size("1000"), 0, false, "log err *[/dev/md0] is not a block device."},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        const std::string patch = patch_make(row.version, "exit 0", row.has_image ? 2047 : 0);
        Sandbox box;
        machine(box, patch);
        box.file(kConf, kPorts + kUnique + "supportraid=yes\n");
        if (row.device_bytes != 0)
            box.device("/dev/md0", row.device_bytes);
        else
            box.directory("/dev/md0");
        upload(box, patch);
        EXPECT_NE(box.read_file("/tmp/install.progress").find(row.fits ? "\"Success\"" : "\"line\":13"),
                  std::string::npos);
        EXPECT_EQ(text_of(box, kCode), row.fits ? "" : code_text(-16));
        EXPECT_TRUE(box.record().in_order(lines(row.record)));
        EXPECT_EQ(box.record().count("run */updater -v *"), row.fits ? 2 : 0); // its shell, and it
        EXPECT_FALSE(box.exists("/tmpData/upd@te"));
    }
}

// A healthy system keeps the updater for its settings, and of some builds is told to stay away from small updates.
TEST_F(Upgrade, OverAHealthySystem)
{
    const struct {
        const char *build, *updater;
        bool skips;
    } kRows[] = {
        {"24896", "exit 0", false}, {"24897", "exit 0", true}, {"39999", "exit 3", true}, {"40000", "exit 0", false}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.build);
        const bool is_good = row.updater == "exit 0"s;
        const std::string patch = patch_make(kUnique + "extractsize=1\nbuildnumber=" + row.build + "\n", row.updater);
        Sandbox box;
        box.program("/sbin/sfdisk", {{.args = "*-N1 /dev/sda", .output = "/dev/sda1 8192 16777216 fd\n"},
                                     {.args = "*-N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 fd\n"}});
        machine(box, patch);
        box.file(kConf, kPorts + kUnique + "supportraid=yes\n");
        box.file("/proc/partitions", "   9 0 1 md0\n   9 1 1 md1\n");
        box.device("/dev/md0", 1ULL << 30);
        box.directory("/sys/block/sda");
        box.directory("/tmpRoot/etc.defaults");
        box.file("/tmp/.skip_auto_nano", "");
        box.file("/mnt/.noroot", "");
        box.program("/sbin/e2fsck");
        upload(box, patch);
        EXPECT_EQ(text_of(box, kCode), is_good ? "" : code_text(-3));
        EXPECT_EQ(box.read_file("/tmpRoot/.updater"), "#!/bin/sh\n"s + row.updater + "\n");
        EXPECT_EQ(box.exists("/tmpRoot/var/.SkipAutoSmallupdate"), row.skips);
        EXPECT_EQ(box.record().count("run /bin/umount -l /tmpRoot"), row.skips ? 1 : 0);
        EXPECT_EQ(box.record().count("log err *skip auto nano"), row.skips ? 1 : 0);
        EXPECT_EQ(box.exists("/mnt/var/.NormalShutdown"), is_good);
        EXPECT_EQ(box.exists("/mnt/.noroot"), !is_good);
        EXPECT_TRUE(box.record().in_order(
            {"log err *SYSTEM_NORMAL*", "run */updater -v /tmpData*",
             "log err *Moving updater for configuration upgrade...cmd=[/bin/mv -f /tmpData/upd@te/updater "
             "/tmpRoot/.updater > /dev/null 2>&1]",
             "run /bin/umount -f /tmpRoot", "log err *(ErrFHOSTDoUpgrade) retv=[*"}));
    }
}

// A member of a tar as it stands in the file, by hand: no maker of archives would.
struct Member {
    std::string name, content = "";
    char type = '0'; // file; '1' hard link, '2' symbolic link, '3' character device, '5' folder, '6' pipe
    std::string target = "";
    unsigned mode = 0644;
    unsigned major_number = 0, minor_number = 0;
};

std::string tar_text(const std::vector<Member> &members)
{
    std::string tar;
    for (const Member &member : members) {
        std::array<char, 512> head = {};
        const auto put = [&](size_t at, const std::string &text) { std::copy(text.begin(), text.end(), &head[at]); };
        const auto number = [&](size_t at, unsigned value, int digits) {
            char text[16];
            snprintf(text, sizeof(text), "%0*o", digits, value);
            put(at, text);
        };
        put(0, member.name);
        number(100, member.mode, 7);
        number(108, 0, 7);
        number(116, 0, 7);
        number(124, static_cast<unsigned>(member.content.size()), 11);
        number(136, 0, 11);
        head[156] = member.type;
        put(157, member.target);
        put(257, "ustar\0"
                 "00"s);
        number(329, member.major_number, 7);
        number(337, member.minor_number, 7);
        std::fill_n(&head[148], 8, ' ');
        unsigned sum = 0;
        for (const char c : head)
            sum += static_cast<unsigned char>(c);
        number(148, sum, 6);
        tar.append(head.data(), head.size()).append(member.content);
        tar.append((512 - member.content.size() % 512) % 512, '\0');
    }
    return tar.append(1024, '\0');
}

// The old form is unpacked before its signature is looked at. Whatever is in it: nothing outside `upd@te` changes, all
// of that goes, and nothing of it runs.
TEST_F(Upgrade, HostileTar)
{
    const Member version = {.name = "VERSION", .content = kUnique + kBuild};
    const std::string program = "#!/bin/sh\ntouch /executed\n";
    const struct {
        const char *what;
        std::vector<Member> members;
        bool is_unpacked = true; // else it is refused before, and stays where it is
    } kRows[] = {
        {"no signature", {version, {.name = "updater", .content = program, .mode = 06755}}},
        {"absolute name", {version, {.name = "/etc/escaped", .content = program}}},
        {"absolute name that is there", {version, {.name = "/etc/passwd", .content = "root::0:0"}}},
        {"name that leads out", {version, {.name = "../escaped"}, {.name = "sub/../../escaped"}}},
        {"two folders up", {version, {.name = "../../etc/passwd", .content = "root::0:0"}}},
        {"file through a link",
         {version, {.name = "link", .type = '2', .target = "/etc"}, {.name = "link/escaped", .content = program}}},
        {"file through a link that leads out",
         {version,
          {.name = "link", .type = '2', .target = "../.."},
          {.name = "link/etc/passwd", .content = "root::0:0"}}},
        {"file over a link",
         {version, {.name = "link", .type = '2', .target = "/etc/passwd"}, {.name = "link", .content = "root::0:0"}}},
        {"file over a hard link",
         {version, {.name = "link", .type = '1', .target = "/etc/passwd"}, {.name = "link", .content = "root::0:0"}}},
        {"mode of a hard link", {version, {.name = "link", .type = '1', .target = "../../etc/passwd", .mode = 04777}}},
        {"link in place of the folder",
         {version, {.name = ".", .type = '2', .target = "/etc"}, {.name = "escaped", .content = program}}},
        {"device", {version, {.name = "device", .type = '3', .major_number = 1, .minor_number = 3}}},
        {"pipe for a signature", {version, {.name = "Norvessa.sig", .type = '6'}}},
        {"device for a signature", {version, {.name = "Norvessa.sig", .type = '2', .target = "/dev/zero"}}},
        {"pipe for a list", {version, {.name = "checksum.norv", .type = '6'}}},
        {"pipe for a VERSION", {{.name = "VERSION", .type = '6'}}, false},
        {"endless VERSION", {{.name = "VERSION", .type = '2', .target = "/dev/zero"}}, false},
        {"VERSION of a link", {{.name = "VERSION", .type = '2', .target = "/etc.defaults/norvinfo.conf"}}, false},
        {"VERSION of a hard link", {{.name = "VERSION", .type = '1', .target = "/etc/passwd"}}, false},
        {"long VERSION", {{.name = "VERSION", .content = kUnique + kBuild + std::string(1 << 20, '\n')}}, false},
        {"program in a VERSION",
         {{.name = "VERSION/", .type = '5', .mode = 0755},
          {.name = "VERSION/program", .content = program, .mode = 04755}},
         false},
        {"file through a VERSION",
         {{.name = "VERSION", .type = '2', .target = "/etc"}, {.name = "VERSION/escaped", .content = program}},
         false},
        {"VERSION that is a program", {{.name = "VERSION", .content = kUnique + kBuild, .mode = 06755}}},
    };
    static_cast<void>(patch_make(kUnique + kBuild)); // for its keys
    for (const bool is_busybox : {false, true})
        for (const auto &row : kRows) {
            SCOPED_TRACE(std::string(row.what) + (is_busybox ? ", busybox" : ""));
            Sandbox box;
            machine(box, tar_text(row.members));
            if (is_busybox && access("/bin/busybox", X_OK) != 0)
                GTEST_SKIP() << "no busybox here";
            if (is_busybox)
                box.host_file("/bin/tar", "/bin/busybox");
            box.remove(kCode);
            const mode_t passwd_mode = box.mode("/etc/passwd");
            const Result result = upgrade(box);
            EXPECT_EQ(result.exit_status, 255);
            EXPECT_TRUE(result.err.ends_with("5 13 0")) << result.err;
            std::vector<std::string> changes = {"+/in/VERSION", "-/in/a.pat", "+/tmp/install.lock",
                                                "+/tmp/update.progress", "+/var/run/downloadNOS.status"};
            if (!row.is_unpacked)
                changes = {"+/tmp/install.lock", "+/var/run/downloadNOS.status"};
            EXPECT_EQ(result.files_changed, changes);
            EXPECT_EQ(text_of(box, kCode), row.is_unpacked ? code_text(-13) : "");
            EXPECT_EQ(box.mode("/etc/passwd"), passwd_mode);
            EXPECT_TRUE(!row.is_unpacked || box.mode("/in/VERSION") == 0644);
            EXPECT_EQ(result.record.count("*updater*"), 0);
            EXPECT_EQ(result.record.count("log *(ErrFHOSTDoUpgrade) retv=[-13]"), row.is_unpacked ? 1 : 0);
        }
}

} // namespace
