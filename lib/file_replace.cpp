#include "lib/file_replace.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>

#include "lib/report.h"

static constexpr int kMostTries = 3; // of a write that signals interrupt

static int replace(const char *temp_path, const char *path, bool is_synced, const char *format, va_list arguments)
{
    char beside[PATH_MAX];
    if (temp_path == nullptr) {
        if (static_cast<size_t>(snprintf(beside, sizeof(beside), "%s.%d", path, getpid())) >= sizeof(beside)) {
            errno = ENAMETOOLONG;
            return fail(kErrOpen);
        }
        temp_path = beside;
    }
    const UniqueFd file(open(temp_path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file)
        return fail(kErrOpen);
    UniqueFileName temp_name(temp_path);
    if (vdprintf(file.get(), format, arguments) < 0 || (is_synced && fsync(file.get()) != 0))
        return fail(kErrWrite);
    if (rename(temp_path, path) != 0)
        return fail(kErrRename);
    static_cast<void>(temp_name.release()); // the name is free
    return 0;
}

int file_replace(const char *path, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = replace(nullptr, path, false, format, arguments);
    va_end(arguments);
    return result;
}

int file_replace_synced(const char *temp_path, const char *path, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = replace(temp_path, path, true, format, arguments);
    va_end(arguments);
    return result;
}

int file_write_synced(int folder, const char *path, std::string_view bytes, mode_t mode)
{
    const UniqueFd file(openat(folder, path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!file)
        return fail(kErrOpen);
    for (int tries = 0; !bytes.empty();) {
        const ssize_t count = write(file.get(), bytes.data(), bytes.size());
        if (count >= 0)
            bytes.remove_prefix(static_cast<size_t>(count));
        else if (errno != EINTR || ++tries == kMostTries)
            return fail(kErrWrite);
    }
    return fsync(file.get()) == 0 ? 0 : fail(kErrWrite);
}
