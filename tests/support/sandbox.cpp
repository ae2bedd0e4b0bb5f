#include "tests/support/sandbox.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/support/box_files.h"
#include "tests/support/box_init.h"
#include "tests/support/box_server.h"
#include "tests/support/box_text.h"
#include "tests/support/wire.h"

#if defined(__SANITIZE_ADDRESS__)
#define SANDBOX_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SANDBOX_SANITIZED 1
#endif
#endif

namespace
{

using Clock = std::chrono::steady_clock;

constexpr const char *kNorvPath = "/usr/libexec/norv/norv";
constexpr const char *kProgramFolder = "/usr/sbin/";
constexpr const char *kCgiFolder = "/usr/lib/norv/cgi-bin/";
constexpr int kGraceMs = 250;

struct Folder {
    const char *path;
    mode_t mode;
};
constexpr Folder kFolders[] = {
    {"/bin", 0755},
    {"/sbin", 0755},
    {"/usr/bin", 0755},
    {"/usr/sbin", 0755},
    {"/usr/lib/norv/cgi-bin", 0755},
    {"/etc", 0755},
    {"/etc.defaults", 0755},
    {"/dev", 0755},
    {"/sys", 0755},
    {"/proc/sys/kernel", 0755},
    {"/proc/net", 0755},
    {"/tmp", 01777},
    {"/var/run", 0755},
    {"/var/lock", 0755},
    {"/var/log", 0755},
    {"/run", 0755},
    {"/root", 0700},
    {BOX_PROC, 0555},
    {BOX_VOLUMES, 0755},
};

struct Link {
    const char *path;
    const char *target;
};
constexpr Link kLinks[] = {
    {"/dev/log", BOX_LOG},
    {"/dev/fd", "/proc/self/fd"},
    {"/dev/stdin", "/proc/self/fd/0"},
    {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"},
    {"/proc/self", BOX_PROC "/self"},
    {"/proc/thread-self", BOX_PROC "/thread-self"},
    {"/proc/cpuinfo", BOX_PROC "/cpuinfo"},
    {"/proc/meminfo", BOX_PROC "/meminfo"},
    {"/proc/stat", BOX_PROC "/stat"},
    {"/proc/uptime", BOX_PROC "/uptime"},
    {"/proc/version", BOX_PROC "/version"},
    {"/proc/filesystems", BOX_PROC "/filesystems"},
    {"/proc/net/dev", BOX_PROC "/self/net/dev"},
    {"/proc/net/route", BOX_PROC "/self/net/route"},
    {"/proc/net/arp", BOX_PROC "/self/net/arp"},
    {"/proc/net/if_inet6", BOX_PROC "/self/net/if_inet6"},
};

// All of the host that a program can reach.
constexpr const char *kDevices[] = {"/dev/null", "/dev/zero", "/dev/random", "/dev/urandom", "/dev/tty"};
constexpr const char *kLibraries[] = {"/lib64", "/lib/x86_64-linux-gnu", "/usr/lib64", "/usr/lib/x86_64-linux-gnu"};

constexpr Link kSmallFiles[] = {
    {"/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"},
    {"/etc/group", "root:x:0:\n"},
    {"/etc/ld.so.preload", BOX_PRELOAD "\n"},
    {"/proc/cmdline", "root=/dev/ram0\n"},
    {"/proc/swaps", "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"},
    {"/proc/partitions", "major minor  #blocks  name\n\n"},
    {"/proc/devices", "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n  9 md\n"},
};

std::vector<std::string> role_names()
{
    return words_split(std::string_view(SANDBOX_ROLES, sizeof(SANDBOX_ROLES) - 1));
}

std::string role_path(const std::string &name)
{
    const bool is_cgi = name.size() > 4 && name.compare(name.size() - 4, 4, ".cgi") == 0;
    return (is_cgi ? kCgiFolder : kProgramFolder) + name;
}

UniqueFd memory_file(const char *name, std::string_view content)
{
    UniqueFd fd(memfd_create(name, MFD_CLOEXEC));
    if (pwrite(fd.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        ADD_FAILURE() << "sandbox: no memory for " << name;
    return fd;
}

std::string memory_file_read(const UniqueFd &fd)
{
    struct stat status;
    if (fstat(fd.get(), &status) != 0)
        return "";
    std::string content(static_cast<size_t>(status.st_size), '\0');
    const ssize_t count = pread(fd.get(), content.data(), content.size(), 0);
    content.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return content;
}

bool any_matches(const std::vector<std::string> &patterns, const std::string &text)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string &pattern) { return pattern_matches(pattern, text); });
}

} // namespace

