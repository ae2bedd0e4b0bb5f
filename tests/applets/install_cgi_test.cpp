// An install that a browser asks for, recovery of the flash, and the marks of the reset button.
#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/box_links.h"
#include "tests/support/sandbox.h"
#include "tests/support/scratch_dir.h"

namespace
{

const std::string kHeader = "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\n"
                            "Cache-Control: no-store, no-cache, must-revalidate\r\n"
                            "Pragma: no-cache\r\n"
                            "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n";
const std::string kStarted = kHeader + "{\"success\": true, \"data\": {}, \"redirectIP\":\"\"}";
constexpr char kProgress[] = "/tmp/install.progress";
constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
const std::string kModel = "usbportcfg=\"10\"\ninternalportcfg=\"1\"\nunique=\"norv_avoton_1817\"\nsupportraid=yes\n";
// A child goes on when its request has been answered.
const std::vector<std::string> kLeaves = {"/tmp/*",    "/tmpData*",   "/tmpRoot*", "/var/run/*", "/proc/sys/*",
                                          "process *", "semaphore *", "lock *",    "mount *"};

std::string error_body(const char *sec, const char *key, int line)
{
    return kHeader + "{\"success\": false, \"data\": {}, \"errinfo\": {\"sec\": \"" + sec + "\",\"key\": \"" + key +
           "\",\"line\":" + std::to_string(line) + "}}";
}

std::string stage_body(const char *stage)
{
    return kHeader + "{\"success\": true, \"data\": {\"stage\": \"" + stage + "\"}}";
}

// A machine with one blank disk.
void machine(Sandbox &box)
{
    box.file(kConf, kModel);
    box.file("/etc.defaults/VERSION", "majorversion=6\nminorversion=2\nbuildnumber=23739\n");
    box.file("/proc/partitions", "major minor  #blocks  name\n");
    box.directory("/sys/block/sda");
    box.device("/dev/md0", 4ULL << 30);
    box.program("/sbin/sfdisk", {{.exit_status = 1}});
    for (const char *program : {"/bin/mount", "/bin/umount", "/bin/sync", "/sbin/e2fsck", "/bin/cp",
                                "/usr/norv/sbin/installer.sh", "/usr/sbin/inetd", "/usr/sbin/pppoe-stop"})
        box.program(program, {{}});
    for (const char *program : {"/bin/mkdir", "/bin/rm", "/bin/mv"})
        box.host_program(program);
    box.program("/bin/tar", {{.exit_status = 1}}); // the patches here are of the new form
}

std::string form(const std::string &patch, const std::string &field = "filename")
{
    return "--B\r\nContent-Disposition: form-data; name=\"hostname\"\r\n\r\nnas\r\n"
           "--B\r\nContent-Disposition: form-data; name=\"password\"\r\n\r\nx\r\n"
           "--B\r\nContent-Disposition: form-data; name=\"" +
           field + "\"; filename=\"a.pat\"\r\n\r\n" + patch + "\r\n--B--\r\n";
}

RunOptions request(const std::string &query, const std::string &body)
{
    return {.env = {"REQUEST_METHOD=POST", "QUERY_STRING=" + query, "CONTENT_LENGTH=" + std::to_string(body.size()),
                    "CONTENT_TYPE=multipart/form-data; boundary=B"},
            .input = body,
            .leaves = kLeaves};
}

// Waits until the child of a request that was taken has gone.
void child_wait(const Sandbox &box)
{
    for (int i = 0; i < 6000 && !box.processes().empty(); i++)
        usleep(10000);
    EXPECT_TRUE(box.processes().empty());
}

void expect_unlocked(Sandbox &box)
{
    EXPECT_EQ(box.run({"lock_check.cgi"}, {.leaves = kLeaves}).out, kHeader + "{\"success\": true, \"data\": {}}");
}

class WebInstall : public testing::Test
{
  protected:
    // A patch of the builder. `updater` is what its script does.
    std::string patch_make(const std::string &updater, const std::string &unique = "norv_avoton_1817")
    {
        scratch.write("firmware/VERSION", "buildnumber=25556\nunique=\"" + unique + "\"\nextractsize=1000\n");
        scratch.write("firmware/hda1.tgz", std::string(300000, '\n'));
        scratch.write("firmware/updater", "#!/bin/sh\n" + updater + "\n", 0755);
        const Finished made =
            run_program({NORV_BINARY_DIR "/tools/norv-patch/norv-patch", "make", scratch.path("firmware"),
                         scratch.path("a.pat"), "--keys", scratch.path("keys")});
        EXPECT_EQ(made.status, 0) << made.out;
        return scratch.read("a.pat");
    }
    // A machine that knows the builder's keys.
    void appliance(Sandbox &box) const
    {
        machine(box);
        const std::string library = "libnorvcodesign-ng-virtual-junior-wins.so.7";
        box.host_file("/usr/lib/" + library, NORV_BINARY_DIR "/platform/codesign/" + library);
        box.host_file("/usr/norv/etc/codesign/0.pem", scratch.path("keys/0.pem"), 0644);
        box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
    }
    ScratchDir scratch;
};

TEST_F(WebInstall, UploadedPatch)
{
    Sandbox box;
    std::vector<std::string> seen;
    const auto note = [&](const ProgramCall & /*call*/) { seen.push_back(box.read_file(kProgress)); };
    box.program("/usr/norv/sbin/installer.sh", {{.effect = note}});
    box.program("/bin/tar", {{.exit_status = 1, .effect = note}});
    const std::string patch = patch_make("exit 0");
    appliance(box);
    box.file("/.privacy_confirmed", "");
    box.directory("/tmpData/var");
    box.file(kProgress, "of the install before");
    const Result result =
        box.run({"install.cgi"}, request("x=y&upload=true&status=not_install&utctime=1600000000", form(patch)));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kStarted);
    child_wait(box);
    EXPECT_TRUE(box.record().in_order(
        {"log err install_cgi.cpp:* Unknown param x=y", "board 0xc0074b06 rtc_write *",
         "run /usr/norv/sbin/installer.sh -r*", "run /bin/mount /dev/md0 /tmpData",
         "run /bin/mv /tmpData/@autoupdate/upload.pat /tmpData/upd@te.pat", "log err *Pass checksum of *",
         "log err *Executing [/tmpData/upd@te/updater -v /tmpData > /dev/null 2>&1] error[0]",
         "run /bin/cp -f /etc/dhcpc/dhcpcd-eth0.info /tmpData/etc/dhcpc", "run /bin/umount -f /tmpData",
         "run /usr/sbin/pppoe-stop"}));
    EXPECT_EQ(box.record().count("run /usr/sbin/inetd*"), 0);
    EXPECT_EQ(seen, (std::vector<std::string>{stage_body("format_sys"), stage_body("upload"), stage_body("install")}));
    EXPECT_EQ(box.read_file(kProgress),
              kHeader + "{\"success\": true, \"data\": {\"stage\": \"Success\", \"hostname\": \"nas\"}}");
    EXPECT_EQ(box.read_file("/tmpData/.ns_configure.sh"),
              "#!/bin/sh\n/usr/norv/sbin/norvnet --set_hostname nas\n/usr/norv/sbin/norvuser --filesetpw\n"
              "/bin/rm -f /.ns_pwd\n/usr/norv/sbin/norvnet --dhcp eth0\n\n");
    EXPECT_TRUE(box.exists("/tmpData/var/.PrivacyConfirmed"));
    EXPECT_EQ(box.list("/tmpData/@autoupdate"), std::vector<std::string>{"VERSION"});
    expect_unlocked(box);
}

