// What the system writes over and over at fixed places: whatever call fails and whenever the process is killed, what is
// found there afterwards is whole, the caller is told of a failure, nothing is left beside it, and the next try
// succeeds.
#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "external/power_schedule.h"
#include "external/pstore.h"
#include "findhost/quick_conf.h"
#include "install/cgi_param.h"
#include "install/curl_library.h"
#include "install/disk_rule_update.h"
#include "install/download_state.h"
#include "install/ns_config.h"
#include "install/patch.h"
#include "install/system_status.h"
#include "install/update_request.h"
#include "install/upload.h"
#include "install/web_progress.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/text.h"
#include "manutil/vender_format.h"
#include "net/norvjnet.h"
#include "storage/raid.h"
#include "storage/root_block.h"
#include "swap/swap_json.h"
#include "tests/storage/root_block_bytes.h"
#include "tests/support/box_links.h"
#include "tests/support/device_answers.h"
#include "tests/support/in_child.h"
#include "tests/support/points.h"
#include "tests/support/private_root.h"
#include "tests/support/sweep.h"
#include "tests/support/true_program.h"

namespace
{

constexpr char kHtml[] = "Content-type: text/html; charset=\"UTF-8\"\r\n\r\n";
const std::string kPage = "Expires: Mon, 26 Jul 1990 05:00:00 GMT\r\n"
                          "Cache-Control: no-store, no-cache, must-revalidate\r\nPragma: no-cache\r\n" +
                          std::string(kHtml);

enum : unsigned {
    kOnlyLogs = 1,      // the work may log a failure and return 0
    kSynced = 32,       // on the disk before it takes the name
    kFailsLate = 2,     // the work may fail with the new text in place
    kInPlace = 4,       // a beginning of the new text may be left, or no file
    kMovedAside = 16,   // the old file is moved aside, and back when the work fails
    kGoneOnFailure = 8, // the same when it is killed; when it fails, no file
    kPart = 128,        // of the work: the calls for this file alone are swept
    kNew = 64,          // there is no old one, but its folder, which `beside` has
};
struct Replaced {
    std::string path, before, after;
    int (*work)(); // returns 0
    unsigned flags = 0;
    std::vector<SweepFile> beside = {};   // what else the work needs
    std::vector<std::string> others = {}; // texts that do, too, since what the work reads may fail
};

VenderRecord record_of(uint32_t count)
{
    VenderRecord record = {};
    record.flags.pt_mem_cnt = count;
    return record;
}

std::string bytes_of(const VenderRecord &record)
{
    VenderBytes bytes;
    vender_encode(record, &bytes);
    return {bytes.begin(), bytes.end()};
}

int disk_rules_put()
{
    DiskRuleUpdate update = {};
    const UniqueFd folder(open("/db", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder ? disk_rule_databases_put(folder.get(), {"new host", "new unit"}, &update) : -1;
}

int swap_state_set()
{
    const UniqueJson object(swap_json_file_read());
    return object ? swap_json_file_write(object.get(), kSwapRunning) : -1;
}

int ns_config_prepare()
{
    UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes));
    NLIBCSzHashSetValue(params.address(), "hostname", "nas");
    NLIBCSzHashSetValue(params.address(), "netconfig", "none");
    NLIBCSzHashSetValue(params.address(), "password", "secret");
    return PrepareNSConfig(params.get(), "/volume");
}

int quick_conf_do()
{
    ifreq request = {};
    text_cut(request.ifr_name, "eth0");
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd || ioctl(fd.get(), SIOCGIFHWADDR, &request) != 0)
        return -1;
    uint8_t mac[6];
    memcpy(mac, request.ifr_hwaddr.sa_data, sizeof(mac));
    char text[kFhostMacTextRoom];
    fhost_mac_format(mac, text);
    FHOST_RECORD record = {};
    text_cut(record.szMac, text);
    record.ulIP = htonl(0x0a000002);
    record.ulMask = htonl(0xff000000);
    int index = 0;
    return ErrFHOSTDoQuickConf(&record, &index);
}

constexpr NORVPowerSchedule kMorning = {1, 2, 7, 30};
const std::string kIfcfg = "etc/sysconfig/network-scripts/ifcfg-eth0",
                  kAddress = "IPADDR=10.0.0.2\nNETMASK=255.0.0.0\n";
const SweepFile kNetDev = {"proc/net/dev", "Inter-|\n face |\n  eth0: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"};
const SweepFile kNetwork = {"etc/sysconfig/network", "HOSTNAME=old\n"};

