#include "tests/support/sweep.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/report.h"
#include "tests/support/box_text.h"
#include "tests/support/system_call.h"

namespace
{

constexpr int kRunSeconds = 20;     // a run that takes longer hangs
constexpr size_t kMostCalls = 5000; // a run that makes so many more than the clean one never ends

// The work tells where its work begins and ends by a getpid with arguments, which the kernel ignores.
constexpr unsigned long long kMarker = 0x7357eebd;
enum Phase : unsigned long long { kBegin = 1, kEnd = 2 };

void mark(Phase phase, int result = 0, int error_code = 0)
{
    syscall(SYS_getpid, kMarker, phase, result, error_code);
}

// Where the fault strikes: at the n-th swept call of one process.
struct Point {
    SweepFault fault = SweepFault::kNone;
    int error = 0;
    int process = 0;
    int call = 0;
};

enum class Watch {
    kWaiting, // before the marker
    kCounted,
    kIgnored, // the work is over, or a program was started
};

struct Tracee {
    pid_t pid = 0;
    int number = 0;
    Watch watch = Watch::kIgnored;
    bool announced = false; // by its parent's call; a child may stop before that, and is then held
    bool held = false;
    int swept_calls = 0;
    int open_call = -1; // index of the call that it is in
    std::optional<long> forced_result = {};
};

struct Tracing {
    const Point &point;
    std::string_view only; // a part of the text of the calls to sweep
    std::string tree;      // as the kernel tells paths, its own links resolved
    size_t most_calls;
    SweepRun run = {};
    std::vector<Tracee> tracees = {};
    std::vector<std::string> open_at_begin = {};
    int processes = 0;
    bool begun = false;
    bool struck = false;
    bool returned = false;
    int status = 0; // wait status of the first process
    std::string complaint = {};
};

Tracee &tracee_find(Tracing &tracing, pid_t pid)
{
    const auto known = std::find_if(tracing.tracees.begin(), tracing.tracees.end(),
                                    [pid](const Tracee &tracee) { return tracee.pid == pid; });
    if (known != tracing.tracees.end())
        return *known;
    tracing.tracees.push_back({.pid = pid, .number = tracing.processes++});
    return tracing.tracees.back();
}

void resume(const Tracee &tracee, int signal)
{
    const bool watched = tracee.watch == Watch::kCounted || tracee.watch == Watch::kWaiting;
    ptrace(watched ? PTRACE_SYSCALL : PTRACE_CONT, tracee.pid, 0, signal);
}

// "number target" of each open descriptor, sorted.
std::vector<std::string> descriptors(pid_t pid)
{
    std::vector<std::string> list;
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", none)) {
        const std::string number = entry.path().filename().string();
        list.push_back(number + " " + process_link(pid, "fd/" + number));
    }
    std::sort(list.begin(), list.end());
    return list;
}

void marker_reached(Tracing &tracing, Tracee &tracee, const unsigned long long *arguments)
{
    const auto open_now = descriptors(tracee.pid);
    if (arguments[1] == kBegin) {
        tracee.watch = Watch::kCounted;
        tracing.begun = true;
        tracing.open_at_begin = open_now;
        return;
    }
    tracee.watch = Watch::kIgnored;
    tracing.returned = true;
    tracing.run.result = static_cast<int>(arguments[2]);
    tracing.run.error_code = static_cast<int>(arguments[3]);
    std::set_difference(open_now.begin(), open_now.end(), tracing.open_at_begin.begin(), tracing.open_at_begin.end(),
                        std::back_inserter(tracing.run.left_open));
}

// Lets the call that the tracee is about to make return `result`; it is done only with `is_done`.
void call_force(Tracee &tracee, long result, bool is_done)
{
    if (!is_done)
        ptrace(PTRACE_POKEUSER, tracee.pid, offsetof(user, regs.orig_rax), -1L); // number -1 is no call
    tracee.forced_result = result;
}

