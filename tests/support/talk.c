#define _GNU_SOURCE
#include "talk.h"

#include <errno.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "raw.h"

/* Carries `count` bytes either way, whatever signals arrive. */
static long carry(const struct talk *talk, long number, uint64_t address, size_t count, int flags)
{
    while (count > 0) {
        const long done = raw_call(number, talk->fd, (long)address, (long)count, flags, 0, 0);
        if (done == -EINTR)
            continue;
        if (done <= 0)
            return done < 0 ? done : -ECONNRESET;
        address += (uint64_t)done;
        count -= (size_t)done;
    }
    return 0;
}

int talk_receive(const struct talk *talk, void *bytes, size_t count)
{
    return carry(talk, SYS_recvfrom, (uint64_t)(uintptr_t)bytes, count, MSG_WAITALL) == 0 ? 0 : -1;
}

int talk_send(const struct talk *talk, const void *bytes, size_t count)
{
    return carry(talk, SYS_sendto, (uint64_t)(uintptr_t)bytes, count, MSG_NOSIGNAL) == 0 ? 0 : -1;
}

void talk_end(struct talk *talk)
{
    if (talk->fd >= 0)
        RAW(close, talk->fd);
    talk->fd = -1;
}

int talk_begin(struct talk *talk, const struct box_ask *ask, const void *const texts[BOX_TEXTS])
{
    const struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = BOX_ASK};
    talk->fd = (int)RAW(socket, AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (talk->fd < 0)
        return -1;
    long result = -EINTR;
    while (result == -EINTR)
        result = RAW(connect, talk->fd, &address, sizeof(address));
    if (result == 0)
        result = talk_send(talk, ask, sizeof(*ask));
    for (int i = 0; i < BOX_TEXTS && result == 0; i++)
        result = talk_send(talk, texts[i], ask->text_bytes[i]);
    if (result != 0)
        talk_end(talk);
    return result == 0 ? 0 : -1;
}

/* The kernel copies from and to the program's memory, so that a bad address is an error and no crash. */
static long peek(const struct talk *talk)
{
    int64_t status = 0;
    struct iovec parts[] = {
        {&status, sizeof(status)},
        {(void *)(uintptr_t)talk->answer.address, talk->answer.bytes},
    };
    struct msghdr message = {.msg_iov = parts, .msg_iovlen = 2};
    const long sent = RAW(sendmsg, talk->fd, &message, MSG_NOSIGNAL);
    if (sent == (long)(sizeof(status) + talk->answer.bytes))
        return 0;
    status = sent < 0 ? sent : -EIO;
    talk_send(talk, &status, sizeof(status));
    return status;
}

long talk_next(struct talk *talk)
{
    while (talk_receive(talk, &talk->answer, sizeof(talk->answer)) == 0) {
        long result;
        if (talk->answer.step == BOX_PEEK)
            result = peek(talk);
        else if (talk->answer.step == BOX_POKE)
            result = carry(talk, SYS_recvfrom, talk->answer.address, talk->answer.bytes, MSG_WAITALL);
        else
            return 0;
        if (result != 0)
            return result;
    }
    return -1;
}
