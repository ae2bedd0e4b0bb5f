// What goes wrong around an install: each program that a good one runs fails in each way, and the install is killed at
// each start of one. Programs and starts come from the record of a good install, so that none is forgotten.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/box_text.h"
#include "tests/support/points.h"
#include "tests/support/program_faults.h"
#include "tests/support/rows.h"
#include "tests/support/web_install.h"

namespace
{

constexpr char kProgress[] = "/tmp/install.progress";
constexpr char kShell[] = "/bin/sh";
const std::string kVersion = kFirmwareVersion + "buildphase=hotfix\nbuilddate=2020/1/1\nunique=\"norv_avoton_1817\"\n";

// One way that an install goes.
struct Road {
    const char *name, *command;
    std::string query{}, form{}; // of a web request, for install.cgi; '@' in the form is where the patch goes
};

const Road kUpload = {
    "Upload", "install.cgi", "upload=true&status=not_install",
    "--B\r\nContent-Disposition: form-data; name=\"filename\"; filename=\"a.pat\"\r\n\r\n@\r\n--B--\r\n"};
const Road kBuildin = {"Buildin", "install.cgi", "status=not_install", "buildin=true"};
const Road kDownload = {"Download", "install.cgi", "status=not_install", "a=b"};
const Road kAuto = {"AutoCommand", "norvupgrade --auto"};
const Road kPatch = {"PatchCommand", "norvupgrade --patch /in/a.pat /tmpData"};
const Road kBuildinCommand = {"BuildinCommand", "norvupgrade --buildin-install"};

// What a failing program comes to. All three are patterns; the first row that matches counts.
const struct Ending {
    const char *road, *call, *fault;
    int code; // 0: the install succeeds
} kEndings[] = {{"PatchCommand", "/bin/sh", "idle*", 0},
                {"PatchCommand", "/bin/sh", "*", 13},
                {"Download", "/bin/sh", "idle*", 46},
                {"*", "/bin/sh", "idle*", 13},
                {"*", "/bin/sh", "*", 35},
                {"*", "/usr/norv/sbin/installer.sh*", "idle*", 0},
                {"*", "/usr/norv/sbin/installer.sh*", "*", 35},
                {"*", "/bin/mkdir -p /tmpData/upd@te", "*", 13},
                {"*", "/bin/mkdir -p /tmpData", "*", 21},
                {"PatchCommand", "/bin/mkdir", "*", 13},
                {"*", "/bin/mkdir", "idle*", 13},
                {"*", "/bin/mkdir", "*", 21},
                {"*", "/bin/mkdir *", "*", 0}, // for what is mounted a while, without which it goes on
                {"*", "/bin/mount * /tmpData", "*", 21},
                {"PatchCommand", "/bin/mount", "*", 0},
                {"*", "/bin/mount", "idle*", 0},
                {"*", "/bin/mount", "*", 21},
                {"*", "/bin/mount *", "*", 0},
                {"*", "/bin/mv -f *", "*", 0},
                {"*", "/bin/mv*", "*", 13},
                {"*", "/bin/tar*", "*", 13},
                {"*", "/usr/norv/bin/norvcodesign*", "idle*", 0},
                {"*", "/usr/norv/bin/norvcodesign*", "*", 13},
                {"Buildin*", "/usr/bin/cksum*", "*", 45},
                {"*", "/usr/bin/cksum*", "*", 13},
                {"*", "/tmpData/upd@te/updater*", "idle*", 0},
                {"*", "/tmpData/upd@te/updater*", "exit 255", 10},
                {"*", "/tmpData/upd@te/updater*", "*", 13},
                {"Buildin*", "/usr/bin/xz*", "*", 43},
                {"Buildin*", "/bin/cp*", "*", 43},
                {"*", "/bin/cp*", "*", 0},
                {"Download", "/bin/rm", "*", 46},
                {"*", "/bin/rm*", "*", 0},
                {"*", "/bin/sync*", "*", 0},
                {"*", "/bin/umount*", "*", 0},
                {"*", "/sbin/sfdisk*", "*", 0},
                {"*", "/sbin/e2fsck*", "*", 0},
                {"*", "/tmpRoot/.norv/patch/updater*", "*", 0},
                {"*", "/usr/sbin/pppoe-stop*", "*", 0}};

// With this fault each call of a program fails by itself, with the others all of them.
const ProgramFault *const kByCall = &kProgramFaults[1];

constexpr const char *kHostPrograms[] = {kShell, "/bin/mkdir", "/bin/rm", "/bin/mv", "/bin/tar", "/bin/cp"};

struct Start {
    std::string call;
    size_t mounts; // how many volumes were mounted
    bool operator==(const Start &) const = default;
};

// With a healthy system on its disk.
class Machine
{
  public:
    explicit Machine(const Road &of) : road(of)
    {
        box.file("/etc.defaults/norvinfo.conf", kModel + "rss_server_ssl=file:///feed/rss\n");
        box.file("/etc.defaults/VERSION", kVersion);
        box.file("/feed/rss", "<MajorVer>6</MajorVer>\n<MinorVer>2</MinorVer>\n<BuildNum>30000</"
                              "BuildNum>\n<mUnique>norv_avoton_1817</mUnique>\n"
                              "<mLink>file:///feed/a.pat</mLink>\n<mCheckSum>0</mCheckSum>\n");
        box.file("/etc/dhcpc/dhcpcd-eth0.info", "");
        box.file("/tmp/.skip_auto_nano", "");
        box.directory("/sys/block/sda");
        box.device("/dev/md0", 4ULL << 30);
        box.file("/proc/partitions", "   9 0 1 md0\n   9 1 1 md1\n");
        box.program("/sbin/sfdisk", {{.args = "*-N1 /dev/sda", .output = "/dev/sda1 8192 16777216 fd\n"},
                                     {.args = "*-N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 fd\n"},
                                     {.exit_status = 1}});
        box.file("/tmpRoot/etc.defaults/norvinfo.conf", kModel);
        box.file("/tmpRoot/etc.defaults/VERSION", kVersion);
        for (const char *path : {"/bin/mount", "/bin/umount", "/bin/sync", "/sbin/e2fsck", "/usr/norv/bin/norvcodesign",
                                 "/usr/norv/sbin/installer.sh", "/usr/sbin/inetd", "/usr/sbin/pppoe-stop", "/bin/ps",
                                 "/tmpRoot/.norv/patch/updater"})
            box.program(path);
        box.program("/tmpData/upd@te/updater"); // of the patch, once it is unpacked
        box.remove("/tmpData");
        box.program("/usr/bin/xz", {{.output = "root"}});
        // The updater is the box's stand-in, so that the box answers it.
        std::ifstream file(NORV_BINARY_DIR "/tests/support/norv_box_standin", std::ios::binary);
        const std::string standin(std::istreambuf_iterator<char>(file), {});
        patch = firmware.pack(kVersion + "extractsize=1000\n", standin, "x", {"--old"});
        box.file("/feed/a.pat", patch);
        firmware.boot_partition(box);
        firmware.trust(box);
        const std::string cksum = NORV_BINARY_DIR "/platform/programs/cksum";
        for (const std::string member : {"VERSION", "hda1.tgz", "updater"})
            box.program("/usr/bin/cksum", {{.args = "*/" + member,
                                            .output = run_program({cksum, "-o", "3", firmware.path(member)}).out}});
        for (const char *path : kHostPrograms)
            box.host_program(path);
        box.program_answer([this](const ProgramCall &call) { return answer(call); });
    }

