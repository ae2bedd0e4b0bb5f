// A patch on its way from a file to an installed system: what it is told, what it leaves, and that a hostile one leaves
// nothing.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <optional>
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
        {"run /bin/tar -x -f /in/a.pat -C /in VERSION", "log info *[/in/a.pat][EXTRACT_ONE][VERSION] End: [Success]*",
         "log err *Patch version is: [25556], ignore the partition version check",
         "run /bin/mv /in/a.pat /vol/upd@te.pat", "run /bin/sh -c '/bin/rm -rf /vol/upd@te > /dev/null 2>&1'",
         "run /bin/sh -c '/bin/mkdir -p /vol/upd@te > /dev/null 2>&1'",
         "log err do_upgrade.cpp:* Extracting Old Patch Format [/vol/upd@te.pat][/vol/upd@te]",
         "run /bin/sh -c '/bin/tar xpf \"/vol/upd@te.pat\" -C /vol/upd@te > /dev/null 2>&1'",
         "log info *[EXTRACT_ALL] End: [Success]*", "log err RemoveUpgradeFile: Remove /vol/upd@te.pat...",
         "log err Verify checksum of [/vol/upd@te]...", "run /bin/sh -c '/vol/upd@te/updater -v /vol > /dev/null 2>&1'",
         "run /bin/sh -c '/bin/rm -rf /vol/upd@te > /dev/null 2>&1'",
         "log err do_upgrade.cpp:*(ErrFHOSTDoUpgrade) err=[0]", "run /bin/sh -c /bin/sync;/bin/sync;/bin/sync;",
         "run /bin/sh -c '/bin/mount  /mnt > /dev/null 2>&1'",
         "run /bin/sh -c '/bin/umount -f /mnt > /dev/null 2>&1'"}));
}

