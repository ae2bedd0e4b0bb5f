#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/scoped_umask.h"
#include "autocleanup/unique.h"
#include "install/upload.h"
#include "install/upload_buffer.h"
#include "lib/report.h"

static int status_of(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return kUploadNoAccess;
    case ENOSPC:
        return kUploadNoSpace;
    case EROFS:
        return kUploadReadOnly;
    case EIO:
    case EBADF:
    case EINVAL:
        return kUploadIo;
    case ENAMETOOLONG:
        return kUploadNameTooLong;
    case EDQUOT:
        return kUploadQuota;
    case EFBIG:
        return kUploadFileTooLarge;
    default:
        return kUploadFailed;
    }
}

static UniqueFd file_create(const char *path, UploadStats *stats)
{
    const ScopedUmask everybody(0);
    UniqueFd file(open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0777));
    if (!file) {
        stats->status = status_of(errno);
        NORV_LOG(LOG_ERR, "failed to open path=%s, errno=%s(%d)", path, strerror(errno), errno);
    }
    return file;
}

// Uses so many bytes of the buffer for the file.
static bool bytes_write(UploadBuffer *buffer, size_t bytes, int file, const char *path)
{
    if (bytes == 0)
        return true;
    errno = 0; // a short write sets none
    const ssize_t written = write(file, buffer->cursor, bytes);
    if (written < 0) {
        buffer->stats->status = status_of(errno);
        NORV_LOG(LOG_ERR, "failed to write file %s, read size=%d, errno=%s(%d)", path, static_cast<int>(bytes),
                 strerror(errno), errno);
        return false;
    }
    if (static_cast<size_t>(written) < bytes) {
        buffer->stats->status = kUploadFailed;
        NORV_LOG(LOG_ERR, "failed to write file %s, read size=%d, write size=%d, errno=%s(%d)", path,
                 static_cast<int>(bytes), static_cast<int>(written), strerror(errno), errno);
        return false;
    }
    upload_consume(buffer, bytes);
    if (buffer->progress != nullptr)
        buffer->progress(buffer->stats->done, buffer->stats->total);
    return true;
}

// Copies what comes before the delimiter, or all there is.
static bool bytes_copy(UploadBuffer *buffer, int file, const char *path)
{
    const UploadStats *stats = buffer->stats;
    for (;;) {
        // So many bytes stay back: the beginning of a delimiter whose end has not come, and a CR before it.
        auto held = static_cast<size_t>(buffer->delimiter_length);
        if (upload_view(*buffer).size() <= held && upload_fill(buffer) == 0)
            held = 0;
        const std::string_view all = upload_view(*buffer);
        if (all.empty()) { // the line that ends the content will be missed
            NORV_LOG(LOG_ERR, "read=%d, done=%llu, total=%llu", 0, static_cast<unsigned long long>(stats->done),
                     static_cast<unsigned long long>(stats->total));
            return true;
        }
        const std::string_view delimiter(buffer->delimiter, static_cast<size_t>(buffer->delimiter_length));
        const void *end = memmem(all.data(), all.size(), delimiter.data(), delimiter.size());
        size_t bytes = all.size() - std::min(all.size(), held);
        if (end != nullptr)
            bytes = static_cast<size_t>(static_cast<const char *>(end) - all.data());
        if (end != nullptr && bytes > 0 && all[bytes - 1] == '\r')
            bytes--;
        if (!bytes_write(buffer, bytes, file, path))
            return false;
        if (end != nullptr)
            return true;
    }
}

static bool file_take(UploadBuffer *buffer, const char *path)
{
    UploadStats *stats = buffer->stats;
    const UniqueFd file = file_create(path, stats);
    if (!file || !bytes_copy(buffer, file.get(), path))
        return false;
    if (stats->done > stats->total) { // fewer shows when the form ends
        NORV_LOG(LOG_ERR, "upload not done, recieve len=%llu bytes, total len = %llu",
                 static_cast<unsigned long long>(stats->done), static_cast<unsigned long long>(stats->total));
        stats->status = kUploadSize;
        return false;
    }
    if (fsync(file.get()) != 0) {
        stats->status = status_of(errno);
        NORV_LOG(LOG_ERR, "failed to fsync, path=%s, errno=%s(%d)", path, strerror(errno), errno);
        return false;
    }
    std::string_view line;
    if (!upload_line_read(buffer, &line) || !line.empty()) {
        stats->status = kUploadFailed;
        NORV_LOG(LOG_ERR, "failed to skip CRLF[%.*s]", static_cast<int>(line.size()), line.data());
        return false;
    }
    return true;
}

bool upload_file_take(UploadBuffer *buffer, const char *path)
{
    unlink(path);
    if (file_take(buffer, path))
        return true;
    unlink(path);
    return false;
}