const Replaced kFiles[] = {
    {"etc/resolv.conf", "nameserver\t10.0.0.1\n", "nameserver\t10.0.0.2\n", [] { return NORVJNetSetDNS("10.0.0.2"); },
     kSynced},
    {"etc/hosts",
     "127.0.0.1\tlocalhost\n10.0.0.2\told\n",
     "127.0.0.1\tlocalhost\n10.0.0.2\tnas\n",
     [] { return NORVJNetSetHostname("nas"); },
     kSynced,
     {kNetDev, kNetwork, {kIfcfg, kAddress + "BOOTPROTO=static\n"}},
     {"127.0.0.1\tlocalhost\n"}},
    {kIfcfg,
     "BOOTPROTO=dhcp\n",
     kAddress + "BOOTPROTO=static\nONBOOT=yes\n",
     [] { return NORVJLnxSetIPNetmask("eth0", "10.0.0.2", "255.0.0.0"); },
     kMovedAside | kSynced,
     {{"bin/sh", true_program(), 0755}, kNetDev, kNetwork, {"etc/hosts", "127.0.0.1\tlocalhost\n"}, {"tmp/", ""}}},
    {&kQuickConfPath[1],
     "ip=10.0.0.9\n",
     "ip=10.0.0.2\nmask=255.0.0.0\n",
     quick_conf_do,
     kOnlyLogs | kGoneOnFailure | kPart,
     {{"bin/sh", true_program(), 0755},
      kNetDev,
      kNetwork,
      {kIfcfg, kAddress + "BOOTPROTO=static\n"},
      {"etc/hosts", "127.0.0.1\tlocalhost\n"},
      {"tmp/", ""}}},
    {"patch/a.pat",
     "old",
     "new patch",
     [] { return UrlFetch("/patch/a.pat").perform("file:///feed", {}, nullptr); },
     kInPlace | kFailsLate,
     {{"feed", "new patch"}},
     {""}}, // libcurl takes a file that it cannot read for one that has ended
    {"mark/.new", "", "", [] { return file_touch_flushed("/mark/.new"); }, kInPlace | kNew, {{"mark/", ""}}},
    {"mark/.new", "", "", [] { return NLIBCFileTouch("/mark/.new"); }, kInPlace | kNew, {{"mark/", ""}}},
    {"var/run/downloadNOS.status", "1 100 /old http://old", "0 0 /a.pat http://b/a.pat",
     [] { return download_state_begin("/a.pat", "http://b/a.pat"); }},
    {"var/run/downloadNOS.status",
     "0 0 /old http://old",
     "50 7  ",
     [] { return download_progress(nullptr, 14, 7, 0, 0); },
     kOnlyLogs,
     {{"tmp/", ""}}},
    {"tmp/install.progress",
     kPage + "old",
     kHtml + std::string(R"({"success": true, "data": {"stage": "download", "progress": "50"}})"),
     [] { return download_progress(nullptr, 14, 7, 0, 0); },
     kOnlyLogs,
     {{"var/run/", ""}}},
    {"tmp/install.progress", kPage + "old", kPage + R"({"success": true, "data": {"stage": "upload"}})",
     [] { return web_progress(kStageUpload, 0, 0), 0; }, kOnlyLogs},
    {"tmp/install.progress", kPage + "old",
     kPage + R"({"success": false, "data": {}, "errinfo": {"sec": "error","key": "no_space","line":16}})",
     [] { return web_progress(kStageUpload, 16, 0), 0; }, kOnlyLogs},
    {"tmp/install.progress", kPage + "old",
     kPage + R"({"success": true, "data": {"stage": "Success", "hostname": "n"}})",
     [] { return web_progress_finish("n"), 0; }, kOnlyLogs},
    {"tmp/fhost.status", "2", "13", [] { return client_status_write(13), 0; }, kOnlyLogs},
    {"tmp/update.progress", std::string("A:-13:", 7), std::string("A:-19:", 7),
     [] { return update_progress_set(-19), 0; }, kOnlyLogs | kInPlace},
    {"tmp/root_info.cache",
     "a=\"1\"\n",
     "a=\"2\"\n",
     [] { return RootInfoCacheSet("a", "2"); },
     kSynced,
     {{"tmp/root_info.cache.lock", ""}}},
    {kSwapStatePath + 1, R"({"state":"None"})", R"({"state":"Ready"})", swap_state_set},
    {"db/host_rule.db",
     "old host",
     "new host",
     disk_rules_put,
     kFailsLate | kSynced,
     {{"db/eunit_rule.db", "old unit"}}},
    {"db/eunit_rule.db",
     "old unit",
     "new unit",
     disk_rules_put,
     kFailsLate | kSynced,
     {{"db/host_rule.db", "old host"}}},
    {"unit/vender", bytes_of(record_of(1)), bytes_of(record_of(2)),
     [] { return vender_file_write("/unit", record_of(2)); }, kFailsLate | kSynced},
    {"etc/raid/progress_repair/md2_19700101_000000", "1\n", "18446744073709551615\n",
     [] { return raid_repair_progress_set("/dev/md2", 0, UINT64_MAX); }},
    {"tmp/power_sched.conf.tmp",
     "[Power On schedule]\n[Power Off schedule]\n5\n",
     "[Power On schedule]\n16910110\n[Power Off schedule]\n",
     [] { return power_schedule_write(PowerScheduleList::kOn, &kMorning, 1); },
     kInPlace | kFailsLate,
     {{"bin/cp", true_program(), 0755}}},
    {"volume/.ns_configure.sh",
     "#!/bin/sh\nold\n",
     "#!/bin/sh\n/usr/norv/sbin/norvnet --set_hostname nas\n/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f "
     "/.ns_pwd\n\n",
     ns_config_prepare,
     kGoneOnFailure,
     {{"volume/.WEBINST_OK", ""}}},
    {"volume/.ns_pwd",
     "",
     "account=\"admin\"\npassword=\"secret\"\n",
     ns_config_prepare,
     kGoneOnFailure,
     {{"volume/.WEBINST_OK", ""}}},
};

