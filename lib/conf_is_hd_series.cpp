#include "lib/conf.h"

#include <cstring>

#include "lib/file.h"
#include "product.h"

bool NLIBCConfIsHdSeries()
{
    char unique[256];
    return NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0) > 0 &&
           strcmp(unique, kProductHdSeriesUnique) == 0;
}
