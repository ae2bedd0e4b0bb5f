// The fault sweep: one piece of work is run clean and recorded, then again and again, each time with one of its system
// calls failed or the process killed there, and each run is held against a checker.
//
// Runs are traced with ptrace, as root or as any user who may trace his own children. Counted are the calls of the work
// and those of its children until they start a program. Waits pass at once. Neither allocation nor calls that cannot
// fail are swept (system_call.cpp has the table). The work should be deterministic and single-threaded, and no other
// child of the test process may end meanwhile.
//
// A program built with sanitizers is swept without their search for leaks, which cannot run under a tracer.
#pragma once

#include <cerrno>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One entry of the folder in which the work starts. A path that ends in '/' is a folder.
struct SweepFile {
    std::string path; // below the tree, without a leading slash
    std::string content;
    mode_t mode = 0644;
    uid_t owner = static_cast<uid_t>(-1); // -1: as made; others need root
    gid_t group = static_cast<gid_t>(-1);
};

struct SystemCall {
    int process;      // 0: the one that was started; children count up as they are made
    std::string text; // name, paths and numbers: "rename /a.conf.x7Gh2K /a.conf"; paths are relative to the tree
    long result;      // as the kernel returned it to the program: -errno on failure
    bool swept;       // it can fail, so the sweep has a point here
    bool failed;      // by the sweep, in this run
};

enum class SweepFault { kNone, kErrorOnce, kErrorForGood, kKill };

// What a checker sees of one run that is over.
struct SweepRun {
    std::filesystem::path tree; // as the run left it
    SweepFault fault = SweepFault::kNone;
    int error = 0;       // errno value of the fault
    bool killed = false; // by the sweep
    int result = -1;     // what the work returned; -1 when killed
    // As it returned: the code of the error record, and the descriptors that it left open.
    int error_code = 0;
    std::vector<std::string> left_open;
    std::string output; // standard output and error
    std::vector<SystemCall> calls;

    // Content of a file below the tree; none when it does not exist.
    [[nodiscard]] std::optional<std::string> content(const std::string &path) const;
    // All entries below the tree, sorted: "a.conf", "sub", "sub/b".
    [[nodiscard]] std::vector<std::string> entries() const;
    // Whether the sweep failed a call of this name.
    [[nodiscard]] bool failed(std::string_view name) const;
};

struct SweepRow {
    // The work, in a forked child with the tree as its folder.
    std::function<int(const std::string &tree)> function = {};
    // Run in the work's process before its calls count; false ends the run as one that could not be begun.
    std::function<bool(const std::string &tree)> prepare = {};

    std::vector<SweepFile> tree = {};
    std::string only = {}; // just the calls whose text has this are swept
    // Returns "" when the run was right, else what is wrong. Also asked about the clean run.
    std::function<std::string(const SweepRun &run)> check = {};

    std::vector<int> errors = {EIO, ENOSPC, EINTR, EDQUOT, EMFILE};          // each call fails once with each
    std::vector<int> errors_for_good = {EIO, ENOSPC, EINTR, EDQUOT, EMFILE}; // and so does every call from then on
    bool kill = true;                                                        // SIGKILL at every call
};

struct SweepReport {
    std::vector<SystemCall> calls = {}; // of the clean run, in order
    int runs = 0;
    std::string complaints = {}; // one line per run that was not right; "" when all were
};

// Sweeps one row. A run that ends by a signal of its own, does not end, or does not reach the call to fail is a
// complaint by itself; so is a machine that refuses to trace.
[[nodiscard]] SweepReport sweep(const SweepRow &row);

// Whether calls that begin with these texts were made in this order, others between them or not. Returns "", or the
// first text that was not found after those before it, with the list of calls.
[[nodiscard]] std::string calls_not_in_order(const std::vector<SystemCall> &calls,
                                             std::initializer_list<std::string_view> beginnings);
