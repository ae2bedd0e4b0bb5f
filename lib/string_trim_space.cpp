#include "lib/string.h"

#include <cstring>

#include "lib/report.h"
#include "lib/text.h"

int NLIBCStrTrimSpace(char *s, char *dst)
{
    if (s == nullptr)
        return fail(kErrBadParameter);
    if (dst == nullptr)
        dst = s;
    if (dst > s && dst < s + strlen(s))
        return fail(kErrBadParameter);
    const std::string_view trimmed = text_trim(s);
    memmove(dst, trimmed.data(), trimmed.size());
    dst[trimmed.size()] = '\0';
    return static_cast<int>(trimmed.size());
}
