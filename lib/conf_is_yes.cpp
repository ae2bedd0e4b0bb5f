#include "lib/conf.h"

#include <strings.h>

#include "lib/file.h"

bool NLIBCConfIsYes(const char *key)
{
    char value[5];
    return key != nullptr && NLIBCFileGetKeyValue(kDefaultsPath, key, value, sizeof(value), 0) > 0 &&
           strcasecmp(value, "yes") == 0;
}