// Gives this process a network with eth0 in it, and a host name.
bool machine_enter()
{
    if (!PrivateRoot::enter("/") || unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0)
        return false;
    BoxLinks links(UniqueFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)));
    return links.wire("eth0", "tap0") && links.set("eth0", true);
}

// Whether the text is one that may stand there after this run.
bool is_sound(const Replaced &file, const SweepRun &run, const std::optional<std::string> &text)
{
    if (text == file.before || text == file.after || std::ranges::find(file.others, text) != file.others.end())
        return true;
    if ((file.flags & kMovedAside) != 0)
        return run.failed("rename") || run.killed; // then it stands beside
    if ((file.flags & kGoneOnFailure) != 0 && !run.killed && !run.failed("unlink"))
        return !text;
    return (file.flags & (kInPlace | kGoneOnFailure)) != 0 && (!text || file.after.starts_with(*text));
}

class Check
{
  public:
    explicit Check(const Replaced &file) : file_(file) {}

    std::string operator()(const SweepRun &run)
    {
        if (run.fault == SweepFault::kNone)
            entries_ = run.entries();
        std::string wrong = judge(run);
        if (wrong.empty() && in_child([&] { return PrivateRoot::enter(run.tree) ? file_.work() : -1; }) != 0)
            wrong = "the next try fails";
        if (wrong.empty() && run.content(file_.path) != file_.after)
            wrong = "the next try leaves " + run.content(file_.path).value_or("no file");
        return wrong;
    }

  private:
    [[nodiscard]] std::string judge(const SweepRun &run) const
    {
        const auto text = run.content(file_.path);
        const bool is_new = text == file_.after || std::ranges::find(file_.others, text) != file_.others.end();
        const bool is_stuck =
            (has(kMovedAside) && run.failed("rename")) || (has(kGoneOnFailure) && run.failed("unlink"));
        const bool may_log = !run.output.empty() || run.fault == SweepFault::kErrorForGood;
        const bool is_told = (has(kOnlyLogs) && may_log) || run.result != 0;
        if (!is_sound(file_, run, text))
            return "the file is " + text.value_or("gone");
        if (run.killed)
            return has(kMovedAside) && text != file_.before && text != file_.after && !is_beside(run) ? "lost" : "";
        if (!is_told && !is_new && !is_stuck)
            return "failed in silence";
        if (is_told && is_new && !is_stuck && (run.fault == SweepFault::kNone || !(has(kFailsLate) || has(kOnlyLogs))))
            return "result " + std::to_string(run.result) + ", " + run.output;
        if (!run.left_open.empty())
            return "left open: " + run.left_open[0];
        if (!run.failed("unlink") && !run.failed("unlinkat") && !run.failed("rename"))
            for (const std::string &entry : run.entries())
                if (std::ranges::find(entries_, entry) == entries_.end())
                    return "left " + entry;
        return "";
    }