    // Runs an install to its end. Returns 0, or the code of its failure.
    int install()
    {
        begin();
        const Result result = box.run(words(road.command), options());
        install_child_wait(box);
        if (road.query.empty()) { // a command tells a failure as stage, code and 0
            std::smatch failure;
            std::regex_search(result.err, failure, std::regex("[0-9] ([1-9][0-9]*) 0"));
            EXPECT_EQ(result.exit_status, failure.empty() ? 0 : 255) << result.err;
            return failure.empty() ? 0 : stoi(failure[1]);
        }
        const std::string told = box.exists(kProgress) ? box.read_file(kProgress) : result.out;
        const size_t line = told.find("\"line\":");
        const bool is_good = told.find("\"Success\"") != std::string::npos;
        EXPECT_NE(is_good, line != std::string::npos) << told;
        return is_good ? 0 : atoi(told.c_str() + line + strlen("\"line\":"));
    }

    // The same where the n-th program, from 1, never ends: the install is killed there, and then what it ran.
    void install_and_kill(size_t n)
    {
        begin(n);
        Process process = box.start(words(road.command), options());
        while (started() < n && (process.running() || !box.processes().empty()))
            usleep(1000);
        EXPECT_EQ(started(), n);
        if (!install_is_running())
            process.signal(SIGKILL); // else its child goes on with the work, and it ends by itself
        process.wait();
        for (const auto &[pid, name] : box.processes())
            if (name == words(road.command)[0])
                box.signal(pid, SIGKILL);
        for (int i = 0; i < 60000 && install_is_running(); i++)
            usleep(1000);
        std::vector<Sandbox::Running> running = box.processes();
        std::sort(running.begin(), running.end(), [](const auto &a, const auto &b) { return a.pid < b.pid; });
        for (const Sandbox::Running &row : running)
            box.signal(row.pid, SIGKILL); // a shell before what it waits for, or it would start the next
        install_child_wait(box);
    }