// What the answer to the request tells of. The body of the form is there, and the disk blank.
TEST_F(WebInstall, Refused)
{
    const std::string body = form("no patch");
    const struct {
        const char *what;
        std::function<void(Sandbox &, RunOptions &)> change;
        const char *sec, *key;
        int line;
        bool in_progress; // stands there too
        std::vector<std::string> record;
    } kRows[] = {
        {"memory test",
         [](Sandbox &box, RunOptions &) { box.file("/.memtest", ""); },
         "status",
         "mem_testing",
         47,
         false,
         {"log err *Setup install fail"}},
        {"no lock file",
         [](Sandbox &box, RunOptions &) { box.directory("/tmp/install.lock"); },
         "error",
         "error_apply_lock",
         41,
         false,
         {"log err *create lock file fail [Is a directory]", "log err *Setup install fail"}},
        {"no query",
         [](Sandbox &, RunOptions &options) { options.env = {"REQUEST_METHOD=GET"}; },
         "error",
         "error_unknown",
         -1,
         false,
         {"log err *getenv(QUERY_STRING) fail. [*", "log err *ParseGetParam fail"}},
        {"no method",
         [](Sandbox &, RunOptions &options) { options.env = {"QUERY_STRING=upload=false"}; },
         "error",
         "error_unknown",
         -1,
         false,
         {"log err *NorvCgiLoadCGIParam fail*"}},
        {"format",
         [](Sandbox &box, RunOptions &) { box.program("/usr/norv/sbin/installer.sh", {{.exit_status = 3}}); },
         "error",
         "error_mkfs",
         35,
         true,
         {"log err *szCmd=[*retv=[3]", "log err *FormatPartition fail"}},
        {"volume",
         [](Sandbox &box, RunOptions &) { box.program("/bin/mount", {{.args = "* /tmpData", .exit_status = 32}}); },
         "error",
         "error_unknown",
         21,
         true,
         {"log err *FormatPartition fail", "run /bin/umount -f /tmpData"}},
        {"no folder",
         [](Sandbox &box, RunOptions &) {
             box.call({.call = "mkdir", .args = "/tmpData/@autoupdate *", .error = ENOSPC});
         },
         "error",
         "error_upload",
         54,
         true,
         {"log err *Failed to Create /tmpData/@autoupdate", "log err *Upload patch fail"}},
        {"cut",
         [&](Sandbox &, RunOptions &options) { options.input = body.substr(0, body.size() - 12); },
         "error",
         "error_upload",
         54,
         true,
         {"log err *failed to read file. *", "log err *Failed to Load CGI param", "log err *Upload patch fail",
          "run /bin/umount -f /tmpData"}},
        {"another length",
         [](Sandbox &, RunOptions &options) { options.env[2] = "CONTENT_LENGTH=9999"; },
         "error",
         "error_upload",
         54,
         true,
         {"log err *Failed to Load CGI param"}},
        {"no file",
         [](Sandbox &, RunOptions &options) { options = request("upload=true", form("x", "other")); },
         "error",
         "error_upload",
         54,
         true,
         {"log err *Failed to get upload file"}},
        {"not renamed",
         [](Sandbox &box, RunOptions &) { box.directory("/tmpData/@autoupdate/upload.pat"); },
         "error",
         "error_upload",
         54,
         true,
         {"log err *Failed to rename upload patch /tmpData/@autoupdate/upload_tmp.* , "
          "/tmpData/@autoupdate/upload.pat"}},
        {"no child",
         [](Sandbox &box, RunOptions &) { box.call({.call = "fork", .error = EAGAIN}); },
         "error",
         "error_unknown",
         -1,
         false,
         {"log err *fork fail!", "run /bin/umount -f /tmpData"}},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        RunOptions options = request("upload=true", body);
        row.change(box, options);
        machine(box);
        options.leaves = kLeaves;
        const Result result = box.run({"install.cgi"}, options);
        const std::string answer = error_body(row.sec, row.key, row.line);
        EXPECT_EQ(result.out, answer);
        EXPECT_EQ(box.exists(kProgress) && box.read_file(kProgress) == answer, row.in_progress);
        EXPECT_TRUE(result.record.in_order(row.record));
        const bool has_folder = box.exists("/tmpData/@autoupdate");
        for (const std::string &name : has_folder ? box.list("/tmpData/@autoupdate") : std::vector<std::string>{})
            EXPECT_TRUE(!name.starts_with("upload_tmp") || std::string(row.what) == "no file") << name;
    }
}