    [[nodiscard]] bool has(unsigned flag) const { return (file_.flags & flag) != 0; }
    // Whether the old text stands under the name that it was moved to.
    [[nodiscard]] bool is_beside(const SweepRun &run) const
    {
        return std::ranges::any_of(run.entries(), [&](const std::string &entry) {
            return entry.starts_with(file_.path + ".") && run.content(entry) == file_.before;
        });
    }

    const Replaced &file_;
    std::vector<std::string> entries_ = {}; // of the clean run
};

// A row whose function sees the tree alone, and logs to the run's output.
SweepRow row_in(std::vector<SweepFile> tree, int (*work)(), std::function<std::string(const SweepRun &)> check)
{
    PrivateRoot::require();
    return {.function = [work](const std::string & /*tree*/) { return work(); },
            .prepare =
                [](const std::string &root) {
                    openlog(nullptr, LOG_PERROR, LOG_USER);
                    return PrivateRoot::enter(root);
                },
            .tree = std::move(tree),
            .check = std::move(check),
            .errors = {EIO, EINTR},
            .errors_for_good = {ENOSPC}};
}

// "" when what took the name of the file was on the disk before, else what is wrong.
std::string not_synced(const Replaced &file, const std::vector<SystemCall> &calls)
{
    for (const SystemCall &call : calls)
        if (call.text.starts_with("rename") && call.text.ends_with(" /" + file.path)) {
            const size_t at = call.text.find(' '), end = call.text.rfind(' ');
            const std::string copy = call.text.substr(at, end - at);
            return calls_not_in_order(calls, {"write" + copy, "fsync" + copy, call.text});
        }
    return "never renamed";
}

int files_sweep()
{
    static_cast<void>(CurlTransfer()); // the library is loaded outside of the trees
    int points = 0;
    for (const Replaced &file : kFiles) {
        std::vector<SweepFile> tree = file.beside;
        if ((file.flags & kNew) == 0)
            tree.push_back({file.path, file.before});
        SweepRow row = row_in(tree, file.work, Check(file));
        row.only = (file.flags & kPart) != 0 ? "/" + file.path : "";
        const SweepReport report = sweep(row);
        EXPECT_EQ(report.complaints, "") << file.path;
        if ((file.flags & kSynced) != 0) {
            EXPECT_EQ(not_synced(file, report.calls), "") << file.path;
        }
        points += report.runs;
    }
    return points;
}

TEST(ReplacedFiles, OldOrNewAndNothingBeside)
{
    const int points = in_child([] { return machine_enter() ? files_sweep() : 0; });
    if (points == 0)
        GTEST_SKIP() << "the kernel gives no root and network of their own to this user";
    points_tried(points);
    EXPECT_GT(points, 500);
}

// Sweeps as one who can look into what nobody may read, and holds the calls against these, in order.
void sweep_as_root(const SweepRow &row, std::initializer_list<std::string_view> calls = {})
{
    in_child([&] {
        EXPECT_TRUE(PrivateRoot::enter("/"));
        const SweepReport report = sweep(row);
        EXPECT_EQ(report.complaints, "");
        EXPECT_EQ(calls_not_in_order(report.calls, calls), "");
        points_tried(report.runs);
    });
}

// A crash record is in its place until its copy is whole.
TEST(ReplacedFiles, CrashRecordsAreMovedWhole)
{
    static constexpr char kRecord[] = "sys/fs/pstore/dmesg-0";
    const auto check = [](const SweepRun &run) -> std::string {
        const bool is_there = run.content(kRecord) == "oops";
        bool is_copied = false, is_littered = false;
        for (const std::string &entry : run.entries()) {
            is_copied = is_copied || (entry.ends_with("/dmesg-0") && entry != kRecord && run.content(entry) == "oops");
            is_littered = is_littered || (entry.ends_with(".tmp") && !run.killed && !run.failed("unlinkat"));
        }
        if (!(is_there || is_copied) || is_littered)
            return is_littered ? "left a part" : "lost";
        return run.killed || (run.result == 1) == !is_there ? "" : "result " + std::to_string(run.result);
    };
    sweep_as_root(row_in({{kRecord, "oops"}, {"var/log/", ""}}, pstore_collect, check));
}

