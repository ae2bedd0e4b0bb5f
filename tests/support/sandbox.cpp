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

std::string Sandbox::outside(std::string_view path) const
{
    return box_->files->outside(path);
}

void Sandbox::host_program(std::string_view path)
{
    box_->server->host_program(std::string(path));
}

void Sandbox::host_file(std::string_view path, const std::string &host_path, mode_t mode)
{
    box_->files->copy(host_path, path, mode);
}

void Sandbox::leaves(std::vector<std::string> patterns)
{
    box_->leaves.insert(box_->leaves.end(), patterns.begin(), patterns.end());
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

int Sandbox::socket(int domain, int type, int protocol) const
{
    return box_->init.socket(domain, type, protocol);
}
