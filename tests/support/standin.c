/*
 * Stands in for an outside program: tells the box its path, arguments, environment and folder, and does what the box
 * answers. Linked statically, so that no preloaded library sees it.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "talk.h"

enum { kNobodyAnswers = 126, kPiece = 4096 };

static size_t texts_bytes(char *const texts[])
{
    size_t bytes = 0;
    for (; *texts != NULL; texts++)
        bytes += strlen(*texts) + 1;
    return bytes;
}

static char *texts_copy(char *to, char *const texts[])
{
    for (; *texts != NULL; texts++)
        to = stpcpy(to, *texts) + 1;
    return to;
}

static int question_send(struct talk *talk, char *argv[])
{
    char path[PATH_MAX], folder[PATH_MAX];
    const ssize_t path_bytes = readlink(BOX_PROC "/self/exe", path, sizeof(path));
    if (path_bytes < 0)
        return -1;
    if (getcwd(folder, sizeof(folder)) == NULL)
        folder[0] = '\0';
    const size_t bytes = texts_bytes(argv) + texts_bytes(environ);
    char *words = malloc(bytes + 1);
    if (words == NULL)
        return -1;
    texts_copy(texts_copy(words, argv), environ);
    struct box_ask ask = {.call = BOX_program, .pid = getpid()};
    while (argv[ask.number[0]] != NULL)
        ask.number[0]++;
    ask.text_bytes[0] = (uint32_t)path_bytes;
    ask.text_bytes[1] = (uint32_t)strlen(folder);
    ask.text_bytes[2] = (uint32_t)bytes;
    const int result = talk_begin(talk, &ask, (const void *const[]){path, folder, words});
    free(words);
    return result;
}

/* Takes all before it writes, so that a slow reader does not hold up the box. */
static void output_write(struct talk *talk)
{
    const size_t count = talk->answer.bytes;
    char *output = malloc(count);
    if (output == NULL || talk_receive(talk, output, count) != 0)
        _exit(kNobodyAnswers);
    for (size_t at = 0; at < count;) {
        const ssize_t done = write((int)talk->answer.result, output + at, count - at);
        if (done <= 0 && errno != EINTR)
            break; /* a reader that has gone must not keep us from what else there is to do */
        at += done > 0 ? (size_t)done : 0;
    }
    free(output);
}

/* Reads standard input to its end, then asks again with it. */
static void input_send(struct talk *talk)
{
    struct box_ask ask = {.call = BOX_input, .pid = getpid(), .number = {talk->answer.result}};
    size_t room = kPiece, count = 0;
    char *input = malloc(room);
    talk_end(talk);
    for (ssize_t got; input != NULL && (got = read(0, input + count, room - count)) > 0;) {
        count += (size_t)got;
        if (room - count < kPiece)
            input = realloc(input, room *= 2);
    }
    ask.text_bytes[0] = (uint32_t)count;
    if (input == NULL || talk_begin(talk, &ask, (const void *const[BOX_TEXTS]){input, "", ""}) != 0)
        _exit(kNobodyAnswers);
    free(input);
}

static void wait_for(int64_t milliseconds)
{
    if (milliseconds < 0)
        for (;;)
            pause();
    const struct timespec time = {.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1000000};
    nanosleep(&time, NULL);
}

static void become(struct talk *talk, char *argv[])
{
    char path[PATH_MAX];
    if (talk->answer.bytes >= sizeof(path) || talk_receive(talk, path, talk->answer.bytes) != 0)
        _exit(kNobodyAnswers);
    path[talk->answer.bytes] = '\0';
    talk_end(talk);
    execve(path, argv, environ);
    _exit(kNobodyAnswers);
}

static void die_by(int number)
{
    sigset_t mask;
    sigemptyset(&mask);
    signal(number, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask, NULL);
    raise(number);
}

int main(int argc, char *argv[])
{
    (void)argc;
    struct talk talk;
    if (question_send(&talk, argv) != 0)
        return kNobodyAnswers;
    while (talk_next(&talk) == 0) {
        switch (talk.answer.step) {
        case BOX_OUTPUT:
            output_write(&talk);
            break;
        case BOX_INPUT:
            input_send(&talk);
            break;
        case BOX_WAIT:
            wait_for(talk.answer.result);
            break;
        case BOX_EXEC:
            become(&talk, argv);
            break;
        case BOX_KILL:
            die_by((int)talk.answer.result);
            break;
        default:
            _exit((int)talk.answer.result);
        }
    }
    return kNobodyAnswers;
}