// A file of a form is stored whole and on the disk, or not at all, unless the process is killed.
TEST(ReplacedFiles, UploadIsStoredWhole)
{
    static const std::string kContent(70'000, 'x'); // more than the buffer
    static const std::string kForm =
        "--B\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.pat\"\r\n\r\n" + kContent + "\r\n--B--\r\n";
    const auto work = [] {
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "multipart/form-data; boundary=B", 1);
        setenv("CONTENT_LENGTH", std::to_string(kForm.size()).c_str(), 1);
        const UniqueFd form(open("/form", O_RDONLY | O_CLOEXEC));
        UniqueHash params(NLIBCSzHashAlloc(0)), files(NLIBCSzHashAlloc(0));
        return dup2(form.get(), STDIN_FILENO) == STDIN_FILENO
                   ? NorvUploadParse(params.address(), files.address(), "/to") - kUploadGood
                   : -1;
    };
    const auto check = [](const SweepRun &run) -> std::string {
        std::optional<std::string> stored;
        for (const std::string &entry : run.entries())
            if (entry.starts_with("to/"))
                stored = run.content(entry);
        if (run.killed)
            return !stored || kContent.starts_with(*stored) ? "" : "torn";
        if (run.result == 0)
            return stored == kContent ? "" : "told as stored";
        return !stored || run.failed("unlink") ? "" : "left a part";
    };
    sweep_as_root(row_in({{"form", kForm}, {"to/", ""}}, work, check),
                  {"write /to/upload_tmp.", "write /to/upload_tmp.", "fsync /to/"});
}

std::string disk_of(const std::string &header, const std::string &body)
{
    std::string disk(800 << 10, '\0');
    disk.replace(kRootBlockHeaderAt, header.size(), header);
    return disk.replace(kRootBlockBodyAt, body.size(), body);
}

// Each copy of the root block is the old one, the new one or none, and the primary is the new one when that is told.
TEST(ReplacedFiles, RootBlockIsOldOrNew)
{
    static const std::string kOther = std::string(104, '\0').replace(100, 4, std::string("\0\0\0\2", 4));
    const DeviceAnswers answers({}, 800 << 10);
    const SweepFile partitions = {"proc/partitions", "major minor  #blocks  name\n\n   8        0        800 sda\n"};
    const auto work = [] {
        const UniqueRootBlock block(root_block_alloc());
        return block && root_block_update_capability(2, block.get()) == 0 ? root_block_set("/dev/sda", block.get())
                                                                          : -1;
    };
    int points = 0;
    for (const bool has_block : {true, false}) {
        const auto check = [has_block](const SweepRun &run) -> std::string {
            const std::string disk = run.content("dev/sda").value_or("");
            const auto copy = [&](size_t header_at) {
                const bool has_header = disk.compare(header_at, kHandHeader.size() - 8, kHandHeader, 0, 68) == 0;
                const std::string body = disk.substr(header_at + kRootBlockBodyAt - kRootBlockHeaderAt, 104);
                return !has_header ? "none" : body == kOther ? "new" : body == kHandBody ? "old" : "torn";
            };
            const std::string primary = copy(kRootBlockHeaderAt), backup = copy(disk.size() - kRootBlockBackupHeader);
            if (primary == "torn" || backup == "torn" || backup == "old" || (has_block && primary == "none"))
                return primary + ", " + backup;
            // A place that cannot be looked at counts as taken: the header is then left as it is, with a warning.
            const bool is_warned =
                run.fault == SweepFault::kErrorForGood || run.output.find("used") != std::string::npos;
            if (!run.killed && run.result == 0 && primary != "new" && !is_warned)
                return "told as written, is " + primary;
            if (run.fault == SweepFault::kNone && backup != "new")
                return "no backup";
            return run.left_open.empty() ? "" : "left open: " + run.left_open[0];
        };
        const std::string disk = has_block ? disk_of(kHandHeader, kHandBody) : disk_of("", "");
        SweepRow row = row_in({partitions, {"dev/sda", disk}}, work, check);
        row.errors = {EIO};
        const SweepReport report = sweep(row);
        EXPECT_EQ(report.complaints, "");
        EXPECT_EQ(calls_not_in_order(report.calls, {"write /dev/sda 104", "fsync /dev/sda", "write /dev/sda 76",
                                                    "fsync", "write /dev/sda 104", "fsync", "write /dev/sda 76"}),
                  "");
        points += report.runs;
    }
    points_tried(points);
}

} // namespace
