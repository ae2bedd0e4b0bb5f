// Looking at this process and at children, for tests in process.
#pragma once

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// The descriptors that are open, but for the one that looks.
inline std::set<int> open_descriptors()
{
    std::set<int> open;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.insert(std::stoi(entry.path().filename()));
    std::erase_if(open, [](int fd) { return access(("/proc/self/fd/" + std::to_string(fd)).c_str(), F_OK) != 0; });
    return open;
}

// A test that fails when it leaves a descriptor open, or a child to wait for.
class TidyTest : public testing::Test
{
  protected:
    void TearDown() override
    {
        EXPECT_EQ(open_descriptors(), before_);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }

  private:
    std::set<int> before_ = open_descriptors();
};

// Waits for a child. Returns its exit status; -1 when a signal ended it.
inline int exit_status(pid_t pid)
{
    int status = -1;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A handler as daemons have it.
inline void child_reap(int /*number*/)
{
    const int saved_errno = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0)
        continue;
    errno = saved_errno;
}

// Holds an action for SIGCHLD; at scope exit checks that nobody changed it, nor the signal mask.
class SigchldAction
{
  public:
    SigchldAction(void (*handler)(int), int flags)
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(SIGCHLD, &action, &before_);
        sigaction(SIGCHLD, nullptr, &set_);
        sigprocmask(SIG_SETMASK, nullptr, &mask_);
    }
    SigchldAction(const SigchldAction &) = delete;
    SigchldAction &operator=(const SigchldAction &) = delete;
    ~SigchldAction()
    {
        struct sigaction now = {};
        sigaction(SIGCHLD, &before_, &now);
        EXPECT_EQ(now.sa_handler, set_.sa_handler);
        EXPECT_EQ(now.sa_flags, set_.sa_flags);
        sigset_t mask;
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        for (int number = 1; number < NSIG; number++)
            EXPECT_EQ(sigismember(&mask, number), sigismember(&mask_, number)) << number;
    }

  private:
    struct sigaction before_ = {}, set_ = {};
    sigset_t mask_{};
};