void call_begin(Tracing &tracing, Tracee &tracee, const __ptrace_syscall_info &info)
{
    unsigned long long arguments[6];
    std::copy(std::begin(info.entry.args), std::end(info.entry.args), arguments);
    if (info.entry.nr == SYS_getpid && arguments[0] == kMarker) {
        marker_reached(tracing, tracee, arguments);
        return;
    }
    if (tracee.watch != Watch::kCounted)
        return;

    const Point &point = tracing.point;
    const SystemCallRule rule = system_call_rule(static_cast<long>(info.entry.nr));
    const std::string text = system_call_text(tracee.pid, rule, arguments, tracing.tree);
    const bool can_fail = rule.failure == CallFailure::kPlain || rule.failure == CallFailure::kDone;
    const bool swept = can_fail && text.find(tracing.only) != std::string::npos;
    const bool here = swept && tracee.number == point.process && tracee.swept_calls == point.call;
    tracee.swept_calls += swept ? 1 : 0;
    tracee.open_call = static_cast<int>(tracing.run.calls.size());
    tracing.run.calls.push_back({tracee.number, text, 0, swept, false});

    if (rule.failure == CallFailure::kSleeps)
        call_force(tracee, 0, false);
    const bool again = swept && tracing.struck && point.fault == SweepFault::kErrorForGood;
    if (point.fault == SweepFault::kNone || (!here && !again))
        return;
    tracing.struck = true;
    if (point.fault == SweepFault::kKill) {
        tracing.run.killed = true;
        kill(tracee.pid, SIGKILL);
        return;
    }
    tracing.run.calls.back().failed = true;
    call_force(tracee, -point.error, rule.failure == CallFailure::kDone);
}

void call_end(Tracing &tracing, Tracee &tracee, const __ptrace_syscall_info &info)
{
    if (tracee.open_call < 0)
        return;
    const long result = tracee.forced_result.value_or(static_cast<long>(info.exit.rval));
    if (tracee.forced_result)
        ptrace(PTRACE_POKEUSER, tracee.pid, offsetof(user, regs.rax), result);
    tracee.forced_result.reset();
    tracing.run.calls[static_cast<size_t>(tracee.open_call)].result = result;
    tracee.open_call = -1;
}

void child_announce(Tracing &tracing, pid_t parent)
{
    const Watch watch = tracee_find(tracing, parent).watch;
    unsigned long pid = 0;
    ptrace(PTRACE_GETEVENTMSG, parent, 0, &pid);
    Tracee &child = tracee_find(tracing, static_cast<pid_t>(pid));
    child.announced = true;
    child.watch = watch;
    if (child.held)
        resume(child, 0);
    child.held = false;
}

// Handles one stop and lets the tracee go on.
void stop_handle(Tracing &tracing, pid_t pid, int status)
{
    const int signal = WSTOPSIG(status);
    if (signal == (SIGTRAP | 0x80)) {
        Tracee &tracee = tracee_find(tracing, pid);
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY)
            call_begin(tracing, tracee, info);
        else if (info.op == PTRACE_SYSCALL_INFO_EXIT)
            call_end(tracing, tracee, info);
        resume(tracee, 0);
        return;
    }
    const int event = status >> 16;
    if (event == PTRACE_EVENT_FORK || event == PTRACE_EVENT_VFORK || event == PTRACE_EVENT_CLONE)
        child_announce(tracing, pid);
    Tracee &tracee = tracee_find(tracing, pid);
    if (event == PTRACE_EVENT_EXEC) {
        tracee.open_call = -1;
        tracee.watch = Watch::kIgnored;
    }
    if (signal == SIGSTOP && event == 0 && !tracee.announced) { // a child ahead of its parent's report
        tracee.held = true;
        return;
    }
    resume(tracee, event != 0 || signal == SIGSTOP ? 0 : signal);
}

void end_all(Tracing &tracing, const char *why)
{
    if (!tracing.complaint.empty())
        return;
    tracing.complaint = why;
    for (const Tracee &tracee : tracing.tracees)
        kill(tracee.pid, SIGKILL);
}