// --- the box

// What a box holds at one moment.
struct BoxState {
    FileTree files{};
    std::vector<std::string> others{}; // "process NAME", "mount /TARGET" and so on, sorted
};

struct SandboxHost {
    BoxInit init{};
    std::unique_ptr<BoxFiles> files{};
    std::unique_ptr<BoxServer> server{};
    std::vector<std::string> leaves{};
    // The programs that have not been waited for, what the box held before the first of them, and what they may leave.
    std::vector<pid_t> started{};
    BoxState before{};
    std::vector<std::string> started_leaves{};

    [[nodiscard]] bool begin(std::string *refusal);
    void furnish();
    [[nodiscard]] std::vector<Sandbox::Running> processes() const;
    [[nodiscard]] std::vector<std::string> locks(pid_t pid) const; // paths of files on which it has one
    [[nodiscard]] BoxState state();
    [[nodiscard]] std::string leftovers(const BoxState &after) const; // that nobody declared, one per line
    [[nodiscard]] BoxState settled_state();
    void sanitizer_reports() const;
};

bool SandboxHost::begin(std::string *refusal)
{
    if (!init.begin(refusal))
        return false;
    files = std::make_unique<BoxFiles>(init.take_root());
    for (const Folder &folder : kFolders)
        files->directory(folder.path, folder.mode);
    if (!init.mount_proc()) {
        *refusal = std::string("mount of /proc: ") + strerror(errno);
        return false;
    }
    furnish();
    server = std::make_unique<BoxServer>(*files, init.reports());
    server->host_program("/bin/sh");
    return true;
}

void SandboxHost::furnish()
{
    for (const Link &file : kSmallFiles)
        files->write(file.path, file.target, 0644);
    for (const Link &link : kLinks)
        files->symlink(link.path, link.target);
    for (const std::string &role : role_names())
        files->symlink(role_path(role), kNorvPath);
    files->copy(SANDBOX_PRELOAD, BOX_PRELOAD, 0755);
    files->copy(SANDBOX_STANDIN, BOX_STANDIN, 0755);
    files->copy("/bin/sh", BOX_HOST "/bin/sh", 0755);

    bool bound = true;
    for (const char *device : kDevices) {
        files->write(device, "", 0666);
        bound = bound && init.bind(device, device, true);
    }
    for (const char *library : kLibraries) {
        if (access(library, F_OK) != 0)
            continue;
        files->directory(library, 0755);
        bound = bound && init.bind(library, library, false);
    }
    files->write(kNorvPath, "", 0755);
    bound = bound && init.bind(SANDBOX_NORV, kNorvPath, false);
    if (!bound || !init.enter()) {
        perror("sandbox: cannot make the root");
        abort();
    }
}

static std::string descriptor_text(const UniqueFd &fd)
{
    std::string text;
    char piece[4096];
    for (ssize_t count; (count = read(fd.get(), piece, sizeof(piece))) > 0;)
        text.append(piece, static_cast<size_t>(count));
    return text;
}

// The words of each line of a table below the box's /proc.
static std::vector<std::vector<std::string>> table(const std::string &text)
{
    std::vector<std::vector<std::string>> rows;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::vector<std::string> words(1);
        for (; at < end; at++) {
            if (text[at] != ' ' && text[at] != '\t')
                words.back() += text[at];
            else if (!words.back().empty())
                words.emplace_back();
        }
        rows.push_back(std::move(words));
        at = end + 1;
    }
    return rows;
}

std::vector<Sandbox::Running> SandboxHost::processes() const
{
    std::vector<Sandbox::Running> running;
    for (const std::string &name : files->list(BOX_PROC)) {
        const pid_t pid = atoi(name.c_str());
        std::string line;
        if (pid <= 1 || std::find(started.begin(), started.end(), pid) != started.end() ||
            !files->read(BOX_PROC "/" + name + "/cmdline", &line) || line.empty())
            continue; // the first process, one that is waited for, or one that has ended
        const std::string program = line.c_str();
        running.push_back({.pid = pid, .name = program.substr(program.rfind('/') + 1)});
    }
    return running;
}

// A lock lives as long as a descriptor of it does, whoever took it.
std::vector<std::string> SandboxHost::locks(pid_t pid) const
{
    std::vector<std::string> paths;
    const std::string folder = BOX_PROC "/" + std::to_string(pid);
    for (const std::string &fd : files->list(folder + "/fdinfo")) {
        std::string info;
        if (files->read(folder + "/fdinfo/" + fd, &info) && info.find("\nlock:") != std::string::npos)
            paths.push_back(files->link_target(folder + "/fd/" + fd));
    }
    return paths;
}

