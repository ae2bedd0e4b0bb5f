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

/* Connects, with the sizes of the texts, of which each may be NULL; otherwise as talk_begin. */
int question_begin(struct talk *talk, struct box_ask *ask, const void *const texts[BOX_TEXTS]);

/*
 * Tells the box of a call with up to three texts, NULL for none. TOLD_RETURN: *result is what the call returns,
 * negative errno on failure. TOLD_REAL: the true call is to be made. TOLD_NOBODY: the box cannot be reached.
 */
enum told tell(struct box_ask ask, const char *first, const char *second, const char *third, long *result);

/* ASK(sleep, seconds): the question with its numbers; ASK_AT: and with the place where the call wants its result. */
#define ASK_AT(place, name, ...)                                                                                       \
    ((struct box_ask){.call = BOX_##name,                                                                              \
                      .pid = (int32_t)RAW(getpid),                                                                     \
                      .number = {__VA_ARGS__},                                                                         \
                      .address = (uint64_t)(uintptr_t)(place)})
#define ASK(name, ...) ASK_AT(NULL, name, __VA_ARGS__)

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

#endif
