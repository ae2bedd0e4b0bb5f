#include "lib/proc_wait.h"

#include <cerrno>
#include <sys/wait.h>

int child_wait(pid_t pid)
{
    int status = 0;
    pid_t waited;
    do
        waited = waitpid(pid, &status, 0);
    while (waited < 0 && errno == EINTR);
    if (waited < 0 && errno != ECHILD)
        return -1;
    return status;
}

SigchldHold::SigchldHold()
{
    sigset_t sigchld;
    sigemptyset(&sigchld);
    sigaddset(&sigchld, SIGCHLD);
    sigprocmask(SIG_BLOCK, &sigchld, &mask_before_);
    sigaction(SIGCHLD, nullptr, &action_before_);
    const bool ignored = action_before_.sa_handler == SIG_IGN;
    action_changed_ = ignored || (action_before_.sa_flags & SA_NOCLDWAIT) != 0;
    if (!action_changed_)
        return; // a handler stays: taking it away would discard a signal that is pending for it
    struct sigaction action = action_before_;
    action.sa_flags &= ~SA_NOCLDWAIT;
    if (ignored)
        action.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &action, nullptr);
}

SigchldHold::~SigchldHold()
{
    if (action_changed_)
        sigaction(SIGCHLD, &action_before_, nullptr);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
}
