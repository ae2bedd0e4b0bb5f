// An install that a browser asks for, through the web server.
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/web_install.h"
#include "tests/support/web_server.h"

namespace
{

constexpr char kProgress[] = "/tmp/install.progress", kInstaller[] = "/usr/norv/sbin/installer.sh";
const std::string kMultipart = "multipart/form-data; boundary=B";

std::string post(const std::string &query, const std::string &type, const std::string &body, size_t length)
{
    return http_request("POST", "/cgi-bin/install.cgi?" + query,
                        (type.empty() ? "" : "Content-Type: " + type + "\r\n") +
                            "Content-Length: " + std::to_string(length) + "\r\n",
                        body);
}

// What a role said, headers and all.
std::string said(const HttpAnswer &answer)
{
    EXPECT_EQ(answer.status, 200);
    for (const char *header : {"\r\nexpires: mon, 26 jul 1990 05:00:00 gmt\r\n", "\r\npragma: no-cache\r\n",
                               "\r\ncache-control: no-store, no-cache, must-revalidate\r\n",
                               "\r\ncontent-type: text/html; charset=\"utf-8\"\r\n"})
        EXPECT_NE(answer.head.find(header), std::string::npos) << answer.head;
    return kHeader + answer.body;
}

std::string said(const WebServer &server, const std::string &request)
{
    return said(server.ask(request));
}

std::string lock_check(const WebServer &server)
{
    return said(server, http_request("GET", "/cgi-bin/lock_check.cgi"));
}

// A process that has ended holds the lock for a moment longer.
void expect_unlocked(const WebServer &server)
{
    std::string answer = lock_check(server);
    for (int i = 0; i < 6000 && answer != kUnlocked; i++) {
        usleep(10000);
        answer = lock_check(server);
    }
    EXPECT_EQ(answer, kUnlocked);
}

// Whatever stood in the way is gone: the same machine is installed.
void expect_next_install(Sandbox &box, const WebServer &server, const Firmware &firmware, const std::string &patch)
{
    install_child_wait(box);
    for (const char *path : {"/.memtest", "/tmp/install.lock", "/tmpData"})
        box.remove(path);
    expect_unlocked(server);
    install_machine(box, firmware);
    const std::string form = patch_form(patch);
    EXPECT_EQ(said(server, post("upload=true", kMultipart, form, form.size())), kStarted);
    install_child_wait(box);
    EXPECT_EQ(box.read_file(kProgress), success_body("nas"));
}

class WebInstall : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (!WebServer::available())
            GTEST_SKIP() << "no lighttpd here";
        good = firmware.patch();
    }
    Firmware firmware{};
    std::string good{}; // a patch that installs
};

// The stages of progress bodies, each that differs from the one before it.
std::vector<std::string> stages_of(const std::vector<std::string> &bodies)
{
    const std::string key = "\"stage\": \"";
    std::vector<std::string> stages;
    for (const std::string &body : bodies) {
        const size_t at = body.find(key) + key.size();
        const std::string stage = body.find(key) == body.npos ? body : body.substr(at, body.find('"', at) - at);
        if (stages.empty() || stages.back() != stage)
            stages.push_back(stage);
    }
    return stages;
}

// What a page sees of each way to install. Nothing goes on before it has seen where that is.
TEST_F(WebInstall, WhatThePageSees)
{
    const std::string kUploaded = "format_sys\nupload\ninstall\nSuccess";
    const struct {
        const char *query, *body; // without a body: the patch
        std::string stages, record;
    } kRows[] = {
        {"x=y&upload=true&status=not_install&utctime=1600000000", "", kUploaded,
         "log err install_cgi.cpp:* Unknown param x=y\nboard 0xc0074b06 rtc_write *\n"
         "run /usr/norv/sbin/installer.sh -r*\nrun /bin/mount /dev/md0 /tmpData\n"
         "run /bin/mv /tmpData/@autoupdate/upload.pat /tmpData/upd@te.pat\nlog err *Pass checksum of *\n"
         "log err *Executing [/tmpData/upd@te/updater -v /tmpData > /dev/null 2>&1] error[0]"},
        {"upload=true&status=sys_migrat", "", kUploaded,
         "run /bin/umount -f /tmpData\nrun /bin/mount /dev/md0 /tmpData"},
        {"status=not_install", "buildin=true&hostname=nas", "chk_boot\nformat_sys\ninstall\nSuccess",
         "run /usr/norv/sbin/installer.sh -r*\nrun /usr/bin/xz -cd /tmp/bootmnt/hda1.tgz\n"
         "run /bin/cp /tmp/bootmnt/updater /tmpData/.updater"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.query);
        Sandbox box;
        const WebServer server(box);
        const ProgressPoll page(server);
        const auto shown = [&](const char *stage) {
            return [&, stage](const ProgramCall & /*call*/) { page.wait_for(stage_body(stage)); };
        };
        const bool is_migration = std::string(row.query).ends_with("sys_migrat");
        if (is_migration) // one that was killed has left this
            box.file("/proc/mounts", "/dev/md0 /tmpData ext4 rw 0 0\n");
        box.program(kInstaller, {{.reads_input = true}});
        box.program("/bin/mount", {{.args = "* /tmpData", .effect = shown("format_sys")}});
        box.program("/bin/cp", {{.args = "-f *", .effect = shown("install")}});
        firmware.boot_partition(box);
        box.program("/usr/bin/xz", {{}});
        install_machine(box, firmware);
        box.program("/bin/mkdir", {{.effect = [&](const ProgramCall &made) {
                        box.directory(made.args.back());
                        if (made.args.back() == "/tmp/bootmnt")
                            page.wait_for(stage_body("chk_boot"));
                    }}});
        const bool is_upload = row.body[0] == '\0';
        const std::string form = is_upload ? patch_form(good) : row.body;
        const std::string request = post(row.query, kMultipart, form, form.size());
        const size_t held = is_upload ? form.size() / 2 : 0;
        const UniqueFd client = server.send(request.substr(0, request.size() - held));
        if (is_upload) { // half of the patch is still to be sent
            page.wait_for(stage_body("upload"));
            const std::string rest = request.substr(request.size() - held);
            EXPECT_EQ(send(client.get(), rest.data(), rest.size(), MSG_NOSIGNAL), static_cast<ssize_t>(rest.size()));
        }
        EXPECT_EQ(said(http_answer(client)), kStarted);
        page.wait_for(success_body("nas"));
        EXPECT_EQ(stages_of(page.seen()), lines(row.stages));
        install_child_wait(box);
        EXPECT_TRUE(box.record().in_order(lines(row.record)));
        EXPECT_TRUE(box.record().in_order({"run /bin/cp -f /etc/dhcpc/dhcpcd-eth0.info /tmpData/etc/dhcpc",
                                           "run /bin/umount -f /tmpData", "run /usr/sbin/pppoe-stop"}));
        const std::vector<ProgramCall> formats = box.calls(kInstaller);
        ASSERT_EQ(formats.size(), is_migration ? 0U : 1U);
        EXPECT_EQ(formats.empty() ? "" : formats[0].input, "");
        EXPECT_EQ(box.record().count("run /usr/sbin/inetd*"), 0);
        EXPECT_EQ(box.read_file("/tmpData/.ns_configure.sh"),
                  "#!/bin/sh\n/usr/norv/sbin/norvnet --set_hostname nas\n" +
                      std::string(is_upload ? "/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f /.ns_pwd\n" : "") +
                      "/usr/norv/sbin/norvnet --dhcp eth0\n\n");
        if (is_upload) {
            EXPECT_EQ(box.list("/tmpData/@autoupdate"), std::vector<std::string>{"VERSION"});
        }
        expect_unlocked(server);
    }
}

