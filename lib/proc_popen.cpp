#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "lib/popen_list.h"
#include "lib/proc.h"
#include "lib/proc_spawn.h"
#include "lib/report.h"

static constexpr int kExitUnstarted = 127;

// The bit of a mode letter is its place in this text.
static constexpr char kModeLetters[] = "rwBEep";
enum ModeBit : unsigned {
    kModeRead = 1 << 0,
    kModeWrite = 1 << 1,
    kModeBoth = 1 << 2,
    kModeError = 1 << 3,
    kModeCloseOnExec = 1 << 4,
};

// Returns the set of ModeBits; 0 for a mode that is none.
static unsigned mode_parse(const char *mode)
{
    unsigned bits = 0;
    for (; *mode != '\0'; mode++) {
        const char *letter = strchr(kModeLetters, *mode);
        if (letter == nullptr)
            return 0;
        bits |= 1U << (letter - kModeLetters);
    }
    const unsigned way = bits & (kModeRead | kModeWrite);
    return way == kModeRead || way == kModeWrite ? bits : 0;
}

// The child's streams that the pipe takes the place of: bit n is descriptor n.
static unsigned connected_streams(unsigned mode)
{
    if ((mode & kModeWrite) != 0)
        return 1U << STDIN_FILENO;
    if ((mode & kModeBoth) != 0)
        return 1U << STDOUT_FILENO | 1U << STDERR_FILENO;
    return 1U << ((mode & kModeError) != 0 ? STDERR_FILENO : STDOUT_FILENO);
}

FILE *NLIBCPopenv(const char *path, const char *mode, char *const argv[])
{
    const unsigned bits = path != nullptr && mode != nullptr && argv != nullptr ? mode_parse(mode) : 0;
    if (bits == 0)
        return fail(kErrBadParameter);
    const bool writes = (bits & kModeWrite) != 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return fail(kErrSystemCall);
    UniqueFd ours(ends[writes]), theirs(ends[!writes]);
    UniqueBlock<PopenEntry> entry(static_cast<PopenEntry *>(malloc(sizeof(PopenEntry))));
    if (!entry)
        return fail(kErrOutOfMemory);
    UniqueFile stream(fdopen(ours.get(), writes ? "w" : "r")); // before the child, whom a failure would leave behind
    if (!stream)
        return fail(kErrOpen);
    const int fd = ours.release();

    SpawnPlan plan = {.path = path, .argv = argv, .exit_unstarted = kExitUnstarted};
    plan.connected = connected_streams(bits);
    plan.end = theirs.get();
    const bool in_place = plan.end <= STDERR_FILENO && (plan.connected & 1U << plan.end) != 0;
    if (in_place && fcntl(plan.end, F_SETFD, 0) != 0)
        NORV_LOG(LOG_ERR, "fcntl failed, %m");

    popen_list_take();
    plan.closing_list = popen_list;
    const pid_t pid = spawn(plan);
    if (pid > 0) {
        *entry.get() = {stream.get(), pid, popen_list};
        popen_list = entry.release();
    }
    popen_list_give();
    if (pid < 0)
        return nullptr; // spawn has noted why
    if ((bits & kModeCloseOnExec) == 0)
        fcntl(fd, F_SETFD, 0);
    return stream.release();
}

FILE *NLIBCPopen(const char *path, const char *mode, ...)
{
    va_list rest;
    va_start(rest, mode);
    const UniqueArguments arguments = arguments_collect(path, rest);
    va_end(rest);
    return arguments ? NLIBCPopenv(path, mode, arguments.get()) : nullptr;
}
