/* Calls that reach the whole machine: told, and carried out by the box or not at all. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <limits.h>
#include <linux/sockios.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include "tell.h"

/* The result as the box gives it; without a box the call is refused. */
static long told_only(struct box_ask ask, const char *text)
{
    long result;
    return give(tell(ask, text, NULL, NULL, &result) == TOLD_RETURN ? result : -EPERM);
}

#define TOLD(name, parameters, text, ...)                                                                              \
    WRAPPER int name parameters                                                                                        \
    {                                                                                                                  \
        return (int)told_only(ASK(name __VA_OPT__(, ) __VA_ARGS__), text);                                             \
    }
TOLD(settimeofday, (const struct timeval *time, const struct timezone *zone __attribute__((unused))), NULL,
     time->tv_sec, time->tv_usec)
TOLD(reboot, (int command), NULL, (uint32_t)command)
TOLD(swapon, (const char *path, int flags), path, flags)
TOLD(swapoff, (const char *path), path)

/* The box has a host name of its own. */
WRAPPER int sethostname(const char *name, size_t length)
{
    char text[65] = "";
    long result;
    memcpy(text, name, length < sizeof(text) ? length : sizeof(text) - 1);
    if (tell(ASK(sethostname), text, NULL, NULL, &result) == TOLD_RETURN)
        return (int)give(result);
    return (int)give(RAW(sethostname, name, length));
}

/* Comes back when the box has taken note. */
static long outcome_tell(struct talk *talk, long result)
{
    const int64_t told = result;
    if (talk_send(talk, &told, sizeof(told)) == 0)
        talk_next(talk);
    return result;
}

/* Mounts the folder that stands for the source, its path in the answer. */
static long volume_mount(struct talk *talk, const char *target, unsigned long flags)
{
    char folder[512];
    if (talk->answer.bytes >= sizeof(folder) || talk_receive(talk, folder, talk->answer.bytes) != 0)
        return -EIO;
    folder[talk->answer.bytes] = '\0';
    const long result = RAW(mount, folder, target, NULL, MS_BIND, NULL);
    if (result == 0 && (flags & MS_RDONLY) != 0)
        return RAW(mount, NULL, target, NULL, MS_REMOUNT | MS_BIND | MS_RDONLY, NULL);
    return result;
}

/* A call that changes the mounts: refused unless the box says how. */
static long mounts_change(struct box_ask ask, const char *source, const char *target, const char *type)
{
    const void *const texts[BOX_TEXTS] = {source, target, type};
    struct talk talk;
    long result = -EPERM;
    if (question_begin(&talk, &ask, texts) == 0 && talk_next(&talk) == 0) {
        if (talk.answer.step == BOX_MOUNT)
            result = outcome_tell(&talk, volume_mount(&talk, target, (unsigned long)ask.number[0]));
        else if (talk.answer.step == BOX_TELL)
            result = outcome_tell(&talk, RAW(umount2, source, ask.number[0]));
        else
            result = talk.answer.error != 0 ? -talk.answer.error : talk.answer.result;
    }
    talk_end(&talk);
    return give(result);
}

WRAPPER int mount(const char *source, const char *target, const char *type, unsigned long flags,
                  const void *data __attribute__((unused)))
{
    return (int)mounts_change(ASK(mount, (int64_t)flags), source, target, type);
}

WRAPPER int umount2(const char *target, int flags)
{
    return (int)mounts_change(ASK(umount2, flags), target, NULL, NULL);
}

WRAPPER int umount(const char *target)
{
    return umount2(target, 0);
}

/* The library has no finit_module, so that a program comes by this door. */
WRAPPER long syscall(long number, ...)
{
    long a[6];
    va_list arguments;
    va_start(arguments, number);
    for (int i = 0; i < 6; i++)
        a[i] = va_arg(arguments, long);
    va_end(arguments);
    switch (number) {
    case SYS_finit_module:
        return told_only(ASK(finit_module, a[0]), (const char *)a[1]);
    case SYS_delete_module:
        return told_only(ASK(delete_module, a[1]), (const char *)a[0]);
    case SYS_reboot:
        return reboot((int)a[2]);
    default:
        return give(raw_call(number, a[0], a[1], a[2], a[3], a[4], a[5]));
    }
}

/*
 * Requests on plain files and named pipes are for devices that the box stands for, and those to a network card's driver
 * are, too; others reach what they name, but those of sockets are told when a test asks. What a pipe holds is asked of
 * any.
 */
WRAPPER int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    struct stat status;
    long result = RAW(fstat, fd, &status);
    if (result == 0 && request != FIONREAD &&
        (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode) || request == SIOCETHTOOL ||
         (S_ISSOCK(status.st_mode) && watched(BOX_ioctl)))) {
        if (tell(ASK_AT(argument, ioctl, fd, (int64_t)request), NULL, NULL, NULL, &result) == TOLD_RETURN)
            return (int)give(result);
    }
    return (int)give(RAW(ioctl, fd, request, argument));
}

/* What stands for a device looks like one by its path. */
WRAPPER int stat(const char *path, struct stat *status)
{
    const long result = RAW(newfstatat, AT_FDCWD, path, status, 0);
    if (result == 0 && S_ISREG(status->st_mode) && strncmp(path, "/dev/", strlen("/dev/")) == 0)
        status->st_mode = (status->st_mode & (mode_t)~S_IFMT) | S_IFBLK;
    return (int)give(result);
}

/* A program that cannot be started would leave no trace. */
WRAPPER int execve(const char *path, char *const argv[], char *const environment[])
{
    long ignored;
    const long result = RAW(execve, path, argv, environment);
    tell(ASK(execve, result), path, NULL, NULL, &ignored);
    return (int)give(result);
}

WRAPPER int execv(const char *path, char *const argv[])
{
    return execve(path, argv, environ);
}
