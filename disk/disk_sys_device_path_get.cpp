#include "disk/disk.h"

#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"

namespace
{

// Where something stands: on models with RAID, on models with one disk, and where that disk has the other layout.
struct DevicePaths {
    const char *raid, *single, *ali;
};
constexpr DevicePaths kSystem = {"/dev/md0", "/dev/sda1", "/dev/sda5"};
constexpr DevicePaths kFirstData = {"/dev/md2", "/dev/sda3", "/dev/sda3"};

int path_put(const DevicePaths &paths, char *path, int size)
{
    if (path == nullptr || size <= 0)
        return fail(kErrBadParameter);
    if (!conf_supportraid() && conf_supportsas()) {
        NORV_LOG(LOG_ERR, "SAS model should goes here ! Please check norvinfo.conf or implement 1 bay sas logic here");
        return fail(kErrBadParameter);
    }
    const char *device = conf_supportraid() ? paths.raid : conf_ali_nos() ? paths.ali : paths.single;
    return NLIBCStrSnprintf(path, static_cast<size_t>(size), "%s", device) < 0 ? -1 : 0;
}

} // namespace

int disk_sys_device_path_get(char *path, int size)
{
    return path_put(kSystem, path, size);
}

int disk_first_data_device_path_get(char *path, int size)
{
    return path_put(kFirstData, path, size);
}