// Follows all processes of a run to their ends.
void trace(Tracing &tracing, pid_t first)
{
    Tracee &started = tracee_find(tracing, first);
    started.watch = Watch::kWaiting;
    started.announced = true;
    const time_t deadline = time(nullptr) + kRunSeconds;
    bool options_set = false;
    while (!tracing.tracees.empty()) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, __WALL);
        if (pid < 0 && errno != EINTR)
            return;
        if (time(nullptr) > deadline)
            end_all(tracing, "did not end");
        if (pid < 0)
            continue;
        if (!WIFSTOPPED(status)) {
            if (pid == first)
                tracing.status = status;
            std::erase_if(tracing.tracees, [pid](const Tracee &tracee) { return tracee.pid == pid; });
            continue;
        }
        if (!options_set)
            ptrace(PTRACE_SETOPTIONS, pid, 0,
                   PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                       PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC);
        options_set = true;
        stop_handle(tracing, pid, status);
        if (tracing.run.calls.size() > tracing.most_calls)
            end_all(tracing, "makes calls without end");
    }
}

void tree_make(const std::vector<SweepFile> &files, const std::filesystem::path &tree)
{
    for (const SweepFile &file : files) {
        const std::filesystem::path path = tree / file.path;
        if (file.path.ends_with('/')) {
            std::filesystem::create_directories(path);
        } else {
            std::filesystem::create_directories(path.parent_path());
            std::ofstream(path, std::ios::binary) << file.content;
        }
        if (chown(path.c_str(), file.owner, file.group) != 0 || chmod(path.c_str(), file.mode) != 0)
            abort(); // the test asks for what this user cannot make
    }
}