// A client that stalls is waited for, told, and does not keep the next one out.
TEST_F(WebInstall, ClientStalls)
{
    Sandbox box;
    machine(box);
    box.compress_sleeps();
    RunOptions options = request("upload=true", form("no patch").substr(0, form("no patch").size() - 12));
    options.input_open = true;
    Process cgi = box.start({"install.cgi"}, options);
    const Result result = cgi.wait();
    EXPECT_EQ(result.out, error_body("error", "error_upload", 54));
    EXPECT_TRUE(result.record.in_order({"select 30.000000", "log err *no data within 30 seconds",
                                        "log err *failed to read file. *", "select 10.000000"}));
    expect_unlocked(box);
}

// What the progress tells of after the request was taken.
TEST_F(WebInstall, FailsInTheChild)
{
    struct Row {
        const char *what, *updater, *unique, *query;
        std::function<void(Sandbox &)> change;
        const char *sec, *key;
        int line;
        std::vector<std::string> record;
    };
    const Row kRows[] = {
        {"updater refuses",
         "exit 255",
         "norv_avoton_1817",
         "upload=true",
         [](Sandbox &) {},
         "error",
         "error_version",
         10,
         {"log err *Upgrade by the uploaded patch /tmpData/@autoupdate/upload.pat fail."}},
        {"licence",
         "exit 65",
         "norv_avoton_1817",
         "upload=true",
         [](Sandbox &) {},
         "error",
         "err_vnos_license_expire",
         65,
         {}},
        {"updater is killed",
         "kill -9 $$",
         "norv_avoton_1817",
         "upload=true",
         [](Sandbox &) {},
         "wizard",
         "err_patch",
         13,
         {}},
        {"another model", "exit 0", "norv_other", "upload=true", [](Sandbox &) {}, "error", "error_model", 12, {}},
        {"stranger's key",
         "exit 0",
         "norv_avoton_1817",
         "upload=true",
         [](Sandbox &box) { box.file("/usr/norv/etc/codesign/0.pem", "x"); },
         "wizard",
         "err_patch",
         13,
         {}},
        {"first start",
         "exit 0",
         "norv_avoton_1817",
         "upload=true",
         [](Sandbox &box) { box.directory("/tmpData/.WEBINST_OK"); },
         "error",
         "err_nsconfig",
         695,
         {"log err *Failed to touch on system volume", "log err install_cgi.cpp:* PrepareNSConfig Fail[0x*"}},
        {"download",
         "",
         "",
         "status=sys_crash",
         [](Sandbox &) {},
         "error",
         "error_download",
         46,
         {"run /usr/norv/sbin/installer.sh -r*", "log err *Upgrade by download patch fail."}},
        {"migration does not format",
         "",
         "",
         "status=sys_migrat",
         [](Sandbox &box) { box.program("/usr/norv/sbin/installer.sh", {{.exit_status = 1}}); },
         "error",
         "error_download",
         46,
         {"log err *Upgrade by download patch fail."}},
        {"built-in",
         "",
         "",
         "status=buildin",
         [](Sandbox &) {},
         "error",
         "boot_damaged",
         45,
         {"log err *NORVJCustBootPatchOK(/tmp/bootmnt) fail", "log err *Upgrade by the buildin patch fail."}},
        {"no boot partition",
         "",
         "",
         "",
         [](Sandbox &box) { box.call({.call = "mount", .error = ENOENT}); },
         "error",
         "boot_damaged",
         5,
         {"log err *Failed to mount boot partition"}},
    };
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box);
        const bool is_upload = row.unique[0] != '\0';
        const std::string patch = is_upload ? patch_make(row.updater, row.unique) : "";
        appliance(box);
        row.change(box);
        RunOptions options = request(row.query, form(patch));
        if (!is_upload) {
            options.input = std::string(row.key) == "boot_damaged" ? "buildin=true" : "hostname=nas";
            options.env[2] = "CONTENT_LENGTH=12";
        }
        EXPECT_EQ(box.run({"install.cgi"}, options).out, kStarted);
        child_wait(box);
        EXPECT_EQ(box.read_file(kProgress), error_body(row.sec, row.key, row.line));
        EXPECT_TRUE(box.record().in_order(row.record));
        EXPECT_TRUE(box.record().in_order({"settimeofday *", "run /usr/sbin/inetd*", "run /usr/sbin/pppoe-stop"}));
        EXPECT_EQ(box.exists("/tmpData/.ns_configure.sh"), false);
        expect_unlocked(box);
    }
}

