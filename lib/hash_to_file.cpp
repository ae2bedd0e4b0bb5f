#include "lib/file.h"

#include "lib/report.h"

int NLIBCHashToFile(FILE *fp, const char *section, const NLIBSZHASH *hash, const char *format)
{
    if (fp == nullptr || NLIBCFileCheckFormat(format) != 1)
        return fail(kErrBadParameter);
    if (format == nullptr)
        format = kDefaultFormat;
    if (section != nullptr && fprintf(fp, "[%s]\n", section) < 0)
        return fail(kErrWrite);
    if (hash == nullptr)
        return 0;
    for (const NLIBSZHASH::Slot *slot = hash->slots; slot != hash->slots + hash->nSlot; slot++)
        if (slot->key != nullptr && fprintf(fp, format, slot->key, slot->value) < 0)
            return fail(kErrWrite);
    return 0;
}
