#include <cerrno>
#include <unistd.h>

#include "lib/io.h"
#include "lib/report.h"

static constexpr int kMaxTries = 3;

template <typename Call> static ssize_t interrupted_retry(Call call)
{
    const int saved_errno = errno;
    ssize_t result;
    for (int tries = 1; (result = call()) < 0 && errno == EINTR && tries < kMaxTries;)
        tries++;
    errno = saved_errno;
    return result;
}

ssize_t NLIBCRead(int fd, void *buf, size_t size)
{
    if (fd < 0 || buf == nullptr || size == 0)
        return fail(kErrBadParameter);
    return interrupted_retry([=] { return read(fd, buf, size); });
}

ssize_t NLIBCWrite(int fd, const void *buf, size_t size)
{
    if (fd < 0 || buf == nullptr || size == 0)
        return fail(kErrBadParameter);
    return interrupted_retry([=] { return write(fd, buf, size); });
}

// Byte by byte: fgets itself drops the beginning of a line when a signal interrupts the rest.
char *NLIBCFgets(char *buf, int size, FILE *fp)
{
    if (buf == nullptr || size <= 0 || fp == nullptr)
        return fail(kErrBadParameter);
    const int saved_errno = errno;
    int length = 0, tries = 1, byte = 0;
    flockfile(fp);
    while (length < size - 1 && byte != '\n') {
        errno = 0; // stays so at the end of the file
        byte = getc_unlocked(fp);
        if (byte != EOF) {
            buf[length++] = static_cast<char>(byte);
            continue;
        }
        if (errno != EINTR || tries == kMaxTries)
            break;
        tries++;
        clearerr_unlocked(fp);
    }
    const bool got = byte != EOF || (length > 0 && errno == 0);
    funlockfile(fp);
    errno = saved_errno;
    if (!got)
        return nullptr;
    buf[length] = '\0';
    return buf;
}
