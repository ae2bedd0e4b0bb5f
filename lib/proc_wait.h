// Waiting for a child without losing its exit to somebody else.
#pragma once

#include <csignal>
#include <sys/types.h>

// Waits for one child. Returns its raw wait status, 0 when it is gone already (ECHILD); -1 when waiting fails.
[[nodiscard]] int child_wait(pid_t pid);

// Keeps a child's exit for its waiter, taken before the child is started and given back at scope exit: SIGCHLD is
// blocked, so that no handler reaps the child, and neither ignored nor under SA_NOCLDWAIT, so that the kernel does not.
class SigchldHold
{
  public:
    SigchldHold();
    SigchldHold(const SigchldHold &) = delete;
    SigchldHold &operator=(const SigchldHold &) = delete;
    ~SigchldHold();

    [[nodiscard]] const sigset_t &mask_before() const { return mask_before_; } // what a started program should have

  private:
    sigset_t mask_before_;
    struct sigaction action_before_;
    bool action_changed_;
};
