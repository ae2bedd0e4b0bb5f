#include "lib/string.h"

#include <cstring>

#include "lib/report.h"

static bool is_space(char c)
{
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

int NLIBCStrTrimSpace(char *s, char *dst)
{
    if (s == nullptr)
        return fail(kErrBadParameter);
    const char *begin = s;
    const char *end = s + strlen(s);
    if (dst == nullptr)
        dst = s;
    if (dst > s && dst < end)
        return fail(kErrBadParameter);
    while (is_space(*begin))
        begin++;
    while (end > begin && is_space(end[-1]))
        end--;
    if (end - begin >= 2 && *begin == '"' && end[-1] == '"') {
        begin++;
        end--;
    }
    const auto length = static_cast<size_t>(end - begin);
    memmove(dst, begin, length);
    dst[length] = '\0';
    return static_cast<int>(length);
}
