// The system calls of the key-value operations: which are made, in which order, and what a fault in each leaves behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/file.h"
#include "lib/report.h"
#include "tests/support/points.h"
#include "tests/support/sweep.h"

namespace
{

constexpr char kOld[] = "# comment\na=0\n[s]\nb=1\n[t]\na=2\n";

struct Work {
    int (*function)(const std::string &tree);
    const char *text;      // of the file after it
    const char *recreated; // the same when it could not be opened for reading; NULL: that is an error
    int read_error, quota_error;
};

int key_set(const std::string &tree)
{
    return NLIBCFileSetKeyValue((tree + "/a.conf").c_str(), "a", "new", nullptr);
}

int section_set(const std::string &tree)
{
    UniqueHash hash(NLIBCSzHashAlloc(0));
    NLIBCSzHashSetValue(hash.address(), "k", "v");
    return NLIBCFileSetSection((tree + "/a.conf").c_str(), "s", "new", hash.get(), nullptr);
}

int section_remove(const std::string &tree)
{
    return NLIBCFileRemoveSection((tree + "/a.conf").c_str(), "s");
}

constexpr Work kWorks[] = {
    {key_set, "# comment\na=new\n[s]\nb=1\n[t]\n", "a=new\n", kErrWrite, kErrWrite},
    {section_set, "# comment\na=0\n[new]\nk=v\n[t]\na=2\n", nullptr, kErrRead, kErrQuota},
    {section_remove, "# comment\na=0\n[t]\na=2\n", nullptr, kErrRead, kErrQuota},
};

// The code of the first failed call that counts. Closing the old file does not, nor removing the copy's name, nor
// opening the old file where it may be recreated.
int code_expected(const Work &work, const SweepRun &run)
{
    for (const SystemCall &call : run.calls) {
        const std::string_view name = std::string_view(call.text).substr(0, call.text.find(' '));
        const bool of_copy = call.text.find("/a.conf.") != std::string::npos;
        if (!call.failed || name == "unlink" || (name == "close" && !of_copy) ||
            (&call == run.calls.data() && work.recreated != nullptr))
            continue;
        if (name == "openat" || name == "fcntl")
            return kErrOpen;
        if (name == "newfstatat")
            return kErrStat;
        if (name == "read")
            return work.read_error;
        if (name == "rename")
            return kErrRename;
        return run.error == EDQUOT ? work.quota_error : kErrWrite; // write, fsync, fchown, fchmod, close
    }
    return kErrNone;
}

// The complete old file after an error, the complete new one after success, either after a kill; always with its owner
// and mode, and nothing beside it.
std::string rewrite_check(const Work &work, const SweepFile &file, const SweepRun &run)
{
    const bool recreated = work.recreated != nullptr && !run.calls.empty() && run.calls[0].failed;
    const std::string text_new = recreated ? work.recreated : work.text;
    const int code = code_expected(work, run);
    const auto text = run.content(file.path);
    if (run.killed ? text != file.content && text != text_new : text != (code == kErrNone ? text_new : file.content))
        return "the file is " + text.value_or("gone");
    if (!run.killed && run.result != (code == kErrNone ? 1 : -1))
        return "result " + std::to_string(run.result);
    if (code != kErrNone && run.error_code != code)
        return "code " + std::to_string(run.error_code);
    if (!run.left_open.empty())
        return "left open: " + run.left_open[0];
    if (!run.killed && !run.failed("unlink") && run.entries() != std::vector<std::string>{file.path})
        return "left its copy";
    struct stat status;
    const mode_t bits = recreated ? 0777 : 07777; // writing in place may take the set-id bits
    if (stat((run.tree / file.path).c_str(), &status) != 0 || ((status.st_mode ^ file.mode) & bits) != 0)
        return "mode";
    if (geteuid() == 0 && (status.st_uid != file.owner || status.st_gid != file.group))
        return "owner";
    return "";
}

TEST(FileRewrite, SurvivesEveryFault)
{
    const bool root = geteuid() == 0;
    SweepFile file = {"a.conf", kOld, 04640};
    if (root) {
        file.owner = 1000;
        file.group = 1001;
    }
    for (const Work &work : kWorks) {
        const SweepReport report = sweep({.function = work.function, .tree = {file}, .check = [&](const SweepRun &run) {
                                              return rewrite_check(work, file, run);
                                          }});
        EXPECT_EQ(report.complaints, "");
        EXPECT_GT(report.runs, 100);
        points_tried(report.runs);
        // Nothing may be in place that is not synced, owned and closed.
        EXPECT_EQ(
            calls_not_in_order(report.calls, {"openat /a.conf", "newfstatat", "openat /a.conf.", "newfstatat",
                                              "read /a.conf", "write /a.conf.", "fsync /a.conf.", "fchmod /a.conf.",
                                              "close /a.conf.", "rename /a.conf.", "unlink /a.conf."}),
            "");
        if (root) {
            EXPECT_EQ(calls_not_in_order(report.calls, {"fsync", "fchown /a.conf.", "fchmod"}), "");
        }
        int writes = 0;
        for (const SystemCall &call : report.calls)
            writes += call.text.starts_with("write ") ? 1 : 0;
        EXPECT_EQ(writes, 1);
    }
}

TEST(FileGetKeyValue, OneOpenOneReadOneClose)
{
    const auto get = [](const std::string &tree) {
        char value[16];
        return NLIBCFileGetKeyValue((tree + "/a.conf").c_str(), "a", value, sizeof(value), 0);
    };
    // A fault reads as no value, or as no file.
    const auto check = [](const SweepRun &run) -> std::string {
        const int expected = run.killed || run.failed("openat") ? -1 : 2;
        if (run.result != expected && !(run.result == 0 && run.failed("read")))
            return "result " + std::to_string(run.result);
        return run.left_open.empty() ? "" : "left open";
    };
    const SweepReport report = sweep({.function = get, .tree = {{"a.conf", kOld}}, .check = check});
    EXPECT_EQ(report.complaints, "");
    std::string calls;
    for (const SystemCall &call : report.calls)
        calls += call.text.substr(0, call.text.find(' ')) + " ";
    EXPECT_EQ(calls, "openat read close ");
}

} // namespace
