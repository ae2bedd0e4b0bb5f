#include "tests/support/private_root.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "autocleanup/unique.h"
#include "tests/support/in_child.h"

static bool text_put(const char *path, const std::string &text)
{
    const UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
    return fd && write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A user that may not change its root may do so in a user namespace.
bool PrivateRoot::enter(const std::string &path)
{
    if (chroot(path.c_str()) == 0)
        return chdir("/") == 0;
    const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    return unshare(CLONE_NEWUSER) == 0 && text_put("/proc/self/uid_map", uid + " " + uid + " 1") &&
           text_put("/proc/self/setgroups", "deny") && text_put("/proc/self/gid_map", gid + " " + gid + " 1") &&
           chroot(path.c_str()) == 0 && chdir("/") == 0;
}

PrivateRoot::PrivateRoot() : log_socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    require();
    for (const char *folder : {"dev", "etc", "etc.defaults", "tmp"})
        std::filesystem::create_directories(dir_.path(folder));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    dir_.path("dev/log").copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(log_socket_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
}

PrivateRoot::~PrivateRoot()
{
    close(log_socket_);
}

void PrivateRoot::require()
{
    static const bool is_allowed = in_child([] { return enter("/"); }) != 0;
    if (!is_allowed)
        not_run("the kernel gives no root of its own to this user");
}

void PrivateRoot::write(std::string_view path, std::string_view text) const
{
    dir_.write(path.substr(1), text);
}

std::string PrivateRoot::read(std::string_view path) const
{
    return dir_.read(path.substr(1));
}

int PrivateRoot::run(const std::function<int()> &body) const
{
    const auto enter_and_run = [&] {
        if (enter(dir_.path()))
            return body();
        ADD_FAILURE() << "no private root";
        return -1;
    };
    return in_child(enter_and_run, [this](pid_t child) { // the kernel holds some ten lines, and who logs one more waits
        const UniqueFd ended(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
        EXPECT_TRUE(ended);
        pollfd watched[] = {{.fd = ended.get(), .events = POLLIN, .revents = 0},
                            {.fd = log_socket_, .events = POLLIN, .revents = 0}};
        while (ended && watched[0].revents == 0 && TEMP_FAILURE_RETRY(poll(watched, std::size(watched), -1)) > 0)
            log_take();
    });
}

void PrivateRoot::log_take() const
{
    char line[8192] = {};
    for (ssize_t bytes; (bytes = recv(log_socket_, line, sizeof(line) - 1, 0)) >= 0;) {
        line[bytes] = '\0';
        int priority = 0;
        int rest = 0;
        char unit[64];
        if (sscanf(line, "<%d>%*15c %*[^:]: %63[^:]:%*d%n", &priority, unit, &rest) == 2)
            lines_ += std::to_string(priority & 7) + " " + unit + ":#";
        lines_ += std::string(line + rest) + "\n";
    }
}

std::string PrivateRoot::log() const
{
    log_take();
    return std::exchange(lines_, {});
}