    // The programs that the install started.
    std::vector<Start> starts()
    {
        const std::lock_guard guard(lock_);
        return starts_;
    }
    std::vector<std::string> mounts()
    {
        const std::lock_guard guard(lock_);
        std::vector<std::string> folders;
        for (const auto &[folder, source] : mounts_)
            folders.push_back(folder);
        const std::string others = box.read_file("/proc/mounts");
        if (std::count(others.begin(), others.end(), '\n') != 1)
            folders.push_back(others);
        return folders;
    }
    void unmount()
    {
        const std::lock_guard guard(lock_);
        mounts_.clear();
    }
    [[nodiscard]] std::vector<std::string> temporary() const
    {
        std::vector<std::string> names = box.list("/tmp");
        for (const char *of_a_failure : {"update.progress", "install.progress"})
            std::erase(names, of_a_failure);
        return names;
    }
    // `call` is the path of a program, or one whole call of it.
    void fail(const std::string &call, const ProgramFault &fault)
    {
        if (fault.row) {
            const std::lock_guard guard(lock_);
            failing_ = {call, *fault.row};
        } else {
            box.remove(call);
        }
    }
    void mend(const std::string &call, const ProgramFault &fault)
    {
        if (fault.row) {
            const std::lock_guard guard(lock_);
            failing_.first = "";
        } else if (std::find(std::begin(kHostPrograms), std::end(kHostPrograms), call) != std::end(kHostPrograms)) {
            box.host_program(call);
        } else {
            box.program(call);
        }
    }

    const Road &road;
    Sandbox box;

  private:
    void begin(size_t last = SIZE_MAX)
    {
        box.remove(kProgress);
        if (&road == &kPatch) { // which it moves
            box.file("/in/a.pat", patch);
            box.directory("/tmpData");
        }
        const std::lock_guard guard(lock_);
        starts_.clear();
        last_ = last;
    }
    [[nodiscard]] RunOptions options() const
    {
        std::string body = road.form;
        if (const size_t at = body.find('@'); at != std::string::npos)
            body.replace(at, 1, patch);
        RunOptions request = cgi_request(road.query, body);
        request.seconds = 120;
        request.leaves = {"*"}; // judged here, when the child is gone too
        return request;
    }
    size_t started()
    {
        const std::lock_guard guard(lock_);
        return starts_.size();
    }
    [[nodiscard]] bool install_is_running() const
    {
        const std::vector<Sandbox::Running> running = box.processes();
        return std::any_of(running.begin(), running.end(),
                           [&](const auto &row) { return row.name == words(road.command)[0]; });
    }
    // In the box's own thread.
    std::optional<ProgramRow> answer(const ProgramCall &call)
    {
        const std::lock_guard guard(lock_);
        std::string line = call.path;
        for (const std::string &word : call.args)
            line += " " + word;
        starts_.push_back({line, mounts_.size()});
        if (starts_.size() == last_)
            return ProgramRow{.stays = true};
        if (failing_.first == call.path || failing_.first == line)
            return failing_.second;
        const std::string folder = call.args.empty() ? "" : call.args.back();
        if (call.path == "/bin/mount") // refuses a folder where something is mounted
            return ProgramRow{.exit_status = mounts_.emplace(folder, call.args[0]).second ? 0 : 32};
        if (call.path == "/bin/umount")
            return ProgramRow{.exit_status = mounts_.erase(folder) == 1 ? 0 : 32};
        return std::nullopt;
    }

