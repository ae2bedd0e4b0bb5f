// Asking the update server, and installing from it.
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "tests/support/firmware.h"
#include "tests/support/https_server.h"
#include "tests/support/rows.h"

namespace
{

constexpr char kConf[] = "/etc.defaults/norvinfo.conf";
constexpr char kStatus[] = "/var/run/downloadNOS.status";
constexpr char kPid[] = "/var/run/downloadNOS.pid";
constexpr char kError[] = "/var/run/checkNewNOS.error";
constexpr char kChecksum[] = "/tmp/last_patch.md5";
const std::string kModel = "unique=\"norv_avoton_1817\"\nusbportcfg=\"10\"\ninternalportcfg=\"1\"\n";
const std::string kVersion = "majorversion=7\nminorversion=1\nbuildphase=hotfix\nbuildnumber=200\n"
                             "builddate=2020/1/1\nproductversion=\"7.1.1\"\n";

std::string feed(const std::string &link)
{
    return "<rss>\n<MajorVer>7</MajorVer>\n<MinorVer>2</MinorVer>\n<BuildNum>300</BuildNum>\n"
           "<mUnique>norv_avoton_1817</mUnique>\n<mLink>" +
           link + "</mLink>\n<mCheckSum>12ab</mCheckSum>\n</rss>\n";
}
constexpr char kLink[] = "https://127.0.0.1:8443/pat/a.pat";
const std::string kTold =
    "Download link: https://127.0.0.1:8443/pat/a.pat\nCheckSum:      12ab\nVersion:       NOS 7.2-300\n";

// A machine whose feed lies on itself.
void machine(Sandbox &box, const std::string &server = "file:///feed/rss.xml")
{
    box.file(kConf, kModel + "rss_server_ssl=\"" + server + "\"\n");
    box.file("/etc.defaults/VERSION", kVersion);
    box.file("/feed/rss.xml", feed(kLink));
    box.program("/sbin/sfdisk", {{.exit_status = 1}});
    box.file(kError, "");
    box.file(kChecksum, "");
}

Change server_name(const std::string &name)
{
    return [=](Sandbox &box) { machine(box, name); };
}

// What the first client sent, who is gone by now.
std::string request_received(const UniqueFd &server)
{
    const UniqueFd client(accept(server.get(), nullptr, nullptr));
    char text[4096];
    const ssize_t count = recv(client.get(), text, sizeof(text), 0);
    return count > 0 ? std::string(text, static_cast<size_t>(count)) : "";
}

TEST(UpdateCheck, StateIsLocked)
{
    Sandbox box;
    machine(box);
    box.file(kStatus, "100 0 /vol/a.pat Link");
    box.compress_sleeps();
    Process holder = lock_holder(box, kStatus);
    const Result result = box.run({"norvupgrade", "--check-reinstall"});
    holder.close_input();
    holder.wait();
    EXPECT_EQ(result.exit_status, 255);
    EXPECT_EQ(result.record.count("usleep 10000"), 150);
    EXPECT_TRUE(result.record.in_order({"log err *Failed to get lock*", "log err *Fail in UpdateDownloadStatus*"}));
    EXPECT_NE(result.out.find(" Check New NOS for [Reinstall] Fail.\n"), std::string::npos);
}

// What each mode asks, where the file that answers stands under the whole query.
TEST(UpdateCheck, QueryOverTls)
{
    const Change layout_9 =
        program("/sbin/sfdisk", {.args = "*-N1 /dev/sda", .output = "/dev/sda1 8192 16777216 83\n"}) +
        program("/sbin/sfdisk", {.args = "*-N2 /dev/sda", .output = "/dev/sda2 16785408 4194304 82\n"});
    const struct {
        const char *option, *query;
        bool is_trusted = true; // the second time
        Change change = {};
    } kRows[] = {
        {"--check", "?root_partition_version=9", false, layout_9},
        {"--check-reinstall", "?root_partition_version=8"},
        {"--check-migrate", "?root_partition_version=8&disk_version=25556", true,
         file("/tmp/root_info.cache", "nos_version=\"25556\"\n")},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.query);
        Sandbox box;
        row.change(box);
        machine(box, "https://127.0.0.1:8443/autoupdate/genRSS.php");
        box.remove("/feed/rss.xml");
        const HttpsServer server(box, "-WWW");
        if (!server.runs())
            GTEST_SKIP() << "no openssl or no libcurl here";
        box.file(std::string("/feed/autoupdate/genRSS.php") + row.query, feed(kLink));
        const Result result = box.run({"norvupgrade", row.option}, {.leaves = {"/tmp/root_info.cache*"}});
        EXPECT_EQ(result.exit_status, 0);
        EXPECT_EQ(result.out, kTold);
        if (row.is_trusted) // but the certificate has another name
            machine(box, "https://localhost:8443/autoupdate/genRSS.php");
        else
            box.file(kTrustedCertificates, "");
        const Result refused = box.run({"norvupgrade", row.option}, {.leaves = {"/tmp/root_info.cache*"}});
        EXPECT_EQ(refused.exit_status, 255);
        EXPECT_TRUE(refused.record.in_order(
            {"log err url_fetch.cpp:* fail to perform curl, CURLcode returns *", "log err *Check NEW NOS fail*"}));
    }
}

