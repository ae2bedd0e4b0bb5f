/* How a wrapped call tells the box of itself and learns what to return. */
#ifndef NORV_TESTS_SUPPORT_PRELOAD_TELL_H
#define NORV_TESTS_SUPPORT_PRELOAD_TELL_H

#include <errno.h>
#include <stdbool.h>
#include <stddef.h>

#include "../raw.h"
#include "../talk.h"

/* What the library offers to programs; the rest of it stays inside. */
#define WRAPPER __attribute__((visibility("default")))

enum told { TOLD_RETURN, TOLD_REAL, TOLD_NOBODY };

/*
 * Tells the box of a call with up to three texts, NULL for none. TOLD_RETURN: *result is what the call returns,
 * negative errno on failure. TOLD_REAL: the true call is to be made. TOLD_NOBODY: the box cannot be reached.
 */
enum told tell(struct box_ask ask, const char *first, const char *second, const char *third, long *result);

/* ASK(sleep, seconds): the question with its numbers. */
#define ASK(name, ...) ((struct box_ask){.call = BOX_##name, .pid = (int32_t)RAW(getpid), .number = {__VA_ARGS__}})

/* Whether the test asks for this call, and how much shorter sleeps are. */
bool watched(enum box_call call);
long sleep_factor(void);

/* From the kernel's form of a result to the library's: -1 and errno. */
static inline long give(long result)
{
    if (result >= 0)
        return result;
    errno = (int)-result;
    return -1;
}

/* The result of a call that a test may watch: what the test answers, else that of the system call `real`. */
#define WATCHED(real, name, first, second, ...)                                                                        \
    ({                                                                                                                 \
        long watched_result;                                                                                           \
        if (!watched(BOX_##name) || tell(ASK(name, __VA_ARGS__), first, second, NULL, &watched_result) != TOLD_RETURN) \
            watched_result = real;                                                                                     \
        give(watched_result);                                                                                          \
    })

#endif