BoxState SandboxHost::state()
{
    BoxState state{.files = files->tree(), .others = {}};
    for (const Sandbox::Running &process : processes()) {
        state.others.push_back("process " + process.name);
        for (const std::string &file : locks(process.pid))
            state.others.push_back("lock " + file);
    }

    std::string text;
    if (!files->read(BOX_PROC "/1/mountinfo", &text))
        ADD_FAILURE() << "sandbox: cannot read the mounts: " << strerror(errno);
    for (const auto &row : table(text))
        state.others.push_back("mount " + row.at(4));

    // These tables show the reader's own namespace, so that the reader must come from inside.
    const std::pair<const char *, const char *> kinds[] = {{"sem", "semaphore"}, {"shm", "memory"}, {"msg", "queue"}};
    for (const auto &[file, kind] : kinds) {
        for (const auto &row : table(descriptor_text(UniqueFd(init.open(std::string(BOX_PROC "/sysvipc/") + file))))) {
            char key[24];
            snprintf(key, sizeof(key), " 0x%08x", static_cast<unsigned>(atol(row[0].c_str())));
            if (row[0] != "key")
                state.others.push_back(kind + std::string(key));
        }
    }

    std::sort(state.others.begin(), state.others.end());
    return state;
}

std::string SandboxHost::leftovers(const BoxState &after) const
{
    std::vector<std::string> left;
    std::set_difference(after.others.begin(), after.others.end(), before.others.begin(), before.others.end(),
                        std::back_inserter(left));
    for (const std::string &change : tree_changes(before.files, after.files))
        if (change[0] == '+')
            left.push_back(change.substr(1));
    std::string undeclared;
    for (const std::string &what : left)
        if (!any_matches(leaves, what) && !any_matches(started_leaves, what))
            undeclared += "  " + what + "\n";
    return undeclared;
}

// Waits a moment for children that are about to end, now that their parent has.
BoxState SandboxHost::settled_state()
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kGraceMs);
    BoxState now = state();
    while (leftovers(now).find("  process ") != std::string::npos && Clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        now = state();
    }
    return now;
}

void SandboxHost::sanitizer_reports() const
{
    for (const std::string &name : files->list(BOX_DIR)) {
        const std::string path = BOX_DIR "/" + name;
        std::string report;
        if (path.compare(0, strlen(BOX_SANITIZER), BOX_SANITIZER) != 0 || !files->read(path, &report))
            continue;
        ADD_FAILURE() << report;
        files->remove(path);
    }
}

// --- programs

struct Process::State {
    SandboxHost *host = nullptr;
    std::string name{};
    pid_t pid = -1;
    UniqueFd out{}, err{}, input{};
    Clock::time_point deadline{};
    size_t record_from = 0, log_from = 0;
    FileTree before{};
};

Process::Process(std::shared_ptr<State> state) : state_(std::move(state)) {}

pid_t Process::pid() const
{
    return state_->pid;
}

bool Process::running() const
{
    return !state_->host->server->wait_for_end(state_->pid, 0, nullptr);
}

void Process::signal(int number) const
{
    if (!state_->host->init.signal(state_->pid, number))
        ADD_FAILURE() << "sandbox: cannot signal " << state_->name << ": " << strerror(errno);
}

