#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "lib/report.h"

// In this order; that SIGKILL cannot be caught is no fault.
static constexpr int kSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGKILL, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2};

static int signal_pipe[2] = {-1, -1};
static volatile sig_atomic_t is_ending = 0;

namespace
{

bool ends_daemon(int signal)
{
    return signal == SIGINT || signal == SIGKILL || signal == SIGTERM;
}

// A signal may come inside malloc or syslog, so it is only noted, and served where the daemon waits.
void signal_note(int signal)
{
    const int saved_errno = errno;
    const auto byte = static_cast<unsigned char>(signal);
    if (ends_daemon(signal))
        is_ending = 1;
    if (is_ending != 0)
        alarm(1); // for a sleep that begins only now
    if (write(signal_pipe[1], &byte, 1) != 1)
        errno = 0; // the pipe is full of signals
    errno = saved_errno;
}

} // namespace

void fhost_signals_catch()
{
    UniqueFd before[] = {UniqueFd(signal_pipe[0]), UniqueFd(signal_pipe[1])};
    struct sigaction action = {};
    action.sa_handler = signal_note;
    action.sa_flags = SA_RESTART;
    if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        signal_pipe[0] = signal_pipe[1] = -1;
        action.sa_handler = SIG_DFL; // with nobody to serve them, signals do what they do by themselves
    }
    for (const int number : kSignals)
        sigaction(number, &action, nullptr);
}

int fhost_signal_fd()
{
    return signal_pipe[0];
}

void fhost_signals_serve()
{
    unsigned char number;
    while (read(signal_pipe[0], &number, 1) == 1)
        FHOSTDExit(number);
}

bool fhost_is_ending()
{
    return is_ending != 0;
}

void FHOSTDExit(int signal)
{
    fprintf(stderr, "%s:%d(%s) exit on signal[%d]\n", __FILE_NAME__, __LINE__, __func__, signal);
    NORV_LOG_CALL(LOG_ERR, "(%s) exit on signal[%d]\n", __func__, signal);
    if (!ends_daemon(signal))
        return;
    unlink(kFhostPidPath);
    fhost_server_close();
    FHOSTProcessKeyFree();
    exit(0);
}
