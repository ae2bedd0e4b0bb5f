#include <cstdlib>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "lib/file_line.h"
#include "lib/file_text.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "storage/raid_parts.h"

namespace
{

constexpr unsigned long kDeviceBytes = 0x80081272; // BLKGETSIZE64
constexpr int kPartitionBits = 6;                  // of the minor number of an array in the old partitioned form

// The device major of arrays in the old partitioned form, from /proc/devices; 0 when the kernel has none.
unsigned partitioned_major()
{
    static int known = -1;
    FileText devices;
    if (known >= 0 || file_text_load("/proc/devices", &devices) != 0)
        return known >= 0 ? static_cast<unsigned>(known) : 0;
    known = 0;
    for (std::string_view rest = devices.view(); !rest.empty();) {
        const std::string_view line = text_strip(line_next(&rest)); // "254 mdp"
        if (line.ends_with(" mdp"))
            known = atoi(line.data()); // a blank ends the number
    }
    return static_cast<unsigned>(known);
}

// Bytes of one member, for an array of `info->size` bytes. Returns 1; 0 when the array is gone by now; -1 with 0x8000.
int component_size_read(int fd, const mdu_array_info_t &array, RaidInfo *info)
{
    info->componentSize = uint64_t{static_cast<uint32_t>(array.size)} << 10;
    if (info->level == kRaidLevel0 || info->level == kRaidLevelLinear)
        info->componentSize = 0;
    else if ((info->majorVersion != 0 && info->size > UINT64_C(1) << 32) || array.size == 0) {
        char name[32], text[32];
        struct stat device = {};
        if (fstat(fd, &device) != 0)
            return fail(kErrRaidRead);
        const bool partitioned = partitioned_major() != 0 && major(device.st_rdev) == partitioned_major();
        const int number = partitioned ? static_cast<int>(minor(device.st_rdev) >> kPartitionBits) : info->number;
        if (NLIBCStrSnprintf(name, sizeof(name), partitioned ? "md_d%d" : "md%d", number) < 0)
            return fail(kErrRaidRead);
        if (const int read = raid_sysfs_get(name, "component_size", text, sizeof(text)); read != 0)
            return read > 0 ? 0 : fail(kErrRaidRead);
        info->componentSize = strtoull(text, nullptr, 10) << 10;
    }
    return 1;
}

int info_read(const char *path, RaidInfo *info)
{
    UniqueFd fd;
    mdu_array_info_t array = {};
    int result = raid_open(path, &fd, &array);
    if (result != 1)
        return result;
    info->number = raid_path_number(path);
    text_cut(info->path, path);
    info->majorVersion = array.major_version;
    info->minorVersion = array.minor_version;
    info->level = raid_level_of_number(array.level);
    info->raidDisks = array.raid_disks;
    info->activeDisks = array.active_disks;
    info->spareDisks = array.spare_disks;
    result = raid_request(fd.get(), kDeviceBytes, &info->size);
    if (result == 1)
        result = component_size_read(fd.get(), array, info);
    if (result == 1)
        result = raid_rebuild_read(fd.get(), path, &info->rebuild);
    if (result == 1 && raid_members_get(path, &info->disks) != 0)
        result = -1;
    if (result == 1)
        result = raid_status_read(fd.get(), info); // goes by the members where the driver cannot tell
    return result;
}

} // namespace

int raid_info_get(const char *path, RaidInfo *info)
{
    if (info == nullptr)
        return fail(kErrBadParameter);
    *info = {};
    const int result = info_read(path, info);
    if (result != 1)
        *info = {};
    return result;
}
