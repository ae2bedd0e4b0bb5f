#include "tests/support/box_talk.h"

#include <cerrno>
#include <sys/socket.h>

bool talk_receive(int fd, void *bytes, size_t count)
{
    return count == 0 || recv(fd, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

static void send_all(int fd, const void *bytes, size_t count)
{
    const char *at = static_cast<const char *>(bytes);
    while (count > 0) {
        const ssize_t sent = send(fd, at, count, MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        at += sent;
        count -= static_cast<size_t>(sent);
    }
}

void talk_say(int fd, box_step step, std::int64_t result, int error, std::string_view bytes, std::uint64_t address)
{
    const box_answer answer{.step = step, .error = error, .result = result, .address = address, .bytes = bytes.size()};
    send_all(fd, &answer, sizeof(answer));
    send_all(fd, bytes.data(), bytes.size());
}

std::int64_t talk_outcome(int fd)
{
    std::int64_t outcome = -EIO;
    return talk_receive(fd, &outcome, sizeof(outcome)) ? outcome : -EIO;
}

int talk_peek(void *context, void *to, std::uint64_t from, size_t bytes)
{
    const int fd = *static_cast<int *>(context);
    const box_answer answer{.step = BOX_PEEK, .error = 0, .result = 0, .address = from, .bytes = bytes};
    send_all(fd, &answer, sizeof(answer));
    const auto status = static_cast<int>(talk_outcome(fd));
    if (status != 0)
        return status;
    return talk_receive(fd, to, bytes) ? 0 : -EIO;
}

int talk_poke(void *context, std::uint64_t to, const void *from, size_t bytes)
{
    talk_say(*static_cast<int *>(context), BOX_POKE, 0, 0, {static_cast<const char *>(from), bytes}, to);
    return 0;
}
