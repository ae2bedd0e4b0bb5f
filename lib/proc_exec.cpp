#include <cstdarg>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/proc_spawn.h"
#include "lib/proc_wait.h"
#include "lib/report.h"

static constexpr int kExitUnstarted = 255;

// The one at the end of two forks is nobody's to wait for.
static int program_release(const char *path, char *const argv[], unsigned flags)
{
    const pid_t pid = NLIBCFork(flags | kForkFlushOutput);
    if (pid == 0) {
        execv(path, argv);
        _exit(kExitUnstarted);
    }
    if (pid < 0)
        return fail(kErrChild);
    return 0;
}

// Starts what is planned and waits for it.
static int plan_run(SpawnPlan plan)
{
    fflush(stdout);
    fflush(stderr);
    const SigchldHold hold;
    plan.exit_unstarted = kExitUnstarted;
    plan.mask = &hold.mask_before();
    const pid_t pid = spawn(plan);
    const int status = pid > 0 ? child_wait(pid) : -1;
    if (status >= 0 && (plan.flags & kExecRawStatus) != 0)
        return status;
    if (status < 0 || !WIFEXITED(status))
        return fail(kErrChild);
    return WEXITSTATUS(status);
}

static int program_run(const char *path, char *const argv[], unsigned flags)
{
    if ((flags & kForkTwice) != 0)
        return program_release(path, argv, flags);
    return plan_run({.path = path, .argv = argv, .flags = flags});
}

int NLIBCExecl(const char *path, unsigned flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const UniqueArguments arguments = arguments_collect(path, rest);
    va_end(rest);
    return arguments ? program_run(path, arguments.get(), flags) : -1;
}

int NLIBCExec(const char *path, const char *a1, const char *a2, const char *a3, const char *a4)
{
    return NLIBCExecl(path, kExecDetached, a1, a2, a3, a4, nullptr);
}

int NLIBCExecv(const char *path, char *const argv[], int wait)
{
    return program_run(path, argv, kForkNullStreams | (wait != 0 ? 0U : kForkTwice));
}

int exec_into(int fd, const char *path, char *const argv[])
{
    return plan_run({.path = path, .argv = argv, .connected = 1U << STDOUT_FILENO, .end = fd});
}