    Firmware firmware;
    std::string patch; // of the old form
    std::mutex lock_;  // of what follows
    std::vector<Start> starts_;
    std::map<std::string, std::string> mounts_; // source by folder
    std::pair<std::string, ProgramRow> failing_;
    size_t last_ = SIZE_MAX;
};

bool is_shell(const std::string &call)
{
    return call.starts_with(kShell);
}

std::string program_of(const std::string &call)
{
    return call.substr(0, call.find(' '));
}

class InstallFaults : public testing::TestWithParam<std::pair<const Road *, const ProgramFault *>>
{
};

TEST_P(InstallFaults, ProgramFails)
{
    const Road *road = GetParam().first; // a lambda cannot take what a structured binding names
    const ProgramFault *fault = GetParam().second;
    Machine machine(*road);
    ASSERT_EQ(machine.install(), 0) << machine.box.record().text();
    const std::vector<std::string> temporary = machine.temporary();
    std::set<std::string> calls;
    for (const auto &[call, mounts] : machine.starts())
        calls.insert(fault != kByCall || is_shell(call) ? program_of(call) : call);
    for (const std::string &call : calls) {
        if (!machine.box.exists(program_of(call)) && !fault->row)
            continue; // the patch brings it along
        SCOPED_TRACE(call + ": " + fault->name);
        const auto *ending = std::find_if(std::begin(kEndings), std::end(kEndings), [&](const Ending &row) {
            return pattern_matches(row.road, road->name) && pattern_matches(row.call, call) &&
                   pattern_matches(row.fault, fault->name);
        });
        ASSERT_NE(ending, std::end(kEndings)) << "nobody has said what this comes to";
        machine.fail(call, *fault);
        const int code = machine.install();
        machine.mend(call, *fault);
        EXPECT_EQ(code, ending->code) << machine.box.record().text();
        expect_unlocked(machine.box);
        EXPECT_EQ(machine.temporary(), temporary);
        const bool takes_away = is_shell(call) || call.starts_with("/bin/rm");
        EXPECT_TRUE(takes_away || !machine.box.exists("/tmpData/upd@te"));
        const bool is_clean = machine.mounts().empty(), keeps = call.starts_with("/bin/umount");
        EXPECT_TRUE(is_clean || is_shell(call) || keeps);
        if (keeps && road == &kPatch)
            machine.unmount(); // as the other roads do before they begin
        if (is_clean && (code == 0 || fault != kByCall))
            continue; // the next case shows that installs go on
        EXPECT_EQ(machine.install(), 0);
        EXPECT_EQ(machine.mounts(), std::vector<std::string>());
    }
    EXPECT_EQ(machine.install(), 0);
    points_tried(static_cast<int>(calls.size()));
}

// What the roads have in common is done once in every way.
std::vector<std::pair<const Road *, const ProgramFault *>> fault_params()
{
    std::vector<std::pair<const Road *, const ProgramFault *>> params;
    for (const ProgramFault &fault : kProgramFaults)
        for (const Road *road : {&kUpload, &kDownload, &kPatch})
            params.emplace_back(road, &fault);
    for (const size_t fault : {0U, 3U})
        params.emplace_back(&kBuildin, &kProgramFaults[fault]);
    for (const Road *road : {&kAuto, &kBuildinCommand})
        params.emplace_back(road, kByCall);
    return params;
}

std::string camel_case(std::string text)
{
    for (size_t at = 0; (at = text.find(' ')) != std::string::npos;)
        text.erase(at, 1);
    return text;
}

INSTANTIATE_TEST_SUITE_P(Road, InstallFaults, testing::ValuesIn(fault_params()), [](const auto &row) {
    return row.param.first->name + camel_case(std::string("_") + row.param.second->name);
});

// Each of a few tests takes every so-many-th start that differs from those before it.
constexpr size_t kShares = 3;

class InstallKilled : public testing::TestWithParam<std::pair<const Road *, size_t>>
{
};

TEST_P(InstallKilled, AtEachStart)
{
    const auto &[road, share] = GetParam();
    Machine machine(*road);
    ASSERT_EQ(machine.install(), 0);
    const std::vector<std::string> temporary = machine.temporary();
    const std::vector<Start> starts = machine.starts();
    size_t stages = 0;
    for (auto start = starts.begin(); start != starts.end(); ++start) {
        if (is_shell(start->call) || std::find(starts.begin(), start, *start) != start || stages++ % kShares != share)
            continue;
        SCOPED_TRACE("killed while it runs " + start->call);
        machine.install_and_kill(static_cast<size_t>(start - starts.begin()) + 1);
        EXPECT_EQ(machine.starts().back(), *start);
        expect_unlocked(machine.box);
        EXPECT_EQ(machine.install(), 0) << machine.box.record().text();
        EXPECT_EQ(machine.mounts(), std::vector<std::string>());
        EXPECT_EQ(machine.temporary(), temporary);
    }
    EXPECT_GT(stages, 20U);
    points_tried(static_cast<int>(stages / kShares));
}

std::vector<std::pair<const Road *, size_t>> kill_params()
{
    return {{&kUpload, 0}, {&kUpload, 1}, {&kUpload, 2}, {&kBuildin, 0}};
}

INSTANTIATE_TEST_SUITE_P(Road, InstallKilled, testing::ValuesIn(kill_params()),
                         [](const auto &row) { return row.param.first->name + std::to_string(row.param.second); });

} // namespace