// The child's side: stop until the tracer is there, then do the work.
[[noreturn]] void child_run(const SweepRow &row, const std::string &tree, int output)
{
    if (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0 || chdir(tree.c_str()) != 0)
        _exit(127);
    const UniqueFd null(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(null.get(), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    raise(SIGSTOP);
    if (row.prepare && !row.prepare(tree))
        _exit(127);
    NLIBCErrSet(kErrNone, "", 0);
    mark(kBegin);
    const int result = row.function(tree);
    mark(kEnd, result, NLIBCErrGet());
    _exit(0);
}

void alarm_notice(int /*signal*/) {}

// Wakes the tracer every second, so that it sees a run that hangs.
class Ticker
{
  public:
    Ticker()
    {
        struct sigaction action = {};
        action.sa_handler = alarm_notice; // no SA_RESTART
        sigaction(SIGALRM, &action, &before_);
        const itimerval each_second = {{1, 0}, {1, 0}};
        setitimer(ITIMER_REAL, &each_second, nullptr);
    }
    Ticker(Ticker &&) = delete;
    ~Ticker()
    {
        const itimerval off = {};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }

  private:
    struct sigaction before_ = {};
};

// What is wrong with a run that is over.
std::string run_judge(const SweepRow &row, const Tracing &tracing)
{
    if (!tracing.complaint.empty())
        return tracing.complaint;
    if (!tracing.begun)
        return "cannot be traced or started here, wait status " + std::to_string(tracing.status);
    if (WIFSIGNALED(tracing.status) && !tracing.run.killed)
        return "ended by signal " + std::to_string(WTERMSIG(tracing.status)) + "\n" + tracing.run.output;
    if (!tracing.returned && !tracing.run.killed)
        return "ended before it returned\n" + tracing.run.output;
    if (tracing.point.fault != SweepFault::kNone && !tracing.struck)
        return "did not come to this call";
    return row.check(tracing.run);
}

// One run in a fresh tree. Puts its calls into `calls` and returns what is wrong with it.
std::string run_once(const SweepRow &row, const Point &point, size_t most_calls, std::vector<SystemCall> *calls)
{
    std::string folder = (std::filesystem::temp_directory_path() / "sweep.XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return "no temporary folder";
    const std::string tree = std::filesystem::canonical(folder).string();
    tree_make(row.tree, tree);
    const UniqueFd output(memfd_create("output", MFD_CLOEXEC));
    Tracing tracing = {.point = point, .only = row.only, .tree = tree, .most_calls = most_calls};
    SweepRun &run = tracing.run;
    run.tree = tree;
    run.fault = point.fault;
    run.error = point.error;

    const pid_t first = fork();
    if (first == 0)
        child_run(row, tree, output.get());
    trace(tracing, first);
    lseek(output.get(), 0, SEEK_SET);
    run.output = descriptor_read(output.get());
    std::string complaint = run_judge(row, tracing);
    *calls = std::move(run.calls);
    std::error_code none;
    std::filesystem::remove_all(tree, none);
    return complaint;
}

std::string point_text(const Point &point)
{
    if (point.fault == SweepFault::kKill)
        return "killed";
    return std::string(strerrorname_np(point.error)) +
           (point.fault == SweepFault::kErrorForGood ? " for good" : " once");
}

// What each call of a row suffers in turn.
std::vector<Point> faults(const SweepRow &row)
{
    std::vector<Point> list;
    for (const int error : row.errors)
        list.push_back({SweepFault::kErrorOnce, error});
    for (const int error : row.errors_for_good)
        list.push_back({SweepFault::kErrorForGood, error});
    if (row.kill)
        list.push_back({SweepFault::kKill});
    return list;
}

} // namespace

SweepReport sweep(const SweepRow &row)
{
    const Ticker ticker;
    SweepReport report = {.runs = 1};
    std::string complaint = run_once(row, {}, kMostCalls, &report.calls);
    if (!complaint.empty()) { // the others would say the same
        report.complaints = "clean run: " + complaint + "\n";
        return report;
    }
    std::vector<int> swept_calls; // so far, of each process
    for (const SystemCall &call : report.calls) {
        const auto process = static_cast<size_t>(call.process);
        swept_calls.resize(std::max(swept_calls.size(), process + 1));
        if (!call.swept)
            continue;
        for (Point point : faults(row)) {
            point.process = call.process;
            point.call = swept_calls[process];
            std::vector<SystemCall> calls;
            complaint = run_once(row, point, report.calls.size() + kMostCalls, &calls);
            report.runs++;
            if (!complaint.empty())
                report.complaints += call.text + ", " + point_text(point) + ": " + complaint + "\n";
        }
        swept_calls[process]++;
    }
    return report;
}

std::optional<std::string> SweepRun::content(const std::string &path) const
{
    std::ifstream stream(tree / path, std::ios::binary | std::ios::ate);
    if (!stream)
        return std::nullopt;
    std::string text(static_cast<size_t>(stream.tellg()), '\0');
    stream.seekg(0).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

std::vector<std::string> SweepRun::entries() const
{
    std::vector<std::string> list;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(tree))
        list.push_back(entry.path().lexically_relative(tree).string());
    std::sort(list.begin(), list.end());
    return list;
}

bool SweepRun::failed(std::string_view name) const
{
    return std::any_of(calls.begin(), calls.end(), [name](const SystemCall &call) {
        return call.failed && std::string_view(call.text).substr(0, call.text.find(' ')) == name;
    });
}

std::string calls_not_in_order(const std::vector<SystemCall> &calls, std::initializer_list<std::string_view> beginnings)
{
    auto call = calls.begin();
    for (const std::string_view beginning : beginnings) {
        call = std::find_if(call, calls.end(),
                            [beginning](const SystemCall &each) { return each.text.starts_with(beginning); });
        if (call == calls.end()) {
            std::string complaint = "not in its place: " + std::string(beginning) + "\n";
            for (const SystemCall &each : calls)
                complaint += "  " + each.text + " = " + std::to_string(each.result) + "\n";
            return complaint;
        }
        ++call;
    }
    return "";
}
