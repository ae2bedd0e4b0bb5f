#include "tests/support/box_init.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/wire.h"

namespace
{

constexpr int kFirstInit = 3; // its two sockets

// A fault of the sandbox itself: no test can go on.
[[noreturn]] void give_up(const char *what)
{
    fprintf(stderr, "sandbox: %s: %s\n", what, strerror(errno));
    abort();
}

void socket_pair(UniqueFd *here, UniqueFd *there)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        give_up("socketpair");
    here->reset(ends[0]);
    there->reset(fcntl(ends[1], F_DUPFD_CLOEXEC, 10)); // clear of the numbers that it gets there
    close(ends[1]);
}

pid_t init_spawn(int commands, int reports)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd < kFirstInit; fd++)
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, commands, kFirstInit);
    posix_spawn_file_actions_adddup2(&actions, reports, kFirstInit + 1);
    posix_spawn_file_actions_addclosefrom_np(&actions, kFirstInit + 2);
    char name[] = "box";
    char *const argv[] = {name, nullptr};
    char *const env[] = {nullptr};
    pid_t pid = -1;
    errno = posix_spawn(&pid, SANDBOX_INIT, &actions, nullptr, argv, env);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0)
        give_up(SANDBOX_INIT);
    return pid;
}

bool id_map_write(pid_t pid, const char *file, const std::string &content)
{
    const std::string path = "/proc/" + std::to_string(pid) + "/" + file;
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd && write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size());
}

// Root gets all ids of a system, so that owners can differ; anyone else just becomes root inside.
bool ids_map(pid_t pid)
{
    const std::string whole = "0 0 65536";
    if (geteuid() == 0 && id_map_write(pid, "uid_map", whole))
        return id_map_write(pid, "gid_map", whole);
    return id_map_write(pid, "uid_map", "0 " + std::to_string(geteuid()) + " 1") &&
           id_map_write(pid, "setgroups", "deny") &&
           id_map_write(pid, "gid_map", "0 " + std::to_string(getegid()) + " 1");
}

// What a kernel or container says that does not let a process have namespaces and mounts of its own.
bool is_refusal(int error)
{
    return error == EPERM || error == EACCES || error == ENOSYS || error == ENOSPC || error == EUSERS;
}

} // namespace

BoxInit::~BoxInit()
{
    commands_.reset();
    if (pid_ > 0)
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR)
            continue;
}

bool BoxInit::begin(std::string *refusal)
{
    UniqueFd commands;
    UniqueFd reports;
    socket_pair(&commands_, &commands);
    socket_pair(&reports_, &reports);
    pid_ = init_spawn(commands.get(), reports.get());
    commands.reset();
    reports.reset();

    Answer answer = answer_receive();
    if (answer.number >= 0 && !ids_map(pid_)) {
        answer.number = -1;
        answer.step = "user map";
    }
    if (answer.number >= 0)
        answer = command({"mapped"});
    root_ = std::move(answer.descriptor);
    return answer.number >= 0 || refused(answer.step, refusal);
}

bool BoxInit::refused(const std::string &step, std::string *refusal)
{
    if (!is_refusal(errno))
        give_up(step.c_str());
    *refusal = step + ": " + strerror(errno);
    return false;
}

BoxInit::Answer BoxInit::answer_receive()
{
    char text[512];
    char control[CMSG_SPACE(sizeof(int))];
    iovec part{text, sizeof(text) - 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    ssize_t bytes = -1;
    while ((bytes = recvmsg(commands_.get(), &message, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR)
        continue;
    if (bytes <= 0)
        give_up("the box has ended");
    text[bytes] = '\0';

    Answer answer;
    if (const cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr && header->cmsg_type == SCM_RIGHTS) {
        int descriptor = -1;
        memcpy(&descriptor, CMSG_DATA(header), sizeof(descriptor));
        answer.descriptor.reset(descriptor);
    }
    int error = 0;
    char step[256];
    if (sscanf(text, "ok %ld", &answer.number) == 1)
        return answer;
    if (sscanf(text, "error %d %255[^\n]", &error, step) == 2)
        answer.step = step;
    errno = error;
    return answer;
}

BoxInit::Answer BoxInit::command(const std::vector<std::string> &words, const int *streams)
{
    std::string text;
    for (const std::string &word : words)
        text += word + '\0';
    char control[CMSG_SPACE(3 * sizeof(int))] = {};
    iovec part{text.data(), text.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (streams != nullptr) {
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(3 * sizeof(int));
        memcpy(CMSG_DATA(header), streams, 3 * sizeof(int));
    }
    const std::lock_guard lock(one_at_a_time_);
    if (sendmsg(commands_.get(), &message, MSG_NOSIGNAL) < 0)
        give_up("cannot reach the box");
    return answer_receive();
}

bool BoxInit::enter(const std::vector<std::string> &binds)
{
    std::vector<std::string> words{"enter"};
    words.insert(words.end(), binds.begin(), binds.end());
    return command(words).number >= 0;
}

pid_t BoxInit::start(const StartRequest &request)
{
    std::vector<std::string> words{"start", request.path, request.cwd};
    for (const auto *list : {&request.closed, &request.limits, &request.args, &request.env}) {
        words.push_back(std::to_string(list->size()));
        words.insert(words.end(), list->begin(), list->end());
        words.emplace_back(); // becomes the list's end
    }
    return static_cast<pid_t>(command(words, request.streams).number);
}

bool BoxInit::signal(pid_t pid, int number)
{
    return command({"signal", std::to_string(pid), std::to_string(number)}).number >= 0;
}

int BoxInit::open(const std::string &path)
{
    return command({"open", path}).descriptor.release();
}

int BoxInit::socket(int domain, int type, int protocol)
{
    return command({"socket", std::to_string(domain), std::to_string(type), std::to_string(protocol)})
        .descriptor.release();
}
