#include "lib/file.h"

#include "lib/file_line.h"
#include "lib/report.h"

bool NLIBCFileLineKeyMatch(const char *line, const char *key)
{
    if (line == nullptr || key == nullptr) {
        fail(kErrBadParameter);
        return false;
    }
    return key_line_matches(line, key);
}
