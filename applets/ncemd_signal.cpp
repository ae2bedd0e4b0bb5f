#include "applets/ncemd.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "external/hw_control.h"
#include "lib/globals.h"
#include "lib/report.h"

namespace
{

// What the handlers met since the last report. A handler must not log: it may have interrupted the log itself.
volatile sig_atomic_t met_signal = 0;
volatile sig_atomic_t wait_errno = 0;

void on_sigterm(int signal)
{
    met_signal = signal;
    if (signal == SIGTERM)
        gblNcemdStop = 1;
}

// One signal may stand for several children: while NLIBCExecl waits it is blocked and SA_NOCLDWAIT is off.
void on_sigchld(int /*signal*/)
{
    const int saved_errno = errno;
    pid_t child = waitpid(-1, nullptr, WNOHANG);
    if (child < 0)
        wait_errno = errno;
    while (child > 0)
        child = waitpid(-1, nullptr, WNOHANG);
    errno = saved_errno;
}

} // namespace

int ncemd_sigterm_init()
{
    struct sigaction action = {};
    action.sa_handler = on_sigterm;
    if (sigemptyset(&action.sa_mask) != 0) {
        NORV_LOG(LOG_ERR, "Fail to empty signal set, Error=%m");
        return -1;
    }
    if (sigaction(SIGTERM, &action, nullptr) != 0) {
        NORV_LOG(LOG_ERR, "Fail to set signal, Error=%m");
        return -1;
    }
    return 0;
}

void ncemd_sigchld_init()
{
    struct sigaction action = {};
    action.sa_handler = on_sigchld;
    action.sa_flags = SA_NOCLDWAIT;
    sigemptyset(&action.sa_mask);
    sigaction(SIGCHLD, &action, nullptr);
}

void ncemd_signals_report()
{
    if (const int signal = met_signal; signal != 0) {
        met_signal = 0;
        if (signal == SIGTERM)
            NORV_LOG(LOG_ERR, "Receive SIGTERM from burnintest.");
        else
            NORV_LOG(LOG_ERR, "Unknown Signal from burnintest");
    }
    if (wait_errno != 0) {
        errno = wait_errno;
        wait_errno = 0;
        NORV_LOG(LOG_ERR, "waitpid failed, errno=%m");
    }
}

int ncemd_power_action_start(int mode)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        NORVSysPowerAction(mode);
        _exit(0);
    }
    return child < 0 ? -1 : 0;
}
