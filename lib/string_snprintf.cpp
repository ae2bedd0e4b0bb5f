#include "lib/string.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "lib/report.h"

int NLIBCStrSnprintf(char *buf, size_t size, const char *format, ...)
{
    const int saved_errno = errno;
    if (format == nullptr || (buf == nullptr && size > 0)) {
        NORV_LOG(LOG_ERR, "Invaild Argument (%s)=[%d]\n", format == nullptr ? "format" : "buf", 0);
        errno = saved_errno;
        return fail(kErrBadParameter);
    }
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(buf, size, format, arguments);
    va_end(arguments);
    if (length < 0)
        return fail(kErrSystemCall);
    if (static_cast<size_t>(length) >= size) {
        NORV_LOG(LOG_ERR, "Failed to do snprintf(). Buffer size is not enough [%zu]. Necessary [%d] [%s]", size, length,
                 size > 0 ? buf : "");
        errno = saved_errno;
        return fail(kErrTextDoesNotFit);
    }
    return length;
}
