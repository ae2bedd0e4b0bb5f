/* Calls that a test may watch, answer or let fail. Unwatched ones cost a branch. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "tell.h"

/* The result of a call that a test may watch: what the test answers, else that of `real`, as a system call has it. */
#define WATCHED_AT(address, real, name, first, second, ...)                                                            \
    ({                                                                                                                 \
        long watched_result;                                                                                           \
        if (!watched(BOX_##name) ||                                                                                    \
            tell(ASK_AT(address, name, __VA_ARGS__), first, second, NULL, &watched_result) != TOLD_RETURN)             \
            watched_result = real;                                                                                     \
        give(watched_result);                                                                                          \
    })
#define WATCHED(real, name, first, second, ...) WATCHED_AT(NULL, real, name, first, second, __VA_ARGS__)

/* The library's own, for calls with more behind them than one system call. */
#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

static long of_library(long result)
{
    return result == -1 ? -errno : result;
}

static int open_at(int folder, const char *path, int flags, va_list arguments)
{
    const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    return (int)WATCHED(RAW(openat, folder, path, flags, mode), open, path, NULL, flags);
}

WRAPPER int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int fd = open_at(AT_FDCWD, path, flags, arguments);
    va_end(arguments);
    return fd;
}

WRAPPER int openat(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int fd = open_at(folder, path, flags, arguments);
    va_end(arguments);
    return fd;
}

WRAPPER FILE *fopen(const char *restrict path, const char *restrict mode)
{
    const long file = WATCHED((long)NEXT(fopen)(path, mode), fopen, path, mode);
    return file > 0 ? (FILE *)file : NULL;
}

/* Other names of these, for large files and in fortified code. */
WRAPPER int open64(const char *path, int flags, ...) __attribute__((alias("open")));
WRAPPER int openat64(int folder, const char *path, int flags, ...) __attribute__((alias("openat")));
WRAPPER int __open_2(const char *path, int flags, ...) __attribute__((nonnull, alias("open")));
WRAPPER int __open64_2(const char *path, int flags, ...) __attribute__((nonnull, alias("open")));
WRAPPER FILE *fopen64(const char *restrict path, const char *restrict mode) __attribute__((alias("fopen")));

#define WATCH(Type, name, parameters, real, ...)                                                                       \
    WRAPPER Type name parameters                                                                                       \
    {                                                                                                                  \
        return (Type)WATCHED(real, name, __VA_ARGS__);                                                                 \
    }
WATCH(pid_t, fork, (void), of_library(NEXT(fork)()), NULL, NULL)
WATCH(ssize_t, read, (int fd, void *bytes, size_t count), RAW(read, fd, bytes, count), NULL, NULL, fd, (int64_t)count)
WATCH(ssize_t, write, (int fd, const void *bytes, size_t count), RAW(write, fd, bytes, count), NULL, NULL, fd,
      (int64_t)count)
WATCH(int, fsync, (int fd), RAW(fsync, fd), NULL, NULL, fd)
WATCH(int, flock, (int fd, int operation), RAW(flock, fd, operation), NULL, NULL, fd, operation)
WATCH(int, rename, (const char *from, const char *to), RAW(rename, from, to), from, to)
WATCH(int, unlink, (const char *path), RAW(unlink, path), path, NULL)
WATCH(int, mkdir, (const char *path, mode_t mode), RAW(mkdir, path, mode), path, NULL, mode)
WATCH(int, chmod, (const char *path, mode_t mode), RAW(chmod, path, mode), path, NULL, mode)
WATCH(int, mknod, (const char *path, mode_t mode, dev_t device), RAW(mknod, path, mode, device), path, NULL, mode,
      (int64_t)device)
WATCH(int, kill, (pid_t pid, int number), RAW(kill, pid, number), NULL, NULL, pid, number)
WATCH(int, socket, (int domain, int type, int protocol), RAW(socket, domain, type, protocol), NULL, NULL, domain, type,
      protocol)
WATCH(int, bind, (int fd, const struct sockaddr *address, socklen_t length), RAW(bind, fd, address, length), NULL, NULL,
      fd)
WATCH(int, semget, (key_t key, int count, int flags), RAW(semget, key, count, flags), NULL, NULL, (uint32_t)key, count,
      flags)
WATCH(int, semop, (int id, struct sembuf *operations, size_t count), RAW(semop, id, operations, count), NULL, NULL, id)

WRAPPER int sysinfo(struct sysinfo *info)
{
    return (int)WATCHED_AT(info, RAW(sysinfo, info), sysinfo, NULL, NULL);
}

WRAPPER int statvfs(const char *path, struct statvfs *status)
{
    return (int)WATCHED_AT(status, of_library(NEXT(statvfs)(path, status)), statvfs, path, NULL);
}
