/*
 * Sleeps are told with the time asked for. Compressed ones take less, and the clocks of this process then tell the time
 * they would have taken.
 */
#define _GNU_SOURCE
#include <poll.h>
#include <stdint.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include "tell.h"

#define SECOND_NS 1000000000LL
#define SECOND_US 1000000LL

static int64_t skipped_ns; /* by which this process's clocks run ahead */

static int64_t to_ns(const struct timespec *time)
{
    return time->tv_sec * SECOND_NS + time->tv_nsec;
}

static struct timespec from_ns(int64_t ns)
{
    return (struct timespec){.tv_sec = ns / SECOND_NS, .tv_nsec = ns % SECOND_NS};
}

static void skip(int64_t ns)
{
    __atomic_add_fetch(&skipped_ns, ns, __ATOMIC_RELAXED);
}

static int64_t skipped(void)
{
    return __atomic_load_n(&skipped_ns, __ATOMIC_RELAXED);
}

/* Sleeps; *left_ns receives what is left of the asked time when a signal ended it. Returns 0 or -EINTR. */
static long doze(int64_t ns, int64_t *left_ns)
{
    const long factor = sleep_factor();
    const struct timespec shorter = from_ns(ns / factor);
    struct timespec left = {0};
    const long result = RAW(clock_nanosleep, CLOCK_MONOTONIC, 0, &shorter, &left);
    *left_ns = result == 0 ? 0 : to_ns(&left) * factor;
    skip((ns - *left_ns) - (ns - *left_ns) / factor);
    return result;
}

WRAPPER unsigned sleep(unsigned seconds)
{
    long result;
    int64_t left_ns;
    if (tell(ASK(sleep, seconds), NULL, NULL, NULL, &result) == TOLD_RETURN)
        return (unsigned)result;
    doze(seconds * SECOND_NS, &left_ns);
    return (unsigned)((left_ns + SECOND_NS / 2) / SECOND_NS);
}

WRAPPER int usleep(useconds_t microseconds)
{
    long result;
    int64_t left_ns;
    if (tell(ASK(usleep, microseconds), NULL, NULL, NULL, &result) != TOLD_RETURN)
        result = doze(microseconds * 1000LL, &left_ns);
    return (int)give(result);
}

/* What a wait with a time limit skips: nothing when something came. */
static void wait_skip(int64_t ns, int64_t taken_ns, long result)
{
    if (result == 0 && ns > taken_ns)
        skip(ns - taken_ns);
}

WRAPPER int select(int count, fd_set *readable, fd_set *writable, fd_set *special, struct timeval *limit)
{
    long result;
    const int64_t us = limit != NULL ? limit->tv_sec * SECOND_US + limit->tv_usec : 0;
    if (us <= 0)
        return (int)give(RAW(select, count, readable, writable, special, limit));
    if (tell(ASK(select, limit->tv_sec, limit->tv_usec), NULL, NULL, NULL, &result) == TOLD_RETURN) {
        for (fd_set *const *set = (fd_set *[]){readable, writable, special}, *const *end = set + 3; set < end; set++)
            if (*set != NULL && result == 0)
                FD_ZERO(*set);
        return (int)give(result);
    }
    const long factor = sleep_factor();
    const int64_t shorter_us = us / factor;
    struct timeval shorter = {.tv_sec = shorter_us / SECOND_US, .tv_usec = shorter_us % SECOND_US};
    result = RAW(select, count, readable, writable, special, &shorter);
    const int64_t left_us = (shorter.tv_sec * SECOND_US + shorter.tv_usec) * factor;
    wait_skip(us * 1000, shorter_us * 1000, result);
    *limit = (struct timeval){.tv_sec = left_us / SECOND_US, .tv_usec = left_us % SECOND_US};
    return (int)give(result);
}

WRAPPER int poll(struct pollfd *sources, nfds_t count, int milliseconds)
{
    long result;
    if (milliseconds <= 0)
        return (int)give(RAW(poll, sources, count, milliseconds));
    if (tell(ASK(poll, milliseconds), NULL, NULL, NULL, &result) == TOLD_RETURN) {
        for (nfds_t i = 0; i < count; i++)
            sources[i].revents = 0;
        return (int)give(result);
    }
    const struct timespec shorter = from_ns(milliseconds * 1000000LL / sleep_factor());
    struct timespec left = shorter; /* changed by the kernel */
    result = RAW(ppoll, sources, count, &left, NULL, 0);
    wait_skip(milliseconds * 1000000LL, to_ns(&shorter), result);
    return (int)give(result);
}

WRAPPER int clock_gettime(clockid_t clock, struct timespec *time)
{
    const long result = RAW(clock_gettime, clock, time);
    if (result == 0 && skipped() != 0 && clock != CLOCK_PROCESS_CPUTIME_ID && clock != CLOCK_THREAD_CPUTIME_ID)
        *time = from_ns(to_ns(time) + skipped());
    return (int)give(result);
}

WRAPPER time_t time(time_t *result)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != NULL)
        *result = now.tv_sec;
    return now.tv_sec;
}