// A patch that is refused before it is moved is left where it is; one that came further is gone. Nothing else of the
// volume is.
TEST_F(Upgrade, Outcomes)
{
    const std::string k33 = "unique=\"norv_" + std::string(28, 'u') + "\"\n";
    const std::string kNotSigned = "log err ExtractTarUpgradeFile: Fail to verify codesign of /vol/upd@te...\n"
                                   "log err *Extracting NorvArchive\n"
                                   "log err *Extraction failed [/vol/upd@te.pat][/vol/upd@te]",
                      kNotListed = "log err ErrFHOSTCheckUpgradeFile: Fail to verify checksum of "
                                   "/vol/upd@te...(retv=0x3800)",
                      kNotMoved = " Fail to MoveFile from /in/a.pat to ", kState = "/var/run/downloadNOS.status";
    const auto conf = [](const std::string &more) { return file(kConf, kPorts + more); };
    std::string long_volume;
    while (long_volume.size() < 4080)
        long_volume += "/" + std::string(std::min<size_t>(200, 4084 - long_volume.size()), 'v');
    struct Case {
        std::string version = kUnique + kBuild;
        const char *updater = "exit 0";
        Change change = {};
        std::vector<std::string> options = {}; // of the builder
        std::string path = kPatch;
        std::optional<std::string> volume = "/vol";
    };
    const auto version = [](const std::string &text, const Change &change = {}) {
        return Case{.version = text, .change = change};
    };
    const auto build = [](const std::string &text) { return Case{.version = kUnique + "buildnumber=" + text + "\n"}; };
    const auto updater = [](const char *script) { return Case{.updater = script}; };
    const auto old_form = [](std::vector<std::string> options) {
        options.emplace_back("--old");
        return Case{.options = options};
    };
    const auto with = [](const Change &change, const std::string &path = kPatch) {
        return Case{.change = change, .path = path};
    };
    const auto to = [](const std::optional<std::string> &volume) { return Case{.volume = volume}; };
    const struct {
        const char *what;
        int code;     // of the stage; 0: it is installed
        int recorded; // 0: nothing, and the patch is not moved
        Case with;
        std::string record = "", said = ""; // on standard error
    } kRows[] = {
        {"no model of its own", 13, 0, with(conf("")),
         "log err *Get Org Unique Key Fail*\n"
         "log err IsPatchCompatible(*): Check patch compatible failed with /in/a.pat (-1)."},
        {"no model", 13, 0, version(kBuild), "log err *Get Org Version Key Fail*"},
        {"another model", 12, 0, version("unique=\"norv_other\"\n"),
         "log err *Check Unique Fail, Current Unique = norv_avoton_1817, Patch Unique = norv_other*\n"
         "log err IsPatchCompatible(*): Check patch compatible failed with /in/a.pat (-12)."},
        {"no build", 70, 0, version(kUnique), "log err *Get patch build number failed"},
        {"a limit is needed", 70, 0, build("40658"), "log err *Get patch partition version limit Key Fail"},
        {"layout too old", 70, 0, build("40658\npartitionversionlimit=10"),
         "log err *Check partition version Fail, Current partition = 9, Patch limit partition = 10"},
        {"layout just new enough", 0, 0, build("40658\npartitionversionlimit=9")},
        {"last build without a limit", 0, 0, build("40657\npartitionversionlimit=10")},
        {"model of 33 letters", 13, -8, version(k33 + kBuild, conf(k33))},
        {"failed SAS firmware", 13, -21, with(conf(kUnique + "supportsas=yes\n") + file("/.sas_fw_upgrade_fail")),
         "log err *(ErrFHOSTDoUpgrade) retv=[-21]"},
        {"no system device to hold the volume against", 0, 0, with(conf(kUnique + "supportsas=yes\n"))},
        {"updater 255", 10, -10, updater("exit 255"),
         "log err *Executing [/vol/upd@te/updater -v /vol > /dev/null 2>&1] error[255]\n"
         "log err ErrFHOSTDoUpgrade(*): child process failed, retv=-10\n"
         "log err *(ErrFHOSTDoUpgrade) err=[-10]\nlog err *(ErrFHOSTDoUpgrade) retv=[-10]\n"
         "log err do_upgrade.cpp:* Failed to unpack firmware.*"},
        {"updater 12", 12, -12, updater("exit 12")},
        {"updater 65", 65, -65, updater("exit 65")},
        {"updater 70", 13, -70, updater("exit 70")},
        {"old form", 0, 0, old_form({}), "log err Pass checksum of /vol/upd@te..."},
        {"not signed", 13, -13, old_form({"--break", "unsigned"}), kNotSigned},
        {"not as listed", 13, -13, old_form({"--break", "checksum"}), kNotListed},
        {"list without totals", 13, -13, old_form({"--break", "no-totals"}), kNotListed},
        {"another extension", 13, 0, with(kNoChange, "/in/b.pat.gz"),
         "log * IsPatchCompatible(*): Bad format of szFilePath(/in/b.pat.gz): wrong file extension.",
         " Wrong File Extension.\n\n"},
        {"a folder", 13, 0, with(directory("/in/dir.pat"), "/in/dir.pat"),
         "log * IsPatchCompatible(*): szFilePath(/in/dir.pat) does not exist",
         " The file does not exist, please type the right patch path\n\n"},
        {"no folder in the path", 13, 0, with(file("/b.pat"), "b.pat"),
         "log * IsPatchCompatible(*): Check patch compatible failed with b.pat (-1).",
         " Check patch compatible failed with b.pat.\n"},
        {"state cannot be written", 13, 0, with(directory(kState)),
         "log * is_patch_compatible.cpp:* Fail to open file " + kState + "*", " Fail to open file " + kState + "\n"},
        {"no patch in it", 13, 0, with(file(kPatch, "patch") + file("/in/VERSION", kUnique + kBuild)),
         "log * is_patch_compatible.cpp:* VERSION Extraction failed [/in/a.pat]", " Version Check Fail.\n"},
        {"no volume", 13, 0, to(std::nullopt), "", kNotMoved + "\n"},
        {"no such volume", 13, 0, to("/none"), "", kNotMoved + "/none/upd@te.pat\n"},
        {"too long a volume", 13, 0, to(long_volume), "", kNotMoved + long_volume + "/upd@te."},
        {"not moved", 13, 0, with(program("/bin/mv", {.exit_status = 1})), "",
         " Failed to mv /in/a.pat to /vol/upd@te.pat, NorvErr =[0x2A00 do_upgrade.cpp:"},
        {"there already", 0, 0, with(kNoChange, "/vol/upd@te.pat")},
        {"below the root", 0, 0, with(kNoChange, "/a.pat"), "log * *from Old Patch Format [/a.pat][/]"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        const Case &more = row.with;
        const std::string patch = patch_make(more.version, more.updater, 2047, more.options);
        Sandbox box;
        machine(box, patch);
        box.file("/vol/data", "of the user");
        box.leaves({"/VERSION"});
        if (row.code == 0)
            box.file(more.path, patch);
        more.change(box);
        std::vector<std::string> command = {"norvupgrade", "--patch", more.path};
        if (more.volume)
            command.push_back(*more.volume);
        const Result result = box.run(command, {.leaves = kLeaves});
        const bool is_good = row.code == 0, is_moved = row.recorded != 0;
        EXPECT_EQ(result.exit_status, is_good ? 0 : 255);
        const std::string steps = (is_moved ? "5 0 0" : "\n") + "5 "s + std::to_string(row.code) + " 0";
        EXPECT_TRUE(result.err.ends_with(steps)) << result.err;
        EXPECT_NE(result.err.find(row.said), std::string::npos) << result.err;
        EXPECT_EQ(result.out.find(" Upgrade by the manual patch [" + more.path + "] fail.\n") != std::string::npos,
                  !is_good);
        EXPECT_EQ(result.out.ends_with(" Upgrade by the manual patch fail.\n"), !is_good) << result.out;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(box.exists(kPatch), !is_moved && (!is_good || more.path != kPatch));
        const std::string untouched = is_good ? "" : "of the one before";
        EXPECT_EQ(text_of(box, kCode), is_moved ? code_text(row.recorded) : untouched);
        std::vector<std::string> left = box.list("/vol");
        std::erase(left, "VERSION"); // beside a patch that was there
        EXPECT_EQ(left, std::vector<std::string>{"data"});
        EXPECT_EQ(box.exists("/mnt"), is_good);
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
    const struct {
        const char *size;
        uint64_t device_bytes;
        bool fits;
        const char *record = "";
        size_t image_bytes = 2047;
    } kRows[] = {
        {"extractsize=1000", kFits, true},
        {"extractsize=1000", kFits - 1, false,
         "log err *[/dev/md0] has [21998591] bytes but requires [21998592] bytes\n"
         "log err *partition /dev/md0 is not enough for 21483\n"
         "log err ErrFHOSTDoUpgrade(*): child process failed, retv=-16"},
        {"", kFits, false, "log err *fail to read [extractsize] from [/tmpData/upd@te/VERSION]"},
        {"extractsize=12ab", kFits, false, "log err *fail to convert [12ab] to long long"},
        {"extractsize=18014398509481984", kFits, false}, // more bytes than a number holds
        {"extractsize=1000", kFits, false, "log err *stat [/tmpData/upd@te/hda1.tgz] failed, errno=2(*", 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.size << " " << row.device_bytes);
        const std::string patch = patch_make(kUnique + kBuild + row.size + "\n", "exit 0", row.image_bytes);
        Sandbox box;
        machine(box, patch);
        box.file(kConf, kPorts + kUnique + "supportraid=yes\n");
        box.device("/dev/md0", row.device_bytes);
        upload(box, patch);
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
    char type = '0'; // file; '1' hard link, '2' symbolic link, '5' folder, '6' pipe
    std::string target = "";
    unsigned mode = 0644;
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
        {"name that leads out", {version, {.name = "../escaped"}, {.name = "sub/../../escaped"}}},
        {"file through a link",
         {version, {.name = "link", .type = '2', .target = "/etc"}, {.name = "link/escaped", .content = program}}},
        {"file over a link",
         {version, {.name = "link", .type = '2', .target = "/etc/passwd"}, {.name = "link", .content = "root::0:0"}}},
        {"mode of a hard link", {version, {.name = "link", .type = '1', .target = "../../etc/passwd", .mode = 04777}}},
        {"link in place of the folder",
         {version, {.name = ".", .type = '2', .target = "/etc"}, {.name = "escaped", .content = program}}},
        {"pipe for a signature", {version, {.name = "Norvessa.sig", .type = '6'}}},
        {"device for a signature", {version, {.name = "Norvessa.sig", .type = '2', .target = "/dev/zero"}}},
        {"pipe for a list", {version, {.name = "checksum.norv", .type = '6'}}},
        {"endless VERSION", {{.name = "VERSION", .type = '2', .target = "/dev/zero"}}, false},
        {"pipe for a VERSION", {{.name = "VERSION", .type = '6'}}, false},
        {"VERSION of a hard link", {{.name = "VERSION", .type = '1', .target = "/etc/passwd"}}, false},
        {"long VERSION", {{.name = "VERSION", .content = kUnique + kBuild + std::string(1 << 20, '\n')}}, false},
        {"program in a VERSION",
         {{.name = "VERSION/", .type = '5', .mode = 0755},
          {.name = "VERSION/program", .content = program, .mode = 04755}},
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