void Process::send(std::string_view text) const
{
    if (write(state_->input.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        ADD_FAILURE() << "sandbox: " << state_->name << " does not read: " << strerror(errno);
}

void Process::close_input()
{
    state_->input.reset();
}

std::string Process::out() const
{
    return memory_file_read(state_->out);
}

std::string Process::err() const
{
    return memory_file_read(state_->err);
}

Result Process::wait()
{
    SandboxHost &host = *state_->host;
    Result result;
    int status = 0;
    if (state_->pid < 0)
        return result; // not started, as the test was told
    const std::chrono::duration<double> time_left = state_->deadline - Clock::now();
    if (!host.server->wait_for_end(state_->pid, std::max(time_left.count(), 0.0), &status)) {
        result.timed_out = true;
        ADD_FAILURE() << state_->name << " has not ended in time\n" << host.server->record(state_->record_from).text();
        host.init.signal(state_->pid, SIGKILL);
        static_cast<void>(host.server->wait_for_end(state_->pid, 10, &status));
    }
    std::erase(host.started, state_->pid);

    // While others run nobody can tell who is to blame for what there is.
    const bool is_last = host.started.empty();
    const BoxState after = is_last ? host.settled_state() : host.state();
    const std::string left = is_last ? host.leftovers(after) : "";
    if (!left.empty())
        ADD_FAILURE() << state_->name << " left behind:\n" << left;
    host.sanitizer_reports();

    result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = out();
    result.err = err();
    result.log = host.server->log(state_->log_from);
    result.record = host.server->record(state_->record_from);
    result.files_changed = tree_changes(state_->before, after.files);
    return result;
}

// --- what tests call

static std::string g_refusal; // why the kernel gives no namespaces

// One box is made before the first test: it shows that the kernel lets us, and is the first that a test gets.
static std::shared_ptr<SandboxHost> g_spare;

class SandboxEnvironment : public testing::Environment
{
  public:
    void SetUp() override
    {
        g_spare = std::make_shared<SandboxHost>();
        if (!g_spare->begin(&g_refusal))
            GTEST_SKIP() << "[  SKIPPED ] not run: this kernel gives an ordinary process no namespaces (" << g_refusal
                         << ")";
    }
    void TearDown() override { g_spare.reset(); }
};
static testing::Environment *const g_environment = testing::AddGlobalTestEnvironment(new SandboxEnvironment);

Sandbox::Sandbox() : host_(std::move(g_spare))
{
    if (host_ != nullptr)
        return;
    host_ = std::make_shared<SandboxHost>();
    if (!host_->begin(&g_refusal)) {
        fprintf(stderr, "sandbox: %s\n", g_refusal.c_str());
        abort();
    }
}

Sandbox::~Sandbox()
{
    if (!host_->started.empty())
        ADD_FAILURE() << "sandbox: " << host_->started.size() << " programs were not waited for";
}

void Sandbox::file(std::string_view path, std::string_view content, mode_t mode)
{
    host_->files->write(path, content, mode);
}

void Sandbox::directory(std::string_view path, mode_t mode)
{
    host_->files->directory(path, mode);
}

void Sandbox::symlink(std::string_view path, std::string_view target)
{
    host_->files->symlink(path, target);
}

void Sandbox::device(std::string_view path, std::uint64_t bytes)
{
    host_->files->sparse(path, bytes);
}

void Sandbox::remove(std::string_view path)
{
    host_->files->remove(path);
}

std::string Sandbox::read_file(std::string_view path) const
{
    std::string content;
    if (!host_->files->read(path, &content))
        ADD_FAILURE() << "sandbox: cannot read " << path << ": " << strerror(errno);
    return content;
}

bool Sandbox::exists(std::string_view path) const
{
    struct stat status;
    return host_->files->stat(path, &status);
}

mode_t Sandbox::mode(std::string_view path) const
{
    struct stat status;
    if (!host_->files->stat(path, &status)) {
        ADD_FAILURE() << "sandbox: cannot stat " << path << ": " << strerror(errno);
        return 0;
    }
    return status.st_mode & 07777;
}

std::vector<std::string> Sandbox::list(std::string_view directory) const
{
    if (!exists(directory))
        ADD_FAILURE() << "sandbox: no folder " << directory;
    return host_->files->list(directory);
}

void Sandbox::program(std::string_view path, std::vector<ProgramRow> rows)
{
    host_->server->program(std::string(path), std::move(rows));
}

void Sandbox::host_program(std::string_view path)
{
    host_->files->copy(std::string(path), BOX_HOST + std::string(path), 0755);
    host_->server->host_program(std::string(path));
}

void Sandbox::host_file(std::string_view path, const std::string &host_path, mode_t mode)
{
    host_->files->copy(host_path, path, mode);
}

std::vector<ProgramCall> Sandbox::calls(std::string_view path) const
{
    std::vector<ProgramCall> calls = host_->server->calls();
    std::erase_if(calls, [&](const ProgramCall &call) { return !pattern_matches(path, call.path); });
    return calls;
}

std::string Sandbox::programs_called() const
{
    std::string lines;
    for (const ProgramCall &call : host_->server->calls())
        lines += call.path + (call.args.empty() ? "" : " ") + words_shown(call.args) + "\n";
    return lines;
}

std::string Sandbox::unexpected_calls() const
{
    return host_->server->unexpected_calls();
}

void Sandbox::call(CallRow row)
{
    host_->server->call(std::move(row));
}

void Sandbox::request(RequestRow row)
{
    host_->server->request(std::move(row));
}

void Sandbox::compress_sleeps(int factor)
{
    host_->server->compress_sleeps(factor);
}

void Sandbox::leaves(std::vector<std::string> patterns)
{
    host_->leaves.insert(host_->leaves.end(), patterns.begin(), patterns.end());
}

void Sandbox::board_scenario(std::string_view text)
{
    host_->server->board([&](struct board &board) {
        char error[256];
        if (board_scenario_load(&board, time(nullptr), text.data(), text.size(), error, sizeof(error)) != 0)
            ADD_FAILURE() << "sandbox: board scenario, " << error;
    });
}

void Sandbox::board(const std::function<void(struct board &)> &change)
{
    host_->server->board(change);
}

void Sandbox::board_remove()
{
    host_->files->remove(BOX_BOARD);
}

std::string Sandbox::volume(std::string_view source)
{
    return host_->server->volume(std::string(source));
}

Process Sandbox::start(const std::vector<std::string> &args, const RunOptions &options)
{
    auto state = std::make_shared<Process::State>();
    state->host = host_.get();
    state->name = words_shown(args);
    StartRequest request;
    request.path = args.at(0);
    if (request.path.find('/') == std::string::npos) {
        const std::vector<std::string> roles = role_names();
        if (std::find(roles.begin(), roles.end(), request.path) == roles.end()) {
            ADD_FAILURE() << "sandbox: no role is named " << request.path << "; for other names use argv0";
            return Process(state);
        }
        request.path = role_path(request.path);
    }
    request.cwd = options.cwd;
    request.args = args;
    if (options.argv0)
        request.args[0] = *options.argv0;
    if (!options.empty_env) {
        request.env.emplace_back("PATH=/sbin:/bin:/usr/sbin:/usr/bin");
#ifdef SANDBOX_SANITIZED
        request.env.emplace_back("ASAN_OPTIONS=log_path=" BOX_SANITIZER);
        request.env.emplace_back("UBSAN_OPTIONS=print_stacktrace=1:log_path=" BOX_SANITIZER);
#endif
    }
    request.env.insert(request.env.end(), options.env.begin(), options.env.end());
    for (const int fd : options.closed)
        request.closed.push_back(std::to_string(fd));
    for (const Limit &limit : options.limits) {
        request.limits.push_back(std::to_string(limit.resource));
        request.limits.push_back(std::to_string(limit.value));
    }

    UniqueFd input = options.input_open ? UniqueFd() : memory_file("input", options.input);
    if (options.input_open) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            ADD_FAILURE() << "sandbox: " << strerror(errno);
        input.reset(ends[0]);
        state->input.reset(ends[1]);
        if (!options.input.empty())
            Process(state).send(options.input);
    }
    state->out = memory_file("output", "");
    state->err = memory_file("errors", "");
    request.streams[0] = input.get();
    request.streams[1] = state->out.get();
    request.streams[2] = state->err.get();

    BoxState before = host_->state();
    state->before = before.files;
    if (host_->started.empty()) {
        host_->before = std::move(before);
        host_->started_leaves.clear();
    }
    host_->started_leaves.insert(host_->started_leaves.end(), options.leaves.begin(), options.leaves.end());
    state->record_from = host_->server->record_size();
    state->log_from = host_->server->log_size();
    state->deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    state->pid = host_->init.start(request);
    if (state->pid < 0)
        ADD_FAILURE() << "sandbox: cannot start " << request.path << ": " << strerror(errno);
    else
        host_->started.push_back(state->pid);
    return Process(state);
}

Result Sandbox::run(const std::vector<std::string> &args, const RunOptions &options)
{
    return start(args, options).wait();
}

std::vector<Sandbox::Running> Sandbox::processes() const
{
    return host_->processes();
}

void Sandbox::signal(pid_t pid, int number) const
{
    if (!host_->init.signal(pid, number))
        ADD_FAILURE() << "sandbox: cannot signal process " << pid << ": " << strerror(errno);
}

bool Sandbox::wait_for_end(pid_t pid, double seconds, int *status) const
{
    return host_->server->wait_for_end(pid, seconds, status);
}

Record Sandbox::record() const
{
    return host_->server->record();
}

bool Sandbox::wait_for(std::string_view pattern, double seconds) const
{
    return host_->server->wait_for_line(pattern, seconds);
}

int Sandbox::socket(int domain, int type, int protocol) const
{
    return host_->init.socket(domain, type, protocol);
}
