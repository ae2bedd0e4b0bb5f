#include "lib/proc_child.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/report.h"

// A limit may be 2^30 in a container, or absent. Only a kernel without close_range and without /proc gets this far.
static constexpr long kMaxCloseLoop = 1L << 20;

void streams_to_null(unsigned streams)
{
    const int null = open("/dev/null", O_RDWR); // inherited: it may be one of the three already
    if (null < 0)
        return;
    for (int stream = 0; stream <= STDERR_FILENO; stream++)
        if ((streams & 1U << stream) != 0)
            dup2(null, stream);
    if (null > STDERR_FILENO)
        close(null);
}

char *environment_path()
{
    for (char **entry = environ; entry != nullptr && *entry != nullptr; entry++)
        if (strncmp(*entry, "PATH=", 5) == 0)
            return *entry;
    return nullptr;
}

static void priority_reset()
{
    setpriority(PRIO_PROCESS, 0, 0);
}

static void environment_clean()
{
    char *path = environment_path();
    clearenv();
    if (path != nullptr)
        putenv(path);
}

static void all_streams_to_null()
{
    streams_to_null(0b111);
}

// Closes what /proc lists, without the heap: the child may be running in its caller's memory.
static bool listed_descriptors_close()
{
    const int dir = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0)
        return false;
    alignas(dirent64) char entries[1024];
    ssize_t size;
    while ((size = getdents64(dir, entries, sizeof(entries))) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            const int fd = atoi(entry->d_name); // "." and ".." read as 0
            if (fd > STDERR_FILENO && fd != dir)
                close(fd);
            at += entry->d_reclen;
        }
    }
    close(dir);
    return size == 0;
}

static void descriptors_close()
{
    if (close_range(STDERR_FILENO + 1, ~0U, 0) == 0 || listed_descriptors_close())
        return;
    const long limit = sysconf(_SC_OPEN_MAX);
    const long end = limit < 0 ? kMaxCloseLoop : std::min(limit, kMaxCloseLoop);
    for (int fd = STDERR_FILENO + 1; fd < end; fd++)
        close(fd);
}

static void fork_again()
{
    const pid_t pid = fork();
    if (pid < 0)
        NORV_LOG(LOG_ERR, "Failed to fork(). errno=[%d/%m]", errno);
    if (pid != 0)
        _exit(pid < 0 ? 255 : 0);
    usleep(1);
}

static void session_new()
{
    setsid();
}

static void directory_to_root()
{
    [[maybe_unused]] const int entered = chdir("/"); // it cannot fail but in a broken root, and the program still runs
}

struct ChildStep {
    unsigned flag;
    bool in_borrowed_memory; // harmless to the memory it runs in
    void (*act)();
};

// The order of the rows is the order of the effects.
static constexpr ChildStep kChildSteps[] = {
    {kForkPriority, true, priority_reset},
    {kForkCleanEnv, false, environment_clean},
    {kForkNullStreams, true, all_streams_to_null},
    {kForkCloseAll, false, closelog},
    {kForkCloseAll, true, descriptors_close},
    {kForkTwice, false, fork_again},
    {kForkSession, true, session_new},
    {kForkRootDir, true, directory_to_root},
};

void child_prepare(unsigned flags, bool own_memory)
{
    for (const ChildStep &step : kChildSteps)
        if ((flags & step.flag) != 0 && (own_memory || step.in_borrowed_memory))
            step.act();
}
