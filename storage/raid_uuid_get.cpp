#include "lib/report.h"
#include "lib/string.h"
#include "storage/raid_parts.h"

int raid_uuid_get(const char *path, char *out, size_t size)
{
    UniqueRaidDisks disks;
    if (out == nullptr)
        return fail(kErrBadParameter);
    if (raid_members_get(path, &disks) != 0)
        return -1;
    for (const RaidDisk *disk = disks.get(); disk != nullptr; disk = disk->next) {
        RaidSuperblock superblock;
        if (raid_superblock_get(disk->path, &superblock) == 1)
            return NLIBCStrSnprintf(out, size, "%s", superblock.uuid) < 0 ? -1 : 1;
    }
    return 0;
}
