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

static int open_at(int folder, const char *path, int flags, mode_t mode)
{
    return (int)WATCHED(RAW(openat, folder, path, flags, mode), open, path, NULL, flags);
}

static bool takes_mode(int flags)
{
    return (flags & (O_CREAT | __O_TMPFILE)) != 0;
}

#define MODE_OF(flags)                                                                                                 \
    mode_t mode = 0;                                                                                                   \
    if (takes_mode(flags)) {                                                                                           \
        va_list arguments;                                                                                             \
        va_start(arguments, flags);                                                                                    \
        mode = va_arg(arguments, mode_t);                                                                              \
        va_end(arguments);                                                                                             \
    }

WRAPPER int open(const char *path, int flags, ...)
{
    MODE_OF(flags)
    return open_at(AT_FDCWD, path, flags, mode);
}

WRAPPER int openat(int folder, const char *path, int flags, ...)
{
    MODE_OF(flags)
    return open_at(folder, path, flags, mode);
}

WRAPPER int creat(const char *path, mode_t mode)
{
    return open_at(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

WRAPPER int open64(const char *path, int flags, ...) __attribute__((alias("open")));
WRAPPER int openat64(int folder, const char *path, int flags, ...) __attribute__((alias("openat")));

/* The forms that fortified code calls. */
WRAPPER int __open_2(const char *path, int flags);
int __open_2(const char *path, int flags)
{
    return open_at(AT_FDCWD, path, flags, 0);
}

WRAPPER int __open64_2(const char *path, int flags) __attribute__((alias("__open_2")));

WRAPPER ssize_t __read_chk(int fd, void *bytes, size_t count, size_t room);
ssize_t __read_chk(int fd, void *bytes, size_t count, size_t room)
{
    if (room < count)
        __builtin_trap();
    return read(fd, bytes, count);
}

/* The library's own, for calls with more behind them than one system call. */
#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

WRAPPER FILE *fopen(const char *restrict path, const char *restrict mode)
{
    long result;
    if (watched(BOX_fopen) && tell(ASK(fopen), path, mode, NULL, &result) == TOLD_RETURN) {
        give(result);
        return NULL;
    }
    return NEXT(fopen)(path, mode);
}

WRAPPER FILE *fopen64(const char *restrict path, const char *restrict mode) __attribute__((alias("fopen")));

WRAPPER pid_t fork(void)
{
    long result;
    if (watched(BOX_fork) && tell(ASK(fork), NULL, NULL, NULL, &result) == TOLD_RETURN)
        return (pid_t)give(result);
    return NEXT(fork)();
}

WRAPPER ssize_t read(int fd, void *bytes, size_t count)
{
    return WATCHED(RAW(read, fd, bytes, count), read, NULL, NULL, fd, (int64_t)count);
}

WRAPPER ssize_t write(int fd, const void *bytes, size_t count)
{
    return WATCHED(RAW(write, fd, bytes, count), write, NULL, NULL, fd, (int64_t)count);
}

WRAPPER int fsync(int fd)
{
    return (int)WATCHED(RAW(fsync, fd), fsync, NULL, NULL, fd);
}

WRAPPER int flock(int fd, int operation)
{
    return (int)WATCHED(RAW(flock, fd, operation), flock, NULL, NULL, fd, operation);
}

WRAPPER int rename(const char *from, const char *to)
{
    return (int)WATCHED(RAW(rename, from, to), rename, from, to);
}

WRAPPER int unlink(const char *path)
{
    return (int)WATCHED(RAW(unlink, path), unlink, path, NULL);
}

WRAPPER int mkdir(const char *path, mode_t mode)
{
    return (int)WATCHED(RAW(mkdir, path, mode), mkdir, path, NULL, mode);
}

WRAPPER int chmod(const char *path, mode_t mode)
{
    return (int)WATCHED(RAW(chmod, path, mode), chmod, path, NULL, mode);
}

WRAPPER int mknod(const char *path, mode_t mode, dev_t device)
{
    return (int)WATCHED(RAW(mknod, path, mode, device), mknod, path, NULL, mode, (int64_t)device);
}

WRAPPER int kill(pid_t pid, int number)
{
    return (int)WATCHED(RAW(kill, pid, number), kill, NULL, NULL, pid, number);
}

WRAPPER int socket(int domain, int type, int protocol)
{
    return (int)WATCHED(RAW(socket, domain, type, protocol), socket, NULL, NULL, domain, type, protocol);
}

WRAPPER int bind(int fd, const struct sockaddr *address, socklen_t length)
{
    return (int)WATCHED(RAW(bind, fd, address, length), bind, NULL, NULL, fd);
}

WRAPPER int semget(key_t key, int count, int flags)
{
    return (int)WATCHED(RAW(semget, key, count, flags), semget, NULL, NULL, (uint32_t)key, count, flags);
}

WRAPPER int semop(int id, struct sembuf *operations, size_t count)
{
    return (int)WATCHED(RAW(semop, id, operations, count), semop, NULL, NULL, id);
}

WRAPPER int sysinfo(struct sysinfo *info)
{
    struct box_ask ask = ASK(sysinfo);
    ask.address = (uint64_t)(uintptr_t)info;
    long result;
    if (watched(BOX_sysinfo) && tell(ask, NULL, NULL, NULL, &result) == TOLD_RETURN)
        return (int)give(result);
    return (int)give(RAW(sysinfo, info));
}

WRAPPER int statvfs(const char *path, struct statvfs *status)
{
    struct box_ask ask = ASK(statvfs);
    ask.address = (uint64_t)(uintptr_t)status;
    long result;
    if (watched(BOX_statvfs) && tell(ask, path, NULL, NULL, &result) == TOLD_RETURN)
        return (int)give(result);
    return NEXT(statvfs)(path, status);
}