// The child holds the lock until it is gone, however it goes.
TEST_F(WebInstall, OneAtATime)
{
    Sandbox box;
    box.program("/usr/norv/sbin/installer.sh", {{.times = 1, .stays = true}});
    machine(box);
    RunOptions options = request("status=not_install", "hostname=nas");
    EXPECT_EQ(box.run({"install.cgi"}, options).out, kStarted);
    ASSERT_TRUE(box.wait_for("run /usr/norv/sbin/installer.sh *", 60));
    EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
    EXPECT_EQ(box.run({"install.cgi"}, options).out, error_body("error", "error_apply_lock", 41));
    EXPECT_EQ(box.run({"recover.cgi"}, options).out,
              kHeader + "{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": \"error\",\"key\": "
                        "\"error_apply_lock\",\"line\":41}}");
    EXPECT_EQ(box.read_file(kProgress), stage_body("format_sys"));
    EXPECT_NE(box.run({"lock_check.cgi"}, {.leaves = kLeaves}).out.find("error_apply_lock"), std::string::npos);
    for (const auto &[pid, name] : box.processes())
        if (name == "install.cgi")
            box.signal(pid, SIGKILL);
    for (const auto &[pid, name] : box.processes())
        if (name == "install.cgi") {
            EXPECT_TRUE(box.wait_for_end(pid, 60));
        }
    expect_unlocked(box); // though installer.sh goes on
    for (const auto &[pid, name] : box.processes())
        box.signal(pid, SIGKILL);
    child_wait(box);
    EXPECT_EQ(box.run({"install.cgi"}, options).out, kStarted);
    child_wait(box);
    EXPECT_EQ(box.read_file(kProgress), error_body("error", "error_download", 46));
}

