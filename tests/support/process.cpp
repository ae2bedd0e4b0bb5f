// Programs of a box: started, watched, waited for.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/box.h"
#include "tests/support/box_text.h"
#include "tests/support/sanitized.h"
#include "tests/support/wire.h"

using Clock = std::chrono::steady_clock;

static UniqueFd memory_file(const char *name, std::string_view content)
{
    UniqueFd fd(memfd_create(name, MFD_CLOEXEC));
    if (pwrite(fd.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size()))
        ADD_FAILURE() << "sandbox: no memory for " << name;
    return fd;
}

// Through a descriptor of its own, since a program is still writing through this one.
static std::string memory_file_read(const UniqueFd &fd)
{
    return descriptor_read(
        UniqueFd(open(("/proc/self/fd/" + std::to_string(fd.get())).c_str(), O_RDONLY | O_CLOEXEC)).get());
}

struct Process::State {
    Box *box = nullptr;
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
    return !state_->box->server->wait_for_end(state_->pid, 0, nullptr);
}

void Process::signal(int number) const
{
    if (!state_->box->init.signal(state_->pid, number))
        ADD_FAILURE() << "sandbox: cannot signal " << state_->name << ": " << strerror(errno);
}

void Process::send(std::string_view text) const
{
    if (::send(state_->input.get(), text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
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
    Box &box = *state_->box;
    Result result;
    int status = 0;
    if (state_->pid < 0)
        return result; // not started, as the test was told
    const std::chrono::duration<double> time_left = state_->deadline - Clock::now();
    if (!box.server->wait_for_end(state_->pid, std::max(time_left.count(), 0.0), &status)) {
        result.timed_out = true;
        ADD_FAILURE() << state_->name << " has not ended in time\n" << box.server->record(state_->record_from).text();
        box.init.signal(state_->pid, SIGKILL);
        static_cast<void>(box.server->wait_for_end(state_->pid, 10, &status));
    }
    std::erase(box.started, state_->pid);

    // While others run nobody can tell who is to blame for what there is.
    const bool is_last = box.started.empty();
    const BoxState after = is_last ? box.settled_state() : box.state();
    const std::string left = is_last ? box.leftovers(after) : "";
    if (!left.empty())
        ADD_FAILURE() << state_->name << " left behind:\n" << left;
    box.sanitizer_reports();

    result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = out();
    result.err = err();
    result.log = box.server->log(state_->log_from);
    result.record = box.server->record(state_->record_from);
    result.files_changed = tree_changes(state_->before, after.files);
    return result;
}

// What a program gets unless the test says otherwise.
static constexpr std::string_view kEnvironment[] = {
    "PATH=/sbin:/bin:/usr/sbin:/usr/bin",
#ifdef SANDBOX_SANITIZED
    "ASAN_OPTIONS=log_path=" BOX_SANITIZER,
    "UBSAN_OPTIONS=print_stacktrace=1:log_path=" BOX_SANITIZER,
#endif
};

static bool is_set(const std::vector<std::string> &environment, std::string_view name_with_sign)
{
    return std::any_of(environment.begin(), environment.end(),
                       [&](const std::string &variable) { return variable.starts_with(name_with_sign); });
}

static StartRequest request_make(const std::vector<std::string> &args, const RunOptions &options)
{
    StartRequest request;
    request.path = args.at(0).find('/') == std::string::npos ? role_path(args[0]) : args[0];
    request.cwd = options.cwd;
    request.args = args;
    if (options.argv0)
        request.args[0] = *options.argv0;
    request.env = options.env;
    for (const std::string_view variable : kEnvironment)
        if (!options.empty_env && !is_set(options.env, variable.substr(0, variable.find('=') + 1)))
            request.env.emplace_back(variable);
    for (const int fd : options.closed)
        request.closed.push_back(std::to_string(fd));
    for (const Limit &limit : options.limits) {
        request.limits.push_back(std::to_string(limit.resource));
        request.limits.push_back(std::to_string(limit.value));
    }
    return request;
}

// A stream whose other end the test holds; a socket, since writing to one that nobody reads raises no signal.
static UniqueFd open_input(UniqueFd *test_end)
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        ADD_FAILURE() << "sandbox: no standard input: " << strerror(errno);
    test_end->reset(ends[0]);
    return UniqueFd(ends[1]);
}

static UniqueFd hostile_output(Output output)
{
    int ends[2] = {-1, -1};
    if (output == Output::kFull)
        return UniqueFd(open("/dev/full", O_WRONLY | O_CLOEXEC));
    if (pipe2(ends, O_CLOEXEC) == 0)
        close(ends[0]);
    return UniqueFd(ends[1]);
}

Process Sandbox::start(const std::vector<std::string> &args, const RunOptions &options)
{
    const auto state = std::make_shared<Process::State>();
    Process process(state);
    state->box = box_.get();
    state->name = words_shown(args);
    StartRequest request = request_make(args, options);
    if (request.path.empty()) {
        ADD_FAILURE() << "sandbox: no role is named " << args[0] << "; for other names use argv0";
        return process;
    }
    const UniqueFd input = options.input_open ? open_input(&state->input) : memory_file("input", options.input);
    if (options.input_open)
        process.send(options.input);
    state->out = memory_file("output", "");
    const UniqueFd output = options.output == Output::kKept ? UniqueFd() : hostile_output(options.output);
    state->err = memory_file("errors", "");
    request.streams[0] = input.get();
    request.streams[1] = output ? output.get() : state->out.get();
    request.streams[2] = state->err.get();

    BoxState before = box_->state();
    state->before = before.files;
    if (box_->started.empty()) {
        box_->before = std::move(before);
        box_->started_leaves.clear();
    }
    box_->started_leaves.insert(box_->started_leaves.end(), options.leaves.begin(), options.leaves.end());
    state->record_from = box_->server->record_size();
    state->log_from = box_->server->log_size();
    state->deadline = Clock::now() + std::chrono::milliseconds(static_cast<std::int64_t>(options.seconds * 1000));
    state->pid = box_->init.start(request);
    if (state->pid < 0)
        ADD_FAILURE() << "sandbox: cannot start " << request.path << ": " << strerror(errno);
    else
        box_->started.push_back(state->pid);
    return process;
}
