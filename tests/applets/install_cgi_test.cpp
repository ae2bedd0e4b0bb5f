// An install that a browser asks for.
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/web_install.h"

namespace
{

constexpr char kProgress[] = "/tmp/install.progress", kInstaller[] = "/usr/norv/sbin/installer.sh";

// Whatever stood in the way is gone: the same machine is installed.
void expect_next_install(Sandbox &box, const Firmware &firmware, const std::string &patch)
{
    install_child_wait(box);
    for (const char *path : {"/.memtest", "/tmp/install.lock", "/tmpData"})
        box.remove(path);
    expect_unlocked(box);
    install_machine(box, firmware);
    EXPECT_EQ(box.run({"install.cgi"}, cgi_request("upload=true", patch_form(patch))).out, kStarted);
    install_child_wait(box);
    EXPECT_EQ(box.read_file(kProgress), success_body("nas"));
}

class WebInstall : public testing::Test
{
  protected:
    Firmware firmware{};
    std::string good = firmware.patch(); // installs
};

TEST_F(WebInstall, Succeeds)
{
    const struct {
        const char *query, *body; // without a body: the patch
        const char *record;
    } kRows[] = {
        {"x=y&upload=true&status=not_install&utctime=1600000000", "",
         "log err install_cgi.cpp:* Unknown param x=y\nboard 0xc0074b06 rtc_write *\n"
         "run /usr/norv/sbin/installer.sh -r*\nrun /bin/mount /dev/md0 /tmpData\n"
         "run /bin/mv /tmpData/@autoupdate/upload.pat /tmpData/upd@te.pat\nlog err *Pass checksum of *\n"
         "log err *Executing [/tmpData/upd@te/updater -v /tmpData > /dev/null 2>&1] error[0]"},
        {"upload=true&status=sys_migrat", "", "run /bin/umount -f /tmpData\nrun /bin/mount /dev/md0 /tmpData"},
        {"status=not_install", "buildin=true&hostname=nas",
         "run /usr/norv/sbin/installer.sh -r*\nrun /usr/bin/xz -cd /tmp/bootmnt/hda1.tgz\n"
         "run /bin/cp /tmp/bootmnt/updater /tmpData/.updater"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.query);
        const bool is_upload = row.body[0] == '\0', is_migration = std::string(row.query).ends_with("sys_migrat");
        Sandbox box;
        if (is_migration) // one that was killed has left this
            box.file("/proc/mounts", "/dev/md0 /tmpData ext4 rw 0 0\n");
        std::string stages;
        const auto stage_note = [&](const ProgramCall & /*call*/) {
            const std::string body = text_of(box, kProgress);
            for (const char *stage : {"format_sys", "install"})
                if (body == stage_body(stage))
                    stages += std::string(stage) + " ";
        };
        box.program(kInstaller, {{.reads_input = true}});
        box.program("/bin/mount", {{.args = "* /tmpData", .effect = stage_note}});
        box.program("/bin/cp", {{.args = "-f *", .effect = stage_note}});
        firmware.boot_partition(box);
        box.program("/usr/bin/xz", {{}});
        install_machine(box, firmware);
        const Result result = box.run({"install.cgi"}, cgi_request(row.query, is_upload ? patch_form(good) : row.body));
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, kStarted);
        install_child_wait(box);
        EXPECT_EQ(box.read_file(kProgress), success_body("nas"));
        EXPECT_EQ(stages, "format_sys install ");
        EXPECT_TRUE(box.record().in_order(lines(row.record)));
        EXPECT_TRUE(box.record().in_order({"run /bin/cp -f /etc/dhcpc/dhcpcd-eth0.info /tmpData/etc/dhcpc",
                                           "run /bin/umount -f /tmpData", "run /usr/sbin/pppoe-stop"}));
        const std::vector<ProgramCall> formats = box.calls(kInstaller);
        ASSERT_EQ(formats.size(), is_migration ? 0U : 1U);
        EXPECT_EQ(formats.empty() ? "" : formats[0].input, ""); // not the patch
        EXPECT_EQ(box.record().count("run /usr/sbin/inetd*"), 0);
        EXPECT_EQ(box.read_file("/tmpData/.ns_configure.sh"),
                  "#!/bin/sh\n/usr/norv/sbin/norvnet --set_hostname nas\n" +
                      std::string(is_upload ? "/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f /.ns_pwd\n" : "") +
                      "/usr/norv/sbin/norvnet --dhcp eth0\n\n");
        EXPECT_TRUE(!is_upload || box.list("/tmpData/@autoupdate") == std::vector<std::string>{"VERSION"});
        expect_unlocked(box);
    }
}