// A machine with a system on its disks that can bring the flash in line.
void recoverable(Sandbox &box)
{
    machine(box);
    const std::string version = "majorversion=6\nminorversion=2\nbuildnumber=25556\n";
    box.file("/recover/etc.defaults/norvinfo.conf", kModel);
    box.file("/recover/etc.defaults/VERSION", version);
    box.file("/recover/.norv/patch/VERSION", version + "unique=norv_avoton_1817\n");
    box.program("/recover/.norv/patch/updater", {{}});
}

TEST(WebRecover, Outcomes)
{
    const struct {
        const char *what, *body;
        std::function<void(Sandbox &)> change;
        bool is_good;
        std::vector<std::string> record;
    } kRows[] = {
        {"good",
         "utctime=1600000000",
         [](Sandbox &) {},
         true,
         {"board 0xc0074b06 rtc_write *", "run /bin/mount /dev/md0 /recover",
          "run /recover/.norv/patch/updater -a /recover", "run /recover/.norv/patch/updater -r /recover",
          "run /bin/umount -f /recover"}},
        {"no time", "a=1", [](Sandbox &) {}, true, {"log err *Set RTC fail", "run /bin/mount *"}},
        {"no board", "utctime=1600000000", [](Sandbox &box) { box.board_remove(); }, true, {"log err *Set RTC fail"}},
        {"not mounted",
         "utctime=0",
         [](Sandbox &box) { box.program("/bin/mount", {{.exit_status = 1}}); },
         false,
         {"log err *Mount /dev/md0 on /recover fail"}},
        {"not recoverable",
         "utctime=0",
         [](Sandbox &box) { box.file("/tmp/recover_fail", ""); },
         false,
         {"log err *recover fail flag on", "log err recover_cgi.cpp:* /recover is not recoverable"}},
        {"updater fails",
         "utctime=-1",
         [](Sandbox &box) { box.program("/recover/.norv/patch/updater", {{.args = "-r *", .exit_status = 9}}); },
         false,
         {"log err *recover /recover by /recover//.norv/patch/updater fail", "run /bin/umount -f /recover"}},
        {"no body", "", [](Sandbox &) {}, false, {"log err *NorvCgiLoadCGIParam fail*"}},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        row.change(box);
        recoverable(box);
        row.change(box);
        RunOptions options = request("", row.body);
        if (row.body[0] == '\0')
            options.env[2] = "CONTENT_LENGTH=5";
        const Result result = box.run({"recover.cgi"}, options);
        EXPECT_EQ(result.out,
                  kHeader + (row.is_good ? "{\"success\": true, \"data\": {}}"
                                         : "{\"success\": false, \"data\": {}, \t\t\t\"errinfo\": {\"sec\": "
                                           "\"error\",\"key\": \"error_recover\",\"line\":-1}}"));
        EXPECT_TRUE(result.record.in_order(row.record));
        EXPECT_EQ(result.record.count("board * rtc_write *"),
                  std::string(row.body) == "utctime=1600000000" && std::string(row.what) != "no board");
        expect_unlocked(box);
    }
}

