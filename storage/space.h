// What storage actions share: the one way to run an outside command, and the locks that keep actions of several
// processes apart.
#pragma once

#include <cstdio>

// Runs a program and waits. The arguments, argv[1] and on, are texts closed by NULL; an empty text is an argument of
// its own. What it writes to standard error goes to the log, its standard output nowhere.
// Returns its exit status, 127 when it cannot be run; -1 when a signal ended it or it could not be started.
int space_execl(const char *program, ...) __attribute__((sentinel));
// The same with a whole argument vector, argv[0] included. Returns the raw wait status.
int space_run(char *const argv[]);

// The words of an argument vector with a blank between each two, cut to the room; for the log.
void space_command_text(char *const argv[], char *text, size_t size);

// Reads `output` to its end and logs it with the command that wrote it, at informational level: newlines as blanks, up
// to 2047 bytes of it.
void space_error_log(const char *command, FILE *output);

// What is locked. Each has a file of its own in /run/space/lock.
enum SpaceLock : int {
    kSpaceLockBatch = 0,
    kSpaceLockLvmGroup = 1,
    kSpaceLockService = 2,
    kSpaceLockSequence = 3,
    kSpaceLockRepository = 4,
    kSpaceLockVirtualDisk = 5,
    kSpaceLockIscsi = 6,
    kSpaceLockDataScrubbing = 7,
};
inline constexpr int kSpaceLockForever = -1; // timeouts
inline constexpr int kSpaceLockNoWait = -2;

// Takes a lock. `timeout`: seconds, or one of the two words above. A holder that dies gives it back.
// Returns the semaphore, for space_unlock; -1 with 0x0d00, 0x0900, 0x8100, or 0x2e00 when it was not obtained in time.
[[nodiscard]] int space_lock(int id, int timeout);
// Returns 0; -1 with 0x0500.
int space_unlock(int semaphore);
