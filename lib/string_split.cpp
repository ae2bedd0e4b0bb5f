#include <cstring>

#include "autocleanup/unique.h"
#include "lib/list_parts.h"
#include "lib/report.h"
#include "lib/string.h"

static int split(const char *s, const char *delims, PNLIBSZLIST *list, bool keep_empty)
{
    if (s == nullptr || delims == nullptr || list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    const size_t length = strlen(s);
    const UniqueText copy(strdup(s)); // `s` may be an item of the list
    if (!copy)
        return fail(kErrOutOfMemory);
    int64_t room = 0; // asked for at once: all fields or none
    char *rest = copy.get();
    while (const char *field = strsep(&rest, delims))
        if (keep_empty || *field != '\0')
            room += kListItemBytes + static_cast<int64_t>(strlen(field)) + 1;
    if (list_reserve(list, room) == -1)
        return -1;
    int pushed = 0;
    for (const char *field = copy.get(); field <= copy.get() + length; field += strlen(field) + 1) {
        if (!keep_empty && *field == '\0')
            continue;
        NLIBCSzListPush(list, field);
        pushed++;
    }
    return pushed;
}

int NLIBCStrTok(const char *s, const char *delims, PNLIBSZLIST *list)
{
    return split(s, delims, list, false);
}

int NLIBCStrSep(const char *s, const char *delims, PNLIBSZLIST *list)
{
    return split(s, delims, list, true);
}