// The system's volume has both marks once it is mounted, unless a row says otherwise.
TEST(CleanButtonFlags, Outcomes)
{
    const struct {
        const char *what;
        std::function<void(Sandbox &)> change;
        bool is_good, is_mounted, stays; // the first mark
        const char *record;
    } kRows[] = {
        {"good", [](Sandbox &) {}, true, true, false, "run /usr/bin/umount -l /_disk"},
        {"stranger", [](Sandbox &box) { box.program("/usr/sbin/arping", {{.exit_status = 1}}); }, false, false, false,
         "run /usr/sbin/arping -I eth0 -c 1 10.0.0.9"},
        {"no device", [](Sandbox &box) { box.file(kConf, "supportsas=yes\n"); }, false, false, false,
         "log err *unable to get disk device with nos partition [-1]"},
        {"not mounted", [](Sandbox &box) { box.program("/usr/bin/mount", {{.exit_status = 32}}); }, false, false, false,
         "run /usr/bin/mount /dev/md0 /_disk"},
        {"one mark",
         [](Sandbox &box) {
             box.program("/usr/bin/mount", {{.effect = [&](const ProgramCall &) { box.file("/_disk/.noroot", ""); }}});
         },
         false, true, true, "log err *reset-button flags not found"},
        {"not removed", [](Sandbox &box) { box.call({.call = "unlink", .args = "/_disk/.noroot", .error = EROFS}); },
         false, true, true, "log err *failed to unlink /_disk/.noroot"},
        {"gone meanwhile",
         [](Sandbox &box) { box.call({.call = "unlink", .args = "/_disk/.noroot", .error = ENOENT}); }, true, true,
         true, "run /usr/bin/umount -l /_disk"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        BoxLinks links(box);
        ASSERT_TRUE(links.wire("eth0", "peer") && links.set("eth0", true) && links.set("peer", true) &&
                    links.settle("eth0", true));
        box.compress_sleeps();
        row.change(box);
        box.file(kConf, kModel);
        bool first_stays = false, second_stays = false;
        box.program("/usr/sbin/arping", {{.args = "* 8.8.8.8", .exit_status = 1}, {}});
        box.program("/usr/bin/mount", {{.effect = [&](const ProgramCall & /*call*/) {
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
