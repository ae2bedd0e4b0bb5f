// What goes wrong around the roles besides installs: each program that a role runs fails in each way, each request that
// it sends to the board fails, and daemons are ended at many moments of their start. Programs and requests come from
// the record of a good run, so that none is forgotten.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "tests/support/box_links.h"
#include "tests/support/box_text.h"
#include "tests/support/points.h"
#include "tests/support/sandbox.h"

namespace
{

struct Row {
    std::vector<std::string> command;
    std::vector<std::string> silent = {}; // programs or requests whose failure nobody needs to hear of
};

// Whatever the roles below ask for, in small.
void machine(Sandbox &box)
{
    box.file("/etc.defaults/norvinfo.conf", "supportraid=\"yes\"\nmaxdisks=\"4\"\ninternalportcfg=\"0xf\"\n"
                                            "esataportcfg=\"0\"\nusbportcfg=\"0x10000\"\nsupportmicrop=\"yes\"\n");
    box.file("/etc.defaults/VERSION", "buildnumber=\"42\"\n");
    box.file("/proc/swaps", "Filename\tType\tSize\tUsed\tPriority\n");
    box.file("/proc/cpuinfo", "processor : 0\n");
    box.file("/proc/sys/kernel/norv_swap_flag", "0");
    box.file("/proc/sys/kernel/norv_install_flag", "0");
    box.file("/proc/partitions", "major minor  #blocks  name\n\n   8 0 1073741824 sda\n   8 16 1073741824 sdb\n");
    for (const char *disk : {"sda", "sdb"}) {
        box.directory(std::string("/sys/block/") + disk);
        box.device(std::string("/dev/") + disk, 1ULL << 40);
    }
    for (const char *path : {"/sbin/mdadm", "/bin/norvdd", "/sbin/mkswap", "/usr/sbin/inetd", "/bin/dd", "/bin/mkdir",
                             "/sbin/pvs", "/sbin/lvremove", "/sbin/vgremove", "/sbin/pvremove"})
        box.program(path);
    box.program("/usr/sbin/arping", {{.args = "*8.8.8.8", .exit_status = 1}, {}});
    box.program("/sbin/sfdisk", {{.args = "-l -uS*", .exit_status = 1}, {}});
    box.compress_sleeps();
    box.leaves({"/tmp/*", "/dev/md*", "/run/*", "/var/run/*", "semaphore *", "lock *", "/proc/*", "/etc/*", "/sys/*",
                "/.box/volumes/*"});
}

// What a run told anyone: its exit status, its output and its log.
std::string told(const Result &result)
{
    return std::to_string(result.exit_status) + "\n" + result.out + result.err + result.log_text();
}

// The role ends by itself, says that something is wrong, and the machine is none the worse.
void fault_check(const Row &row, const char *what, const std::function<void(Sandbox &)> &spoil,
                 const std::function<void(Sandbox &)> &mend, const std::string &good, bool may_be_silent)
{
    SCOPED_TRACE(what);
    Sandbox box;
    machine(box);
    spoil(box);
    const Result spoilt = box.run(row.command, {.env = {"REMOTE_ADDR=10.0.0.9"}});
    EXPECT_EQ(spoilt.signal, 0);
    EXPECT_TRUE(may_be_silent || told(spoilt) != good) << "nobody is told";
    mend(box);
    for (const char *state : {"/tmp/norv_swap_status.json", "/dev/md0", "/dev/md1"})
        box.remove(state);
    EXPECT_EQ(std::to_string(box.run(row.command, {.env = {"REMOTE_ADDR=10.0.0.9"}}).exit_status),
              good.substr(0, good.find('\n')));
}

Result good_run(const Row &row)
{
    Sandbox box;
    machine(box);
    return box.run(row.command, {.env = {"REMOTE_ADDR=10.0.0.9"}});
}

bool is_listed(const std::vector<std::string> &patterns, const std::string &text)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string &pattern) { return pattern_matches(pattern, text); });
}

TEST(RoleFaults, EachProgramFails)
{
    // No answer about volumes or partitions is as good as none of them; clearing goes on with what can be cleared.
    const Row kRows[] = {
        {{"raidtool", "initsys"}},
        {{"raidtool", "newvol"}},
        {{"raidtool", "destroy", "2"}, {"/sbin/pvs"}},
        {{"norvcleanpartition"}, {"/bin/dd"}},
        {{"norv_swap_ctl", "--start"}},
        {{"norv_swap_ctl", "--on", "/dev/sda2"}},
        {{"start_telnet.cgi"}},
        {{"norvcheckpartition", "sda"}, {"/sbin/sfdisk"}},
        {{"norvssdcache", "--check"}},
    };
    struct Fault {
        const char *name;
        std::optional<ProgramRow> row; // none: the program is not there
        bool is_failure;               // as the role can see it
    };
    const Fault kFaults[] = {{"missing", std::nullopt, true},
                             {"exit 1", ProgramRow{.error = "no\n", .exit_status = 1}, true},
                             {"exit 255", ProgramRow{.exit_status = 255}, true},
                             {"killed", ProgramRow{.signal = SIGKILL}, true},
                             {"idle", ProgramRow{}, false}};
    int points = 0;
    for (const Row &row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.command));
        const Result good = good_run(row);
        std::set<std::string> programs;
        for (const std::string &line : good.record.lines)
            if (line.starts_with("run ") && !line.starts_with("run /bin/sh "))
                programs.insert(line.substr(4, line.find(' ', 4) - 4));
        for (const std::string &program : programs)
            for (const Fault &fault : kFaults) {
                points++;
                fault_check(
                    row, (program + ": " + fault.name).c_str(),
                    [&](Sandbox &box) {
                        if (!fault.row)
                            box.remove(program);
                        else
                            box.program_answer([&](const ProgramCall &call) {
                                return call.path == program ? fault.row : std::nullopt;
                            });
                    },
                    [&](Sandbox &box) {
                        if (!fault.row)
                            box.program(program);
                        else
                            box.program_answer([](const ProgramCall &) { return std::optional<ProgramRow>(); });
                    },
                    told(good), !fault.is_failure || is_listed(row.silent, program));
            }
    }
    points_tried(points);
    EXPECT_GT(points, 40);
}