enum Told { kAnswer, kBoth, kProgressAlone };

struct Request {
    std::string query = "upload=true";
    std::string body = patch_form("no patch");
    std::string type = kMultipart;
    int promised = 0; // so many bytes more, for which the server waits
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
    const auto patch = [&](const char *updater, const char *version = "unique=norv_avoton_1817") {
        return body(patch_form(firmware.patch(updater, version)));
    };
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
        const WebServer server(box);
        const size_t length = request.body.size() + static_cast<size_t>(request.promised);
        const bool is_child = row.told == kProgressAlone;
        const std::string error = error_body(row.sec.c_str(), row.key.c_str(), row.line);
        EXPECT_EQ(said(server, post(request.query, request.type, request.body, length)), is_child ? kStarted : error);
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
        expect_next_install(box, server, firmware, good);
    }
}

// A client that hangs up in the middle of its upload.
TEST_F(WebInstall, ClientLeaves)
{
    Sandbox box;
    install_machine(box, firmware);
    const WebServer server(box);
    const std::string form = patch_form(std::string(1 << 20, 'x'));
    UniqueFd client = server.send(post("upload=true", kMultipart, form.substr(0, form.size() / 2), form.size()));
    ASSERT_TRUE(box.wait_for("run /usr/norv/sbin/installer.sh*", 60));
    client.reset();
    install_child_wait(box);
    EXPECT_EQ(box.record().count("log err *Upload patch fail"), 1);
    EXPECT_EQ(box.record().count("run /bin/umount -f /tmpData"), 2);
    EXPECT_EQ(box.list("/tmpData/@autoupdate"), std::vector<std::string>{});
    EXPECT_EQ(box.read_file(kProgress), error_body("error", "error_upload", 54));
    expect_next_install(box, server, firmware, good);
}

// The child holds the lock until it is gone, however it goes.
TEST_F(WebInstall, OneAtATime)
{
    Sandbox box;
    box.program(kInstaller, {{.times = 1, .stays = true}});
    install_machine(box, firmware);
    const WebServer server(box);
    const std::string body = "hostname=nas", request = post("status=not_install", "x", body, body.size());
    EXPECT_EQ(said(server, request), kStarted);
    ASSERT_TRUE(box.wait_for("run /usr/norv/sbin/installer.sh *", 60));
    EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
    EXPECT_EQ(said(server, request), error_body("error", "error_apply_lock", 41));
    EXPECT_EQ(said(server, http_request("POST", "/cgi-bin/recover.cgi", "Content-Length: 9\r\n", "utctime=0")),
              kHeader + "{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": \"error\",\"key\": "
                        "\"error_apply_lock\",\"line\":41}}");
    EXPECT_EQ(lock_check(server),
              kHeader + "{\"success\": false, \"errinfo\": {\"sec\": \"error\", \"key\": \"error_apply_lock\"}}");
    EXPECT_EQ(server.ask(http_request("GET", "/progress")).body, stage_body("format_sys"));
    for (const auto &[pid, name] : box.processes())
        if (name == "install.cgi") {
            box.signal(pid, SIGKILL);
            EXPECT_TRUE(box.wait_for_end(pid, 60));
        }
    expect_unlocked(server); // though installer.sh goes on
    for (const auto &[pid, name] : box.processes())
        box.signal(pid, SIGKILL);
    expect_next_install(box, server, firmware, good);
}

// What no web server sends, and a machine that starts no child.
TEST(Install, WithoutAWebServer)
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
        row.change(box);
        const Result result = box.run({"install.cgi"}, options);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_EQ(result.out, error_body("error", "error_unknown", -1));
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_NE(text_of(box, kProgress), result.out);
    }
}

} // namespace