enum Told { kAnswer, kBoth, kProgressAlone };

struct Request {
    std::string query = "upload=true";
    std::string body = patch_form("no patch");
    std::string type = "multipart/form-data; boundary=B";
    int promised = 0; // so many bytes more, for which it waits
};

// What goes wrong is told where the page looks for it, nothing stays behind, and the same machine is installed
// afterwards.
TEST_F(WebInstall, Faults)
{
    struct statvfs status = {};
    status.f_bavail = 199;
    status.f_frsize = 1 << 20;
    const std::string small(reinterpret_cast<const char *>(&status), sizeof(status)), form = patch_form("no patch");
    const auto body = [](const std::string &text, int promised = 0) {
        return Request{.body = text, .promised = promised};
    };
    const auto type = [](const std::string &text) { return Request{.type = text}; };
    const auto ask = [](const std::string &query, const std::string &text) {
        return Request{.query = query, .body = text};
    };
    const auto patch = [&](const char *updater) { return body(patch_form(firmware.patch(updater))); };
    const Change no_patience = [](Sandbox &box) { box.compress_sleeps(100); };
    const struct {
        const char *what;
        Told told;
        std::string sec, key;
        int line;
        std::string record;
        Change change = {};
        Request request{};
    } kRows[] = {
        {"memory test", kAnswer, "status", "mem_testing", 47, "log err *Setup install fail", file("/.memtest", "")},
        {"no lock file", kAnswer, "error", "error_apply_lock", 41, "log err *create lock file fail [Is a directory]",
         directory("/tmp/install.lock")},
        {"format", kBoth, "error", "error_mkfs", 35, "log err *FormatPartition fail",
         program(kInstaller, {.exit_status = 3, .times = 1})},
        {"volume", kBoth, "error", "error_unknown", 21, "log err *FormatPartition fail",
         program("/bin/mount", {.args = "* /tmpData", .exit_status = 32, .times = 1})},
        {"no room", kBoth, "error", "no_space", 16, "log err *FreeSize = *, not enough*",
         call({.call = "statvfs", .args = "/tmpData", .bytes = small, .times = 1})},
        {"no folder", kBoth, "error", "error_upload", 54, "log err *Failed to Create /tmpData/@autoupdate",
         file("/tmpData/@autoupdate", "not one")},
        {"not renamed", kBoth, "error", "error_upload", 54,
         "log err *Failed to rename upload patch /tmpData/@autoupdate/upload_tmp.* , /tmpData/@autoupdate/upload.pat",
         directory("/tmpData/@autoupdate/upload.pat")},
        {"no file", kBoth, "error", "error_upload", 54, "log err *Failed to get upload file", kNoChange,
         body(patch_form("x", "other"))},
        {"no type", kBoth, "error", "error_upload", 54,
         "log err *failed to get boundary= from CONTENT_TYPE: ", kNoChange, type("")},
        {"other boundary", kBoth, "error", "error_upload", 54, "log err *Cannot fill buffer[*", kNoChange,
         type("x; boundary=C")},
        {"ends in the patch", kBoth, "error", "error_upload", 54,
         "log err *failed to skip CRLF[]\nlog err *failed to read file. *", kNoChange,
         body(form.substr(0, form.size() - 12))},
        {"stalls", kBoth, "error", "error_upload", 54, "log err *no data within 30 seconds", no_patience,
         body(form.substr(0, form.size() - 12), 12)},
        {"more behind it", kBoth, "error", "error_upload", 54, "log err *Failed to Load CGI param", kNoChange,
         body(form + "more")},
        {"updater refuses", kProgressAlone, "error", "error_version", 10,
         "log err *Upgrade by the uploaded patch /tmpData/@autoupdate/upload.pat fail.", kNoChange, patch("exit 255")},
        {"first start", kProgressAlone, "error", "err_nsconfig", 695,
         "log err install_cgi.cpp:* PrepareNSConfig Fail[0x*", directory("/tmpData/.WEBINST_OK"), patch("exit 0")},
        {"built-in", kProgressAlone, "error", "boot_damaged", 45, "log err *Upgrade by the buildin patch fail.",
         kNoChange, ask("", "buildin=true")},
        {"long query", kProgressAlone, "error", "error_download", 46,
         "log err *Unknown param " + std::string(255, 'x') + "=\nlog err *Upgrade by download patch fail.", kNoChange,
         ask(std::string(256, 'x') + "&upload=true", "hostname=nas")},
        {"encoded query", kProgressAlone, "error", "error_download", 46, "log err *Unknown param %25zz=%25", kNoChange,
         ask("%25zz=%25&upload=%2574rue&=&&status", "hostname=nas")},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        const Request &request = row.request;
        Sandbox box;
        row.change(box);
        install_machine(box, firmware);
        box.file(kProgress, "of the install before");
        const bool is_child = row.told == kProgressAlone;
        const std::string error = error_body(row.sec.c_str(), row.key.c_str(), row.line);
        RunOptions options = cgi_request(request.query, request.body);
        options.env[2] = "CONTENT_LENGTH=" + std::to_string(static_cast<int>(request.body.size()) + request.promised);
        options.env[3] = "CONTENT_TYPE=" + request.type;
        options.input_open = request.promised > 0;
        const Result result = box.run({"install.cgi"}, options);
        EXPECT_EQ(result.exit_status, is_child ? 0 : 255);
        EXPECT_EQ(result.out, is_child ? kStarted : error);
        install_child_wait(box);
        const Record record = box.record();
        EXPECT_TRUE(record.in_order(lines(row.record)));
        EXPECT_EQ(box.read_file(kProgress), row.told == kAnswer ? "of the install before" : error);
        for (const char *line : {"run /usr/sbin/inetd*", "settimeofday 946684800.*", "run /usr/sbin/pppoe-stop*"})
            EXPECT_EQ(record.count(line), is_child ? 1 : 0) << line;
        EXPECT_GE(record.count("run /bin/umount -f /tmpData"), record.count("run /bin/mount /dev/md0 /tmpData"));
        EXPECT_FALSE(box.exists("/tmpData/.ns_configure.sh"));
        if (row.key == "error_upload" && std::string(row.what) != "no folder" && std::string(row.what) != "no file") {
            for (const std::string &name : box.list("/tmpData/@autoupdate"))
                EXPECT_FALSE(name.starts_with("upload_tmp")) << name;
        }
        expect_next_install(box, firmware, good);
    }
}