// The version of the system on the disks, which is looked up once.
TEST(UpdateCheck, DiskVersion)
{
    Sandbox box;
    machine(box);
    box.program("/usr/bin/mount", {{.exit_status = 32, .times = 1}, {}});
    box.program("/usr/bin/umount", {{}});
    const auto check = [&box] {
        return box.run({"norvupgrade", "--check-migrate"}, {.leaves = {"/tmp/root_info.cache*"}}).record;
    };
    const std::vector<std::string> kUnknown = {"log err *unable to append query string of disk nos version"};
    EXPECT_TRUE(check().in_order(kUnknown));
    EXPECT_FALSE(box.exists("/_disk"));
    box.directory("/_disk"); // nothing is mounted there
    EXPECT_TRUE(check().in_order(kUnknown));
    box.file("/_disk/etc.defaults/VERSION", "buildnumber=\"25556\"\n");
    Record record = check();
    EXPECT_TRUE(record.in_order({"run /usr/bin/mount /dev/sda1 /_disk", "run /usr/bin/umount -l /_disk"}));
    EXPECT_EQ(record.count("*unable to append*"), 0);
    EXPECT_EQ(box.read_file("/tmp/root_info.cache"), "nos_version=\"25556\"\n");
    record = check();
    EXPECT_EQ(record.count("run /usr/bin/mount*"), 0);
    EXPECT_EQ(record.count("*unable to append*"), 0);
}

