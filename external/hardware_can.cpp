#include <cstring>

#include "external/hardware_model.h"
#include "lib/file.h"
#include "product.h"

bool hardware_can(HardwareCapability capability)
{
    char unique[128];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0) <= 0)
        return true;
    for (const ProductMissingCapability &missing : kProductMissingCapabilities)
        if (missing.capability == capability && strcmp(missing.unique, unique) == 0)
            return false;
    return true;
}
