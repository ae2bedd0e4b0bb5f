// Starting programs without a shell, signalling daemons by their pid file, and outliving signals.
#pragma once

#include <cstdio>
#include <sys/types.h>

// Flags of NLIBCFork and NLIBCExecl. Unless said otherwise they act in the child.
enum ForkFlag : unsigned {
    kForkNullStreams = 0x01,  // standard input, output and error at /dev/null
    kForkAccepted = 0x02,     // no effect
    kForkCloseAll = 0x04,     // closelog, then every descriptor from 3 up
    kForkCleanEnv = 0x08,     // environment of PATH alone
    kForkRootDir = 0x10,      // chdir to /
    kForkSession = 0x20,      // setsid
    kForkTwice = 0x40,        // the child forks again and exits; the caller sees 1, not a pid
    kForkPriority = 0x80,     // scheduling priority 0
    kForkFlushOutput = 0x400, // in the parent: flush standard output and error alone, not all streams
    kExecRawStatus = 0x800,   // NLIBCExecl: result is the raw wait status
};
inline constexpr unsigned kExecDetached = 0xbb; // the usual set: quiet, clean environment, own session, root directory

// As fork, with the flags above. Returns 0 in the child and the child's pid in the parent; -1 with 0x9700. With
// kForkTwice the parent gets 1 once the grandchild is on its way, -1 when it is not.
[[nodiscard]] pid_t NLIBCFork(unsigned flags);

// Runs a program and waits. What follows the flags are texts, argv[1] and on, closed by NULL; argv[0] is `path`.
// Returns its exit status, 255 when it cannot be run; -1 with 0x2a00 when a signal ended it or no child could be
// started, with 0x0200 without memory. With kExecRawStatus it is the raw wait status. The program's exit is not lost
// to a handler of SIGCHLD that reaps, to SA_NOCLDWAIT or to an ignored SIGCHLD; all of these are back afterwards.
int NLIBCExecl(const char *path, unsigned flags, ...) __attribute__((sentinel));

// NLIBCExecl with kExecDetached; the first NULL ends the arguments.
int NLIBCExec(const char *path, const char *a1 = nullptr, const char *a2 = nullptr, const char *a3 = nullptr,
              const char *a4 = nullptr);

// Runs a program with a whole argument vector, argv[0] included, its three streams at /dev/null. Returns the exit
// status, or 0 at once without `wait`; -1 as above.
int NLIBCExecv(const char *path, char *const argv[], int wait);

// Runs a program as NLIBCExecv with `wait`, but with its standard output into `fd`. Results as above.
int exec_into(int fd, const char *path, char *const argv[]);

// Starts a program with a pipe to it. `mode` is a set of letters in any order: exactly one of r (read from it) and w
// (write to it); B its standard output and error, E its standard error alone; e keeps close-on-exec on the returned
// end; p has no effect. Streams not connected are at /dev/null. A program that cannot be run ends with 127.
// Returns the stream, for NLIBCPclose; NULL with 0x0d00, 0x8100, 0x0200, 0x9700 or 0x0900.
[[nodiscard]] FILE *NLIBCPopenv(const char *path, const char *mode, char *const argv[]);
// The same with arguments from argv[1] on, closed by NULL.
[[nodiscard]] FILE *NLIBCPopen(const char *path, const char *mode, ...) __attribute__((sentinel));

// Closes such a stream and waits for its program. Returns the raw wait status; -1 with 0x0d00 for NULL, 0xe300 for a
// stream that is not of NLIBCPopen (it stays open) or when waiting fails. A program that somebody else reaped before
// counts as 0.
int NLIBCPclose(FILE *fp);

// Signals the process whose pid stands in a file, as decimal text. Returns 0; -1 with 0x0d00, 0x0900 (no file, or no
// number from 1 to 2147483647 in it) or 0x8100.
int NLIBCProcSignalByPidFile(const char *pid_file, int signal);
// Whether that process lives: signal 0 succeeds.
[[nodiscard]] bool NLIBCProcAliveByPidFile(const char *pid_file);

// From now on a signal that would have ended this process only interrupts a call that waits; the one that raised it
// fails. One that is ignored or has a handler stays as it is, and programs that are started end by it as ever.
void signal_outlive(int number);
