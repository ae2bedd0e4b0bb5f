// Recovery of the flash, and the marks of the reset button.
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "tests/support/box_links.h"
#include "tests/support/rows.h"
#include "tests/support/web_install.h"

namespace
{

// A machine with a system on its disks that can bring the flash in line.
void recoverable(Sandbox &box)
{
    install_machine(box);
    const std::string version = "majorversion=6\nminorversion=2\nbuildnumber=25600\n";
    box.file("/recover/etc.defaults/norvinfo.conf", kModel);
    box.file("/recover/etc.defaults/VERSION", version);
    box.file("/recover/.norv/patch/VERSION", version + "unique=norv_avoton_1817\n");
    box.program("/recover/.norv/patch/updater", {{}});
}

TEST(WebRecover, Outcomes)
{
    constexpr char kTime[] = "utctime=1600000000", kUpdater[] = "/recover/.norv/patch/updater";
    const struct {
        const char *what, *body;
        Change change;
        bool is_good, sets_clock;
        const char *record;
    } kRows[] = {
        {"good", kTime, kNoChange, true, true,
         "board 0xc0074b06 rtc_write *\nrun /bin/mount /dev/md0 /recover\n"
         "run /recover/.norv/patch/updater -a /recover\nrun /recover/.norv/patch/updater -r /recover\n"
         "run /bin/umount -f /recover"},
        {"no time", "a=1", kNoChange, true, false, "log err *Set RTC fail\nrun /bin/mount *"},
        {"not mounted", "utctime=0", program("/bin/mount", {.exit_status = 1}), false, false,
         "log err *Mount /dev/md0 on /recover fail"},
        {"not recoverable", "utctime=0", file("/tmp/recover_fail"), false, false,
         "log err *recover fail flag on\nlog err recover_cgi.cpp:* /recover is not recoverable"},
        {"updater fails", "utctime=-1", program(kUpdater, {.args = "-r *", .exit_status = 9}), false, false,
         "log err *recover /recover by /recover//.norv/patch/updater fail\nrun /bin/umount -f /recover"},
        {"no body", "", kNoChange, false, false, "log err *NorvCgiLoadCGIParam fail*"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box);
        recoverable(box);
        row.change(box);
        RunOptions options = cgi_request("", row.body);
        if (row.body[0] == '\0')
            options.env[2] = "CONTENT_LENGTH=5";
        const Result result = box.run({"recover.cgi"}, options);
        EXPECT_EQ(result.out,
                  kHeader + (row.is_good ? "{\"success\": true, \"data\": {}}"
                                         : "{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": "
                                           "\"error\",\"key\": \"error_recover\",\"line\":-1}}"));
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(result.record.count("board * rtc_write *"), row.sets_clock);
        expect_unlocked(box);
    }
}

// The web server ends the request of a client that has gone. What was begun is finished.
TEST(WebRecover, ClientLeaves)
{
    Sandbox box;
    recoverable(box);
    std::optional<Process> cgi;
    const auto leave = [&](const ProgramCall & /*call*/) { cgi->signal(SIGTERM); };
    box.program("/recover/.norv/patch/updater", {{.args = "-r *", .delay_ms = 50, .effect = leave}});
    recoverable(box);
    cgi = box.start({"recover.cgi"}, cgi_request("", "utctime=0"));
    const Result result = cgi->wait();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kUnlocked);
    EXPECT_TRUE(
        result.record.in_order({"run /recover/.norv/patch/updater -r /recover", "run /bin/umount -f /recover"}));
}

// The system's volume has both marks once it is mounted, unless a row says otherwise.
TEST(CleanButtonFlags, Outcomes)
{
    const auto unlink_fails = [](int error) {
        return call({.call = "unlink", .args = "/_disk/.noroot", .error = error});
    };
    const Change one_mark = [](Sandbox &box) {
        box.program("/usr/bin/mount", {{.effect = [&](const ProgramCall &) {
                        box.directory("/_disk");
                        box.file("/_disk/.noroot", "");
                    }}});
    };
    const struct {
        const char *what;
        Change change;
        bool is_good, is_mounted, stays; // the first mark
        const char *record;
    } kRows[] = {
        {"good", kNoChange, true, true, false, "run /usr/bin/umount -l /_disk"},
        {"stranger", program("/usr/sbin/arping", {.exit_status = 1}), false, false, false,
         "run /usr/sbin/arping -I eth0 -c 1 10.0.0.9"},
        {"not mounted", program("/usr/bin/mount", {.exit_status = 32}), false, false, false,
         "run /usr/bin/mount /dev/md0 /_disk"},
        {"one mark", one_mark, false, true, true, "log err *reset-button flags not found"},
        {"not removed", unlink_fails(EROFS), false, true, true, "log err *failed to unlink /_disk/.noroot"},
        {"gone meanwhile", unlink_fails(ENOENT), true, true, true, "run /usr/bin/umount -l /_disk"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        BoxLinks links(box);
        ASSERT_TRUE(links.live_wire("eth0", "peer"));
        box.compress_sleeps();
        row.change(box);
        box.file(kConf, kModel);
        bool first_stays = false, second_stays = false;
        box.program("/usr/sbin/arping", {{.args = "* 8.8.8.8", .exit_status = 1}, {}});
        box.program("/usr/bin/mount", {{.effect = [&](const ProgramCall & /*call*/) {
                        box.directory("/_disk"); // with the permissions of the volume
                        box.file("/_disk/.noroot", "");
                        box.file("/_disk/.system_crashed", "");
                    }}});
        box.program("/usr/bin/umount", {{.effect = [&](const ProgramCall & /*call*/) {
                        first_stays = box.exists("/_disk/.noroot");
                        second_stays = box.exists("/_disk/.system_crashed");
                        box.remove("/_disk/.noroot");
                        box.remove("/_disk/.system_crashed");
                    }}});
        row.change(box);
        const Result result = box.run({"clean_button_flags.cgi"}, {.env = {"REMOTE_ADDR=10.0.0.9"}});
        EXPECT_EQ(result.exit_status, row.is_good ? 0 : 255);
        EXPECT_EQ(result.out, kHeader + (row.is_good ? "{\"success\": true}" : "{\"success\": false}"));
        EXPECT_TRUE(result.record.in_order({row.record}));
        EXPECT_EQ(result.record.count("log err *CleanButtonFlags fail"), row.is_good ? 0 : 1);
        EXPECT_EQ(result.record.count("run /usr/bin/umount *"), row.is_mounted ? 1 : 0);
        EXPECT_EQ(first_stays, row.stays);
        EXPECT_FALSE(second_stays);
        EXPECT_FALSE(box.exists("/_disk"));
    }
}

} // namespace
