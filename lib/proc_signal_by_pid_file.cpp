#include <climits>
#include <csignal>

#include "autocleanup/unique.h"
#include "lib/proc.h"
#include "lib/report.h"

// Returns the pid in a file: -1 when it cannot be opened, 0 or below when it holds none. 0 and -1 would reach whole
// groups of processes, so they must never get to kill; nor what a wider number becomes when it is cut.
static pid_t pid_read(const char *pid_file)
{
    const UniqueFile file(fopen(pid_file, "re"));
    if (!file)
        return -1;
    long pid = 0;
    if (fscanf(file.get(), "%ld\n", &pid) != 1 || pid > INT_MAX || pid < 0)
        return 0;
    return static_cast<pid_t>(pid);
}

int NLIBCProcSignalByPidFile(const char *pid_file, int signal)
{
    if (pid_file == nullptr || signal < 0)
        return fail(kErrBadParameter);
    const pid_t pid = pid_read(pid_file);
    if (pid < 1)
        return fail(kErrOpen);
    if (kill(pid, signal) != 0)
        return fail(kErrSystemCall);
    return 0;
}

bool NLIBCProcAliveByPidFile(const char *pid_file)
{
    return NLIBCProcSignalByPidFile(pid_file, 0) == 0;
}
