#include "lib/file.h"

#include "lib/file_line.h"
#include "lib/report.h"

int NLIBCFileMatchSection(const char *line, int length, const char *section)
{
    if (line == nullptr || section == nullptr)
        return fail(kErrBadParameter);
    if (length < 0)
        return 0;
    return line_is_section({line, static_cast<size_t>(length)}, section) ? 1 : 0;
}
