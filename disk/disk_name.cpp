#include "disk/disk.h"

#include <climits>
#include <cstring>

#include "lib/conf.h"
#include "lib/string.h"

static constexpr char kDevPrefix[] = "/dev/";

const char *disk_bare_name(const char *path)
{
    return strncmp(path, kDevPrefix, strlen(kDevPrefix)) == 0 ? path + strlen(kDevPrefix) : path;
}

int disk_device_path_get(const char *name, char *path, size_t size)
{
    return NLIBCStrSnprintf(path, size, "%s%s", *name == '/' ? "" : kDevPrefix, name);
}

bool disk_name_has_p(const char *path)
{
    static constexpr const char *kFamilies[] = {"mmcblk", "nvc", "nvme", "sysd"};
    for (const char *family : kFamilies)
        if (strstr(path, family) != nullptr)
            return true;
    return conf_supportsas();
}

bool disk_is_nvme(const char *path)
{
    return strstr(path, "nvme") != nullptr && conf_supportnvme();
}

int disk_letter_index(const char *path)
{
    const char *letters = disk_bare_name(path);
    if (strncmp(letters, "sd", 2) == 0)
        letters += 2;
    int index = -1;
    for (; *letters >= 'a' && *letters <= 'z'; letters++) {
        if (index >= INT_MAX / 26 - 1)
            return -1;
        index = (index + 1) * 26 + (*letters - 'a');
    }
    return index;
}
