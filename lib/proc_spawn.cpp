#include "lib/proc_spawn.h"

#include <cerrno>
#include <sanitizer/asan_interface.h>
#include <sched.h>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/proc_child.h"
#include "lib/report.h"

// The child touches some 2 KiB of it; the rest is for libraries that stand in for the system's calls.
static constexpr size_t kStackBytes = 64 * 1024;

struct SpawnStart {
    const SpawnPlan &plan;
    char *const *environment;
    sigset_t mask;
};

// A handler must not run here: what it changes would be the caller's.
static void handlers_reset()
{
    for (int number = 1; number < NSIG; number++) {
        struct sigaction action;
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = SIG_DFL;
        sigaction(number, &action, nullptr);
    }
}

static void pipe_connect(const SpawnPlan &plan)
{
    for (int stream = 0; stream <= STDERR_FILENO; stream++)
        if ((plan.connected & 1U << stream) != 0)
            dup2(plan.end, stream);
    streams_to_null(~plan.connected);
    for (const PopenEntry *entry = plan.closing_list; entry != nullptr; entry = entry->next)
        if (fileno(entry->stream) > STDERR_FILENO)
            close(fileno(entry->stream));
}

// Runs with all signals blocked and makes calls alone that are safe after vfork.
static int child_run(void *argument)
{
    const SpawnStart &start = *static_cast<const SpawnStart *>(argument);
    const SpawnPlan &plan = start.plan;
    handlers_reset();
    child_prepare(plan.flags, false);
    if (plan.connected != 0)
        pipe_connect(plan);
    sigprocmask(SIG_SETMASK, &start.mask, nullptr);
    execve(plan.path, plan.argv, start.environment);
    _exit(plan.exit_unstarted);
}

static pid_t child_start(SpawnStart *start)
{
    alignas(16) char stack[kStackBytes];
    const pid_t pid = clone(child_run, stack + sizeof(stack), CLONE_VM | CLONE_VFORK | SIGCHLD, start);
    ASAN_UNPOISON_MEMORY_REGION(stack, sizeof(stack)); // its frames never returned
    return pid;
}

pid_t spawn(const SpawnPlan &plan)
{
    char *const path_alone[] = {environment_path(), nullptr};
    SpawnStart start = {plan, (plan.flags & kForkCleanEnv) != 0 ? path_alone : environ, {}};
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    start.mask = plan.mask != nullptr ? *plan.mask : before;
    const int saved_errno = errno;
    const pid_t pid = child_start(&start);
    if (pid > 0)
        errno = saved_errno; // the child's failures are not the caller's
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (pid < 0)
        return fail(kErrFork);
    return pid;
}

UniqueArguments arguments_collect(const char *path, va_list rest)
{
    size_t texts = 1;
    va_list counting;
    va_copy(counting, rest);
    while (va_arg(counting, const char *) != nullptr)
        texts++;
    va_end(counting);
    UniqueArguments arguments(static_cast<char **>(malloc((texts + 1) * sizeof(char *))));
    if (!arguments) {
        fail(kErrOutOfMemory);
        return arguments;
    }
    arguments.get()[0] = const_cast<char *>(path); // exec's type for texts that it leaves alone
    for (size_t text = 1; text <= texts; text++)
        arguments.get()[text] = va_arg(rest, char *);
    return arguments;
}
