#include "lib/file.h"

#include "autocleanup/unique.h"
#include "lib/report.h"

int NLIBCFileReadLines(const char *file, PNLIBSZLIST *list)
{
    if (file == nullptr || list == nullptr || *list == nullptr)
        return fail(kErrBadParameter);
    const UniqueFile stream(fopen(file, "re"));
    if (!stream)
        return fail(kErrOpen);
    char piece[1024];
    while (fgets(piece, sizeof(piece), stream.get()) != nullptr)
        if (NLIBCSzListPush(list, piece) < 0)
            return -1;
    return ferror(stream.get()) == 0 ? 0 : fail(kErrRead);
}