TEST(UpdateCheck, Outcomes)
{
    const std::string kOwn = "file:///feed/rss.xml", kRss = "/feed/rss.xml", kFail = "*Check NEW NOS fail*";
    const auto curl = [&](int code) { return "*CURLcode returns " + std::to_string(code) + "\n" + kFail; };
    // What an earlier download left.
    const auto state = [](const std::string &status, const std::string &pid) {
        return file(kStatus, status) + file(kPid, pid);
    };
    const std::string kHalf = "30 1000 /vol/a.pat https://h/a.pat";
    enum Outcome { kGood, kKept, kFailed, kRefused }; // kept: what an earlier download left; refused: because of that
    const struct {
        const char *what;
        Change change;
        Outcome outcome;
        std::string record;
        const char *query = "";
    } kRows[] = {
        {"versions in the log", kNoChange, kGood,
         "*LocalMajor = 7, ServerMajor = 7*\n*Localminor = 1, Serverminor = 2*\n*LocalInfo = 200, ServerInfo = 300*"},
        {"no query", kNoChange, kGood, "log err check_new_version_cgi.cpp:* getenv(QUERY_STRING) fail. [*]", nullptr},
        {"time", kNoChange, kGood, "settimeofday 1700000000.*", "status=sys_crash&utctime=1700000000&x=y"},
        {"time refused", call({.call = "settimeofday", .error = EPERM}), kGood,
         "log err *settimeofday(1700000000) fail", "utctime=1700000000"},
        {"dead", state(kHalf, "99999"), kGood, "log err *Invalid pid: 99999*"},
        {"everybody", state(kHalf, "0"), kGood, "log err *Invalid pid: 0*"},
        {"alive", state(kHalf, "1"), kKept, ""},
        {"whole", state("100 0 /vol/a.pat Link", ""), kKept,
         "log err *Percent = 100, Process = 0, FilePath = /vol/a.pat, FileLink = Link*"},
        {"beyond two gigabytes", state("30 3000000000 /vol/a.pat https://h/a.pat", "1"), kKept, ""},
        {"three fields", state("30 1000 /vol/a.pat", ""), kRefused,
         "log err *Failed to get process status for *, ret = 3, *\nlog err *Fail in UpdateDownloadStatus*"},
        {"bytes below 0", state("0 -1 /vol/a.pat Link", "1"), kRefused, "log err *Invalid status value for *.status.*"},
        {"server name too long", server_name(kOwn + "?" + std::string(4100, 'x')), kFailed,
         "*Get rss server value fail*"},
        {"no room for the query", server_name(kOwn + "?" + std::string(4060, 'x')), kGood,
         "*string truncated, no enough space to ctore query string\n*failed to append query string to URL\n"
         "*unable to append query string of root partition version"},
        {"no layout",
         file(kConf, kModel + "support_buildin_storage=yes\nsupportraid=yes\nrss_server_ssl=" + kOwn + "\n"), kGood,
         "*Failed to get root partition version\n*Failed to get current junior partition version\n"
         "*unable to append query string of root partition version"},
        {"no server between the quotes", server_name(""), kFailed, curl(6)},
        {"no library", file("/lib.bad/libcurl.so.4", "no library"), kFailed,
         "*Failed to open libcurl.so.4: *\n" + curl(2)},
        {"half a tag", file(kRss, "x\n<rss\n"), kFailed,
         "*can not find < in [x]*\n*No Tag Found*\n*can not find >*\n*get tag from rss file fail*\n"
         "*The RSS file parse fail*\n*No new NOS*"},
        {"own version not whole", file("/etc.defaults/VERSION", "majorversion=7\nminorversion=1\nbuilddate=2020/1/1\n"),
         kFailed, "*Get buildphase value fail*\n*get local value fail*\n*No new NOS*"},
        {"no place for the feed", call({.call = "fopen", .args = "/var/run/auto*", .error = ENOSPC}), kFailed,
         "*Open /var/run/autoupdate_tmp_file_RSS Fail*\n*Failed to get root partition version\n" + kFail},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        machine(box);
        row.change(box);
        RunOptions options = {.env = {"LD_LIBRARY_PATH=/lib.bad"}, .leaves = {"/tmp/root_info.cache.lock"}};
        if (row.query != nullptr)
            options.env.push_back(std::string("QUERY_STRING=") + row.query);
        const Result result = box.run({"norvupgrade", "--check-migrate"}, options);
        const bool is_good = row.outcome <= kKept;
        EXPECT_EQ(result.exit_status, is_good ? 0 : 255);
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(result.out == kTold, is_good) << result.out;
        EXPECT_EQ(result.out.ends_with(" Check New NOS for [Migration] Fail.\n"), !is_good) << result.out;
        EXPECT_EQ(result.record.count("settimeofday*"), row.query != nullptr && row.query[0] != '\0' ? 1 : 0);
        EXPECT_EQ(box.exists(kStatus), row.outcome == kKept || row.outcome == kRefused);
        EXPECT_EQ(box.exists(kChecksum), row.outcome == kKept || row.outcome == kRefused);
        EXPECT_EQ(box.exists(kError), row.outcome == kRefused);
    }
}

TEST(UpdateCheck, ServerIsMute)
{
    Sandbox box;
    machine(box, "http://127.0.0.1:8080/autoupdate/genRSS.php");
    const UniqueFd server = loopback_listen(box, 8080); // where nobody answers
    box.compress_sleeps(100);
    const Result result = box.run({"norvupgrade", "--check"});
    EXPECT_EQ(result.exit_status, 255);
    EXPECT_NE(result.out.find(" Check New NOS for [Install] Fail.\n"), std::string::npos);
    EXPECT_TRUE(result.record.in_order({"log err *CURLcode returns 28", "log err *Check NEW NOS fail*"}));
    const std::string request = request_received(server);
    EXPECT_NE(request.find("GET /autoupdate/genRSS.php?root_partition_version=8 HTTP/1.1\r\n"), std::string::npos);
    EXPECT_NE(request.find("User-Agent: norv_avoton_1817 NOS7.1.1 200 (webinstaller)\r\n"), std::string::npos);
}

constexpr char kFile[] = "/tmpData//@autoupdate/a.pat";
constexpr char kProgress[] = "/tmp/install.progress";
const RunOptions kAutoLeaves = {.leaves = {"/tmp/install.lock", kProgress, "/tmp/installer_sh.log", "/tmpData*",
                                           "/tmpRoot*", kStatus, "/tmp/update.progress"}};

