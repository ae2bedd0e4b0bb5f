#include "tests/support/sandbox.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "tests/support/box.h"
#include "tests/support/box_text.h"
#include "tests/support/in_child.h"
#include "tests/support/wire.h"

Sandbox::Sandbox() : box_(std::make_shared<Box>())
{
    std::string refusal;
    if (box_->begin(&refusal))
        return;
    not_run("this kernel gives an ordinary process no namespaces (" + refusal + ")");
}

Sandbox::~Sandbox()
{
    if (!box_->started.empty())
        ADD_FAILURE() << "sandbox: " << box_->started.size() << " programs were not waited for";
}

void Sandbox::file(std::string_view path, std::string_view content, mode_t mode)
{
    struct stat status;
    if (box_->files->stat(path, &status) && S_ISLNK(status.st_mode))
        box_->files->remove(path); // most of /proc leads to the true one
    box_->files->write(path, content, mode);
}

void Sandbox::directory(std::string_view path, mode_t mode)
{
    box_->files->directory(path, mode);
}

void Sandbox::symlink(std::string_view path, std::string_view target)
{
    box_->files->symlink(path, target);
}

void Sandbox::device(std::string_view path, std::uint64_t bytes)
{
    box_->files->sparse(path, bytes);
}

void Sandbox::remove(std::string_view path)
{
    box_->files->remove(path);
}

std::string Sandbox::read_file(std::string_view path) const
{
    std::string content;
    if (!box_->files->read(path, &content))
        ADD_FAILURE() << "sandbox: cannot read " << path << ": " << strerror(errno);
    return content;
}

bool Sandbox::exists(std::string_view path) const
{
    struct stat status;
    return box_->files->stat(path, &status);
}

mode_t Sandbox::mode(std::string_view path) const
{
    struct stat status;
    if (!box_->files->stat(path, &status)) {
        ADD_FAILURE() << "sandbox: cannot stat " << path << ": " << strerror(errno);
        return 0;
    }
    return status.st_mode & 07777;
}

std::vector<std::string> Sandbox::list(std::string_view directory) const
{
    if (!exists(directory))
        ADD_FAILURE() << "sandbox: no folder " << directory;
    return box_->files->list(directory);
}

void Sandbox::program(std::string_view path, std::vector<ProgramRow> rows)
{
    box_->server->program(std::string(path), std::move(rows));
}

void Sandbox::program_answer(std::function<std::optional<ProgramRow>(const ProgramCall &)> answer)
{
    box_->server->program_answer(std::move(answer));
}

std::string Sandbox::outside(std::string_view path) const
{
    return box_->files->outside(path);
}

void Sandbox::host_program(std::string_view path)
{
    box_->files->copy(std::string(path), BOX_HOST + std::string(path), 0755);
    box_->server->host_program(std::string(path));
}

void Sandbox::host_file(std::string_view path, const std::string &host_path, mode_t mode)
{
    box_->files->copy(host_path, path, mode);
}

std::vector<ProgramCall> Sandbox::calls(std::string_view path) const
{
    std::vector<ProgramCall> calls = box_->server->calls();
    std::erase_if(calls, [&](const ProgramCall &call) { return !pattern_matches(path, call.path); });
    return calls;
}

std::string Sandbox::programs_called() const
{
    std::string lines;
    for (const ProgramCall &call : box_->server->calls())
        lines += call.path + (call.args.empty() ? "" : " ") + words_shown(call.args) + "\n";
    return lines;
}

std::string Sandbox::unexpected_calls() const
{
    return box_->server->unexpected_calls();
}

void Sandbox::call(CallRow row)
{
    box_->server->call(std::move(row));
}

void Sandbox::request(RequestRow row)
{
    box_->server->request(std::move(row));
}

void Sandbox::compress_sleeps(int factor)
{
    box_->server->compress_sleeps(factor);
}

void Sandbox::leaves(std::vector<std::string> patterns)
{
    box_->leaves.insert(box_->leaves.end(), patterns.begin(), patterns.end());
}

void Sandbox::board_scenario(std::string_view text)
{
    box_->server->board([&](struct board &board) {
        char error[256];
        if (board_scenario_load(&board, time(nullptr), text.data(), text.size(), error, sizeof(error)) != 0)
            ADD_FAILURE() << "sandbox: board scenario, " << error;
    });
}

void Sandbox::board(const std::function<void(struct board &)> &change)
{
    box_->server->board(change);
}

void Sandbox::board_remove()
{
    box_->files->remove(BOX_BOARD);
}

std::string Sandbox::volume(std::string_view source)
{
    return box_->server->volume(std::string(source));
}

Result Sandbox::run(const std::vector<std::string> &args, const RunOptions &options)
{
    return start(args, options).wait();
}

std::vector<Sandbox::Running> Sandbox::processes() const
{
    return box_->processes();
}

void Sandbox::signal(pid_t pid, int number) const
{
    if (!box_->init.signal(pid, number) && errno != ESRCH)
        ADD_FAILURE() << "sandbox: cannot signal process " << pid << ": " << strerror(errno);
}

bool Sandbox::wait_for_end(pid_t pid, double seconds, int *status) const
{
    return box_->server->wait_for_end(pid, seconds, status);
}

Record Sandbox::record() const
{
    return box_->server->record();
}

bool Sandbox::wait_for(std::string_view pattern, double seconds) const
{
    return box_->server->wait_for_line(pattern, seconds);
}

int Sandbox::socket(int domain, int type, int protocol) const
{
    return box_->init.socket(domain, type, protocol);
}
