#include <cstring>

#include "autocleanup/unique.h"
#include "lib/list_parts.h"
#include "lib/report.h"
#include "lib/string.h"

int NLIBCStrSepPair(const char *line, PNLIBSZLIST *list)
{
    if (line == nullptr || list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    const UniqueText key(strdup(line));
    if (!key)
        return fail(kErrOutOfMemory);
    char *value = strchr(key.get(), '=');
    if (value == nullptr)
        return fail(kErrBadParameter);
    *value++ = '\0';
    const int key_length = NLIBCStrTrimSpace(key.get(), nullptr);
    const int value_length = NLIBCStrTrimSpace(value, nullptr);
    if (key_length == 0)
        return fail(kErrBadParameter);
    if (list_reserve(list, int64_t{key_length} + 1 + value_length + 1 + 2 * kListItemBytes) == -1)
        return -1; // both or none
    NLIBCSzListPush(list, key.get());
    NLIBCSzListPush(list, value);
    return 0;
}
