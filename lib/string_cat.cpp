#include "lib/string.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lib/report.h"

static constexpr int64_t kStepBytes = 1024;

int NLIBCStrCat(char **buf, int *cbAlloc, const char *s)
{
    if (s == nullptr || *s == '\0')
        return 0;
    if (buf == nullptr || cbAlloc == nullptr)
        return fail(kErrBadParameter);
    const size_t used = *buf == nullptr ? 0 : strlen(*buf);
    const size_t length = strlen(s);
    const auto needed = static_cast<int64_t>(used + length + 1);
    const int64_t room = *buf == nullptr ? 0 : *cbAlloc;
    if (needed <= room) {
        memmove(*buf + used, s, length); // `s` may be the end of the text itself
        (*buf)[used + length] = '\0';
        return 0;
    }

    const int64_t grown_bytes = std::max(room + kStepBytes, needed);
    auto *const grown =
        grown_bytes > INT_MAX ? nullptr : static_cast<char *>(calloc(1, static_cast<size_t>(grown_bytes)));
    if (grown == nullptr)
        return fail(kErrOutOfMemory);
    if (used > 0)
        memcpy(grown, *buf, used);
    memcpy(grown + used, s, length + 1);
    free(*buf); // not before: `s` may be a part of it
    *buf = grown;
    *cbAlloc = static_cast<int>(grown_bytes);
    return 0;
}