// The child holds the lock until it is gone, however it goes.
TEST_F(WebInstall, OneAtATime)
{
    Sandbox box;
    box.program(kInstaller, {{.times = 1, .stays = true}});
    install_machine(box, firmware);
    const auto ask = [&](const char *role) {
        return box.run({role}, cgi_request("status=not_install", "utctime=0")).out;
    };
    EXPECT_EQ(ask("install.cgi"), kStarted);
    ASSERT_TRUE(box.wait_for("run /usr/norv/sbin/installer.sh *", 60));
    EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
    EXPECT_EQ(ask("install.cgi"), error_body("error", "error_apply_lock", 41));
    EXPECT_EQ(ask("recover.cgi"), kHeader + "{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": "
                                            "\"error\",\"key\": \"error_apply_lock\",\"line\":41}}");
    EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
    for (const auto &[pid, name] : box.processes())
        if (name == "install.cgi") {
            box.signal(pid, SIGKILL);
            EXPECT_TRUE(box.wait_for_end(pid, 60));
        }
    expect_unlocked(box); // though installer.sh goes on
    for (const auto &[pid, name] : box.processes())
        box.signal(pid, SIGKILL);
    expect_next_install(box, firmware, good);
}

// What no web server sends, and a machine that starts no child.
TEST(WebInstallRequest, Impossible)
{
    const struct {
        const char *what;
        std::vector<std::string> env; // in place of all of a request's
        const char *record;
        Change change = {};
    } kRows[] = {
        {"no query", {"REQUEST_METHOD=GET"}, "log err *getenv(QUERY_STRING) fail. [*\nlog err *ParseGetParam fail"},
        {"no method", {"QUERY_STRING=upload=false"}, "log err *NorvCgiLoadCGIParam fail*"},
        {"no child", {}, "log err *fork fail!\nrun /bin/umount -f /tmpData", call({.call = "fork", .error = EAGAIN})},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        RunOptions options = cgi_request("upload=true&utctime=1600000000", patch_form("no patch"));
        if (!row.env.empty())
            options.env = row.env;
        install_machine(box);
        box.file(kProgress, "of the install before");
        row.change(box);
        const Result result = box.run({"install.cgi"}, options);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.out, error_body("error", "error_unknown", -1));
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_NE(text_of(box, kProgress), result.out);
        EXPECT_NE(text_of(box, kProgress), "of the install before");
    }
}

} // namespace
