// Starting a program the cheap way: the child borrows the caller's memory, as after vfork, until it is the program.
#pragma once

#include <csignal>
#include <cstdarg>
#include <sys/types.h>

#include "autocleanup/unique.h"
#include "lib/popen_list.h"

struct SpawnPlan {
    const char *path;
    char *const *argv;
    unsigned flags = 0;             // ForkFlag bits; kForkTwice and kForkFlushOutput have no effect here
    int exit_unstarted = 255;       // the child's exit status when the program cannot be run
    const sigset_t *mask = nullptr; // the program's signal mask; NULL: that of the caller

    // With streams in `connected` (bit n: descriptor n), `end` becomes those and the others go to /dev/null.
    unsigned connected = 0;
    int end = -1;                             // close-on-exec, unless it is one of those streams already
    const PopenEntry *closing_list = nullptr; // open pipes that the program does not get
};

// Returns the child's pid, once it runs its program or has given up; -1 with 0x9700.
[[nodiscard]] pid_t spawn(const SpawnPlan &plan);

// The argument vector of a variadic call: `path` and the texts in `rest` up to the first NULL. It borrows them.
// Empty with 0x0200.
using UniqueArguments = UniqueBlock<char *>;
[[nodiscard]] UniqueArguments arguments_collect(const char *path, va_list rest);
