#include "external/hardware_model.h"

#include <cstring>

#include "external/sys_attribute.h"

bool hardware_model_get(char *model, size_t size)
{
    if (!sys_attribute_read("/proc/sys/kernel/norv_hw_version", model, size))
        return false;
    if (char *suffix = strstr(model, "-j"))
        *suffix = '\0';
    return true;
}
