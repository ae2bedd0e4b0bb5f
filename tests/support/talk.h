/*
 * A program's side of the talk with its box (wire.h). It allocates nothing, holds no descriptor between calls, leaves
 * errno alone and needs little stack: it also runs in a child that shares its parent's memory.
 */
#ifndef NORV_TESTS_SUPPORT_TALK_H
#define NORV_TESTS_SUPPORT_TALK_H

#include <stddef.h>

#include "wire.h"

struct talk {
    int fd;                   /* negative: over */
    struct box_answer answer; /* the last one */
};

/* Connects and sends the question with its texts, whose sizes stand in it. Returns 0, or -1 when nobody answers. */
int talk_begin(struct talk *talk, const struct box_ask *ask, const void *const texts[BOX_TEXTS]);

/* Receives the next answer that the caller has to act on: peeks and pokes are done on the way. Returns 0; negative
 * errno when memory could not be reached; -1 at the end of the talk. */
long talk_next(struct talk *talk);

/* Bytes of an answer or for the test. Return 0 when all were carried. */
int talk_receive(const struct talk *talk, void *bytes, size_t count);
int talk_send(const struct talk *talk, const void *bytes, size_t count);

void talk_end(struct talk *talk);

#endif
