// From the name of the program to its role, and what happens on the way.
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "build_paths.h"
#include "tests/support/box.h"
#include "tests/support/points.h"
#include "tests/support/rows.h"
#include "tests/support/sanitized.h"

namespace
{

const std::vector<std::string> kRoles =
    words("manutild findhostd raidtool norvcfgen norvhdcfgen norvcheckpartition norvcleanpartition norvgetmaxpartition "
          "norvchecksum norvhwctrl mantool norv_microp_control norvdiskport norvdiskupdatehclport norvupgrade "
          "install.cgi lock_check.cgi recover.cgi start_telnet.cgi clean_button_flags.cgi session.cgi norvcodesign "
          "norvnetseqadj norvssdcache norvlanstatus norv_pstore_collect norv_swap_ctl norv_extract_system_patch "
          "norv_oob_power_action norv_oob_ipv4_get norvstgcore norv_led_mask_on");

constexpr char kProbe[] = "/bin/probe"; // starts a role as no shell does
constexpr char kModel[] = "/etc.defaults/norvinfo.conf";
constexpr char kBanner[] = "Copyright (c) 2003-2021 Norvessa, Inc. All rights reserved.\n";
const std::vector<std::string> kLeaves =
    words("/tmp/install.lock /var/lock/oob_ioctl.lock 'process manutild' /var/run/manutild.pid* 'process findhostd' "
          "/var/run/findhostd.pid* /tmp/fhost.status* /var/lib* /var/lock/disk_rule_update.lock");

// The daemon answers a single --help with the banner and 0. Of the roles only manutild does so too.
bool is_daemon(const Result &result)
{
    return result.exit_status == 0 && result.out == kBanner && result.err.empty();
}

TEST(Dispatch, EveryListedNameIsItsRole)
{
    Sandbox box;
    for (const std::string &role : kRoles) {
        SCOPED_TRACE(role);
        const Result plain = box.run({role, "--help"}, {.leaves = kLeaves});
        EXPECT_TRUE(!is_daemon(plain) || role == "manutild");
        for (const char *prefix : {"./", "/usr/sbin/norvhwctrl/"}) {
            const Result result = box.run({role, "--help"}, {.argv0 = prefix + role, .leaves = kLeaves});
            EXPECT_EQ(result.exit_status, plain.exit_status) << prefix;
            EXPECT_EQ(is_daemon(result), is_daemon(plain)) << prefix;
        }
    }
}

TEST(Dispatch, AnyOtherNameIsTheEventDaemon)
{
    std::vector<std::string> names = words("norv Raidtool raidtool2 raidtoo raidtool/ / ''");
    names.emplace_back(4096, 'r');
    names.push_back(std::string(4096, '/') + "session.cgi/x");
    Sandbox box;
    for (const std::string &name : names) {
        SCOPED_TRACE(name.substr(0, 40));
        EXPECT_TRUE(is_daemon(box.run({"ncemd", "--help"}, {.argv0 = name})));
    }
}

// The words around the banner's year are printed, but not readable in the executable.
TEST(Dispatch, BannerWordsAreScrambled)
{
    std::ifstream file(NORV_BINARY_DIR "/norv", std::ios::binary);
    const std::string executable(std::istreambuf_iterator<char>(file), {});
    ASSERT_NE(executable.find("norv_extract_system_patch"), executable.npos);
    const std::string banner = kBanner;
    for (const std::string &words : {banner.substr(0, 19), banner.substr(23, 36)})
        EXPECT_EQ(executable.find(words), executable.npos) << words;
}

// A role that meets a hostile setting ends by itself and leaves nothing behind, and as it would otherwise wherever what
// it lacks is nothing it needs.
TEST(Dispatch, HostileSettings)
{
    const struct {
        const char *what;
        RunOptions options;
        bool may_fail = false;
    } kSettings[] = {
        {"no environment", {.empty_env = true}},
        {"streams closed", {.closed = {0, 1, 2}}},
        {"descriptors", {.limits = {{RLIMIT_NOFILE, 8}}}},
        {"stack", {.limits = {{RLIMIT_STACK, 256 << 10}}}},
        {"core", {.limits = {{RLIMIT_CORE, 0}}}},
#ifndef SANDBOX_SANITIZED // which needs descriptors, terabytes and a process of its own
        {"children", {.limits = {{RLIMIT_NPROC, 0}}}, true},
        {"few descriptors", {.limits = {{RLIMIT_NOFILE, 4}}}, true},
        {"memory", {.limits = {{RLIMIT_AS, 12 << 20}}}},
#endif
        {"no file may grow", {.limits = {{RLIMIT_FSIZE, 0}}}, true},
        {"small files", {.limits = {{RLIMIT_FSIZE, 8}}}, true},
        {"output full", {.output = Output::kFull}},
        {"output closed", {.output = Output::kBroken}},
    };
    Sandbox box;
    box.host_file(kProbe, SANDBOX_PROBE);
    box.file(kModel, "supportraid=\"no\"\n");
    box.compress_sleeps();
    box.leaves(kLeaves);
    box.leaves({"process ncemd", "/tmp/.not.dualhead"});
    std::vector<std::string> names = kRoles;
    names.emplace_back("ncemd");
    // A daemon goes on behind its starter.
    const auto run_and_end = [&](const std::vector<std::string> &command, const RunOptions &options) {
        Result result = box.run(command, options);
        for (std::vector<Sandbox::Running> running; !(running = box.processes()).empty(); usleep(1000))
            for (const Sandbox::Running &process : running)
                box.signal(process.pid, SIGKILL);
        return result;
    };
    int points = 0;
    for (const std::string &role : names) {
        SCOPED_TRACE(role);
        const int plain = run_and_end({role}, {}).exit_status;
        for (const auto &[what, options, may_fail] : kSettings) {
            SCOPED_TRACE(what);
            const Result result = run_and_end({role}, options);
            EXPECT_EQ(result.signal, 0);
            EXPECT_TRUE(may_fail || result.exit_status == plain) << result.exit_status << " is not " << plain;
            points++;
        }
        for (const char *signals : {"blocked", "ignored"}) {
            EXPECT_EQ(run_and_end({kProbe, signals, role_path(role)}, {}).exit_status, plain) << signals;
            points++;
        }
    }
    points_tried(points);
}

// Without a name there is none that is listed. Help counts only alone.
TEST(Dispatch, EventDaemonGoesToWork)
{
    Sandbox box;
    box.host_file(kProbe, SANDBOX_PROBE);
    box.compress_sleeps();
    box.leaves({"process *", "/tmp/.not.dualhead"});
    EXPECT_EQ(box.run({"ncemd", "-x", "--help"}).out, "");
    for (const char *role : {"raidtool", "findhostd"}) {
        const Result result = box.run({kProbe, "nameless", role_path(role)});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.record.count("log err *start ncemd"), 1);
    }
}