TEST(RoleFaults, EachRequestToTheBoardFails)
{
    const Row kRows[] = {
        {{"mantool", "-mw", "0x10", "0xff"}},
        {{"mantool", "-md", "0x10"}},
        {{"mantool", "-gpio_write", "10", "1"}},
        {{"mantool", "-gpio_read", "10"}},
        {{"mantool", "-uart2", "w", "2"}},
        {{"mantool", "-button_test", "enable"}},
        {{"mantool", "-rtc_get"}},
        {{"mantool", "-temperature"}},
        {{"mantool", "-cpu_temp"}},
        {{"mantool", "-fan_status_get"}},
        {{"mantool", "-auto_poweron_disable"}},
        {{"mantool", "-auto_poweron_get", "1"}},
        {{"mantool", "-set_pwm", "V05"}},
        {{"mantool", "-mem_write", "0xfed80000", "0x1"}},
        {{"mantool", "-mem_read", "0xfed80000"}},
        {{"mantool", "-led_mask_on"}},
        {{"norvhwctrl", "-set_stat_led", "run"}},
        {{"norvhwctrl", "-set_led", "power_green_on"}},
        {{"norv_led_mask_on"}},
        {{"norv_microp_control", "-v"}},
    };
    int points = 0;
    for (const Row &row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.command));
        const Result good = good_run(row);
        std::set<std::string> requests;
        for (const std::string &line : good.record.lines) {
            std::istringstream words(line);
            std::string kind, code, name;
            if (words >> kind >> code >> name && kind == "board" && code.starts_with("0x"))
                requests.insert(name);
        }
        for (const std::string &request : requests)
            for (const char *error : {"EIO", "EINVAL", "EINTR", "ENODEV"}) {
                points++;
                fault_check(
                    row, (request + ": " + error).c_str(),
                    [&](Sandbox &box) { box.board_scenario("fail " + request + " " + error + "\n"); },
                    [&](Sandbox &box) { box.board_scenario("fail " + request + " none\n"); }, told(good),
                    is_listed(row.silent, request));
            }
        if (!requests.empty()) {
            points++;
            fault_check(
                row, "no board",
                [](Sandbox &box) { box.call({.call = "open", .args = "/dev/norvbios *", .error = ENXIO, .times = 1}); },
                [](Sandbox &) {}, told(good), is_listed(row.silent, "open"));
        }
    }
    points_tried(points);
    EXPECT_GT(points, 80);
}

// A daemon that is told to end at any moment of its start ends, and the next one starts as ever.
TEST(RoleFaults, DaemonsEndAtAnyMoment)
{
    constexpr int kPoints = 20;
    constexpr double kLimit_s = 60;
    struct Daemon {
        const char *role, *serves; // the record's line when it does
    };
    const Daemon kDaemons[] = {
        {"ncemd", "board * event_source 2 0"}, {"findhostd", "select 5.*"}, {"manutild", "select 3.*"}};
    int points = 0;
    for (const Daemon &daemon : kDaemons) {
        const char *role = daemon.role, *serves = daemon.serves;
        SCOPED_TRACE(role);
        Sandbox box;
        BoxLinks links(box);
        ASSERT_TRUE(links.live_wire("eth0", "peer0"));
        machine(box);
        box.leaves({std::string("process ") + role});
        const std::string pid_file = std::string("/var/run/") + role + ".pid";
        const auto launch_and_end = [&](size_t lines, int number) {
            const size_t before = box.record().lines.size();
            const int served = box.record().count(serves);
            Process process = box.start({role}, {.seconds = kLimit_s});
            const auto is_there = [&] {
                const Record record = box.record();
                return lines > 0 ? record.lines.size() >= before + lines : record.count(serves) > served;
            };
            for (int tries = 0; tries < 60'000 && !is_there(); tries++)
                usleep(1000);
            EXPECT_TRUE(is_there());
            const size_t took = box.record().lines.size() - before;
            const auto end = [&] {
                if (process.running())
                    box.signal(process.pid(), number);
                for (const Sandbox::Running &row : box.processes())
                    if (row.name == role)
                        box.signal(row.pid, number);
            };
            end();
            for (int tries = 0; tries < 6000 && (process.running() || !box.processes().empty()); tries++) {
                usleep(10'000);
                if (tries % 50 == 49)
                    end(); // it was just between two processes
            }
            EXPECT_FALSE(process.running());
            EXPECT_EQ(box.processes().size(), 0U);
            process.wait();
            return took;
        };
        const size_t whole = launch_and_end(0, SIGTERM);
        for (int point = 0; point < kPoints && !HasFailure(); point++, points++) {
            SCOPED_TRACE("point " + std::to_string(point));
            launch_and_end(1 + whole * static_cast<size_t>(point) / kPoints, point % 2 == 0 ? SIGTERM : SIGKILL);
        }
        launch_and_end(0, SIGTERM);
    }
    points_tried(points);
}

} // namespace
