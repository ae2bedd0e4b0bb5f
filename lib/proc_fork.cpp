#include <cstdio>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/proc_child.h"
#include "lib/proc_wait.h"
#include "lib/report.h"

pid_t NLIBCFork(unsigned flags)
{
    if ((flags & kForkFlushOutput) != 0) {
        fflush(stdout);
        fflush(stderr);
    } else {
        fflush(nullptr);
    }
    const pid_t pid = fork();
    if (pid < 0)
        return fail(kErrFork);
    if (pid == 0) {
        child_prepare(flags, true);
        return 0;
    }
    if ((flags & kForkTwice) == 0)
        return pid;
    if (child_wait(pid) != 0)
        return fail(kErrFork);
    return 1;
}