// The same with an empty disk, which is formatted and takes a patch.
void blank_machine(Sandbox &box, const std::string &server, const std::string &link)
{
    machine(box, server);
    box.file("/feed/rss.xml", feed(link));
    for (const char *program : {"/bin/mount", "/bin/umount", "/bin/echo", "/bin/sync", "/sbin/e2fsck", "/bin/tar",
                                "/bin/ps", "/usr/norv/sbin/installer.sh"})
        box.program(program, {{.exit_status = strcmp(program, "/bin/tar") == 0 ? 1 : 0}});
    for (const char *program : {"/bin/mkdir", "/bin/rm", "/bin/mv"})
        box.host_program(program);
}

// What `progress` tells of one that fails on its way.
constexpr char kNoFeed[] = "\n2 0 012 0 012 46 0", kNoPatch[] = "\n2 0 012 0 013 0 013 46 0",
               kBadPatch[] = "\n2 0 012 0 013 0 05 0 05 13 0";

TEST(UpdateAuto, Faults)
{
    const std::string kOwn = "file:///feed/a.pat", kMute = "http://127.0.0.1:8080/a.pat",
                      kAt = std::string(kFile) + " ", kOther = "0 0 /a https://h/a";
    const auto downloading = [&](const std::string &listed) {
        return file(kStatus, kOther) + file(kPid, "1") + program("/bin/ps", {.output = listed});
    };
    const Change leftovers = file(kStatus, "100 0 /keep/b.pat Link") + file(kPid) + file("/keep/b.pat") +
                             file("/@autoupdate") + file("/tmpData/@autoupdate/old.pat") +
                             file("/var/run/downloadprogress");
    const struct {
        const char *what, *steps;
        std::string status; // of the download, afterwards; empty: none
        Change change;
        std::string record, link = "file:///feed/a.pat";
    } kRows[] = {
        {"link without a name", kNoPatch, "", kNoChange, "*Get out file path fail *", "https://127.0.0.1:8443/"},
        {"no patch", kNoPatch, "0 0 " + kAt + kOwn, gone("/feed/a.pat"), "*fail to perform curl, CURLcode returns 37"},
        {"server mute", kNoPatch, "0 0 " + kAt + kMute, [](Sandbox &box) { box.compress_sleeps(100); },
         "*CURLcode returns 28", kMute},
        {"a download runs", kNoPatch, kOther, downloading("  PID USER\n    1 root init\n   12 root ps\n"),
         "run /bin/sh -c ps\n*Is Downloading, no need to Download"},
        {"its number stands in another's line", kNoPatch, "0 0 " + kAt + kOwn,
         gone("/feed/a.pat") + downloading("   12 " + std::string(1017, 'x') + "1 x\n"),
         "run /bin/sh -c ps\n*CURLcode returns 37"},
        {"leftovers", kBadPatch, "100 5 " + kAt + kOwn, leftovers,
         "*scanf /var/run/downloadNOS.pid fail *\nrun /bin/rm -rf /tmpData//@autoupdate\n"
         "run /bin/mv /tmpData//@autoupdate/a.pat /tmpData/upd@te.pat\n*Extraction failed *"},
        {"leftovers stay", kNoPatch, "",
         directory("/tmpData/@autoupdate") + program("/bin/rm", {.args = "-rf /tmpData*", .exit_status = 1}),
         "*ClearPosibleResult(/tmpData) Fail"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Sandbox box;
        box.file("/feed/a.pat", "patch");
        row.change(box); // of two answers of a program the first counts, of two files the last
        blank_machine(box, "file:///feed/rss.xml", row.link);
        row.change(box);
        const UniqueFd server = loopback_listen(box, 8080); // where nobody answers
        const bool runs = strcmp(row.what, "a download runs") == 0;
        const Result result = box.run({"norvupgrade", "--auto"}, kAutoLeaves);
        EXPECT_EQ(result.exit_status, 255);
        EXPECT_TRUE(result.err.ends_with(row.steps)) << result.err;
        EXPECT_TRUE(result.out.ends_with(" Auto Upgrade Fail.\n")) << result.out;
        EXPECT_TRUE(result.record.in_order(lines(row.record)));
        EXPECT_EQ(text_of(box, kStatus), row.status);
        EXPECT_EQ(box.exists(kPid), runs);
        for (const char *path :
             {"/keep/b.pat", "/@autoupdate", "/tmpData/@autoupdate/old.pat", "/var/run/downloadprogress"})
            EXPECT_FALSE(box.exists(path)) << path;
    }
}

// A server with whatever answers, and after each of its faults the same machine is installed.
TEST(UpdateOverTls, EveryFaultOfTheServer)
{
    const std::string kFeedAt = "/feed/autoupdate/genRSS.php?root_partition_version=8", kPatchAt = "/feed/pat/a.pat";
    Firmware firmware;
    const std::string patch = firmware.pack(kModel + kVersion + "extractsize=1000\npartitionversionlimit=0\n",
                                            "#!/bin/sh\necho updated >> /tmp/update.progress\n", "image");
    Sandbox box;
    firmware.trust(box);
    box.device("/dev/sda1", 4ULL << 30);
    blank_machine(box, "https://127.0.0.1:8443/autoupdate/genRSS.php", kLink);
    const HttpsServer server(box, "-HTTP");
    if (!server.runs())
        GTEST_SKIP() << "no openssl or no libcurl here";
    const auto answer = [](const std::string &content, size_t length) {
        return "HTTP/1.0 200 ok\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" + content;
    };
    // So long that the loop ends soon, however many redirections a version of the library follows.
    const auto redirection = [](const std::string &path) {
        return "HTTP/1.0 302 there\r\nLocation: https://127.0.0.1:8443/" + path + "\r\nX: " + std::string(90000, 'x') +
               "\r\n\r\n";
    };
    const std::string kNotFound = "HTTP/1.0 404 Not Found\r\n\r\n<html>\n<body>404</body>\n</html>\n";
    const std::string kGoodFeed = answer(feed(kLink), feed(kLink).size());
    const std::string kGoodPatch = answer(patch, patch.size());
    const struct {
        const char *what;
        std::string feed, patch;
        const char *steps, *record;
    } kRows[] = {
        {"feed: not found", kNotFound, "", kNoFeed, "*No new NOS*"},
        {"feed: closed early", answer(feed(kLink), 9999), "", kNoFeed, "*CURLcode returns 18"},
        {"patch: not found", kGoodFeed, kNotFound, kBadPatch, "*Extraction failed *"},
        {"patch: closed early", kGoodFeed, answer(patch.substr(0, patch.size() / 2), patch.size()), kNoPatch,
         "*CURLcode returns 18"},
        {"patch: redirected for ever", kGoodFeed, redirection(kPatchAt.substr(6)), kNoPatch, "*CURLcode returns *"},
    };
    const auto install = [&](const std::string &feed_answer, const std::string &patch_answer) {
        box.file(kFeedAt, feed_answer);
        box.file(kPatchAt, patch_answer);
        box.remove("/mnt/var"); // the note of the install before
        Result result = box.run({"norvupgrade", "--auto"}, kAutoLeaves);
        EXPECT_FALSE(box.exists(kPid));
        return result;
    };
    const std::string kState = std::string(" ") + kFile + " " + kLink;
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        const Result failed = install(row.feed, row.patch);
        EXPECT_EQ(failed.exit_status, 255);
        EXPECT_TRUE(failed.err.ends_with(row.steps)) << failed.err;
        EXPECT_TRUE(failed.record.in_order({row.record}));
        if (row.steps == kNoFeed)
            continue; // the next row gets further on the same machine
        box.file("/feed/there", kGoodPatch);
        const Result good = install(kGoodFeed, redirection("there"));
        EXPECT_EQ(good.exit_status, 0) << good.log_text();
        EXPECT_EQ(good.out, "");
        EXPECT_TRUE(good.err.ends_with("\n2 0 012 0 013 0 05 0 0")) << good.err;
        EXPECT_EQ(box.read_file(kStatus), "100 " + std::to_string(patch.size()) + kState);
        EXPECT_EQ(box.read_file(kProgress), "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n"
                                            "{\"success\": true, \"data\": {\"stage\": \"download\", "
                                            "\"progress\": \"100\"}}");
        EXPECT_EQ(box.read_file("/tmp/update.progress"), "updated\n");
        EXPECT_EQ(box.list("/tmpData"), std::vector<std::string>{"@autoupdate"});
        EXPECT_EQ(box.mode("/tmpData/@autoupdate"), 0700U);
    }
}

} // namespace
