#include "lib/file.h"

#include <cstring>

#include "lib/report.h"

int NLIBCFileCheckFormat(const char *format)
{
    static constexpr const char *kPieces[] = {"%s", "=", "%s", "\n"};
    if (format == nullptr)
        return 1;
    for (const char *piece : kPieces) {
        format = strstr(format, piece);
        if (format == nullptr) {
            fail(kErrBadFormat);
            return 0;
        }
        format += strlen(piece);
    }
    return 1;
}
