#include "install/upload_buffer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/select.h>
#include <unistd.h>

#include "lib/report.h"

static constexpr int kInputSeconds = 30;

bool upload_buffer_start(UploadBuffer *buffer, std::string_view boundary, UploadStats *stats)
{
    buffer->capacity = sizeof(buffer->data);
    buffer->cursor = buffer->data;
    buffer->available = 0;
    buffer->stats = stats;
    buffer->progress = nullptr;
    buffer->input_is_over = false;
    const int length = static_cast<int>(boundary.size());
    buffer->boundary_length = snprintf(buffer->boundary, sizeof(buffer->boundary), "--%.*s", length, boundary.data());
    buffer->delimiter_length =
        snprintf(buffer->delimiter, sizeof(buffer->delimiter), "\n--%.*s", length, boundary.data());
    return boundary.size() < sizeof(buffer->delimiter) - strlen("\n--");
}

bool upload_input_wait(int seconds)
{
    fd_set input;
    FD_ZERO(&input);
    FD_SET(STDIN_FILENO, &input);
    timeval limit = {.tv_sec = seconds, .tv_usec = 0};
    return select(STDIN_FILENO + 1, &input, nullptr, nullptr, &limit) > 0;
}

int upload_fill(UploadBuffer *buffer)
{
    memmove(buffer->data, buffer->cursor, static_cast<size_t>(buffer->available));
    buffer->cursor = buffer->data;
    const int before = buffer->available;
    while (!buffer->input_is_over && buffer->available < buffer->capacity) {
        if (!upload_input_wait(kInputSeconds)) {
            NORV_LOG(LOG_ERR, "no data within %d seconds", kInputSeconds);
            break;
        }
        char *end = buffer->data + buffer->available;
        const auto room = static_cast<size_t>(buffer->capacity - buffer->available);
        const ssize_t count = read(STDIN_FILENO, end, room);
        if (count < 0)
            NORV_LOG(LOG_ERR, "failed to read from stdin, read size=%d, errno=%s", static_cast<int>(count),
                     strerror(errno));
        if (count <= 0)
            break;
        buffer->available += static_cast<int>(count);
        buffer->stats->done += static_cast<uint64_t>(count);
        if (memchr(end, '\n', static_cast<size_t>(count)) != nullptr)
            break;
    }
    buffer->input_is_over = buffer->available == before;
    return buffer->available - before;
}

// Takes a line of what is there.
static bool line_take(UploadBuffer *buffer, std::string_view *line)
{
    const std::string_view all = upload_view(*buffer);
    const size_t newline = all.find('\n');
    if (newline == all.npos && buffer->available < buffer->capacity)
        return false;
    *line = all.substr(0, newline);
    upload_consume(buffer, newline == all.npos ? all.size() : newline + 1);
    if (newline != all.npos && line->ends_with('\r'))
        line->remove_suffix(1);
    *line = line->substr(0, line->find('\0'));
    return true;
}

bool upload_line_read(UploadBuffer *buffer, std::string_view *line)
{
    if (line_take(buffer, line))
        return true;
    upload_fill(buffer);
    return line_take(buffer, line);
}