// A file that is opened first must not become standard output: here the log would receive the usage text.
TEST(Dispatch, ClosedOutputLandsNowhere)
{
    Sandbox box; // without a model description there is something to log
    for (const int closed : {0, 1, 2}) {
        const Result result = box.run({"norvhwctrl"}, {.closed = {closed}});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.record.count("log *Failed to get key supportraid*"), 1);
        EXPECT_EQ(result.record.count("*-set_led*"), 0);
    }
}

// Without a usable model description a role runs all the same; only `supportraid` leaves a line. Programs whose output
// is a web answer say nothing before it.
TEST(Dispatch, ModelDescription)
{
    static const struct {
        const char *text; // NULL: no file
        int complaints;
    } kCases[] = {
        {nullptr, 1},
        {"supportraid=\n", 1},
        {"supportraid=\"yes\"\n", 0},
        {"supportraid=\"1234567890123456789012345678901\"\n", 0},  // 31 fit
        {"supportraid=\"12345678901234567890123456789012\"\n", 1}, // 32 do not
        {"support_acm=\"yes\"\ninternal_disk_without_led_mask=\"yes\"\nsupportraid=\"no\"\n", 0},
    };
    for (const auto &[text, complaints] : kCases) {
        SCOPED_TRACE(text == nullptr ? "none" : text);
        Sandbox box;
        if (text != nullptr)
            box.file(kModel, text);
        const Result result = box.run({"session.cgi"});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, "Content-type: application/json; charset=\"UTF-8\"\r\n\r\n{ \"lang\": \"enu\" }");
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.record.count("log err main.cpp:*(main) Failed to get key supportraid from "
                                      "/etc.defaults/norvinfo.conf"),
                  complaints);
        EXPECT_EQ(result.record.count("log err *"), complaints);
    }
}

} // namespace
