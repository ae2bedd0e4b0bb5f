#include "lib/string.h"

#include <cstdint>
#include <cstring>
#include <string_view>

#include "lib/report.h"

int NLIBCStrReplace(char *s, const char *from, const char *to, char *dst, int size)
{
    if (s == nullptr || from == nullptr || to == nullptr)
        return fail(kErrBadParameter);
    const char *found = strstr(s, from);
    if (found == nullptr)
        return 0;
    const auto head_length = static_cast<size_t>(found - s);
    const char *tail = found + strlen(from);
    const size_t tail_bytes = strlen(tail) + 1;
    const std::string_view text(to);
    if (static_cast<int64_t>(head_length + text.size() + tail_bytes) > size)
        return fail(kErrBufferTooSmall);
    if (dst == nullptr)
        dst = s;
    memmove(dst + head_length + text.size(), tail, tail_bytes); // first: in place, it stands where the new text goes
    memmove(dst, s, head_length);
    text.copy(dst + head_length, text.size());
    return 1;
}
