#include <cstdio>
#include <cstring>
#include <string_view>
#include <strings.h>

#include "autocleanup/unique.h"
#include "install/system_status.h"
#include "install/version_text.h"
#include "lib/report.h"
#include "lib/system/system.h"
#include "lib/text.h"
#include "storage/raid.h"
#include "storage/root_block.h"

static constexpr char kSystemArray[] = "/dev/md0";
static constexpr std::string_view kEqualPlatforms = "88f628"; // all that begin so

static bool platform_differs()
{
    char own[sizeof(gDiskSysInfo.platform)];
    if (system_platform_get(kDefaultsPath, own, sizeof(own)) != 0) {
        NORV_LOG(LOG_ERR, "failed to get platform from /etc.defaults/norvinfo.conf errno=[0x%04X %s:%d]",
                 NORV_ERR_ARGS);
        return false;
    }
    const std::string_view mine = own, disks = gDiskSysInfo.platform;
    return mine != disks && !(mine.starts_with(kEqualPlatforms) && disks.starts_with(kEqualPlatforms));
}

static bool is_nvr(const char *conf_path)
{
    return strncasecmp(version_text_read(conf_path, "nvr").value, "yes", 3) == 0;
}

// Reads the value of the first word of the kernel's boot line that begins "root=", cut to what the room holds.
static bool boot_device_read(char (&device)[16])
{
    device[0] = '\0';
    const UniqueFile file(fopen("/proc/cmdline", "re"));
    if (!file)
        return false;
    char line[4096];
    while (fgets(line, sizeof(line), file.get()) != nullptr)
        for (char *rest = line, *word; (word = strsep(&rest, " \t\n")) != nullptr;)
            if (strncmp(word, "root=", 5) == 0) {
                text_cut(device, word + 5);
                return true;
            }
    return true;
}

static bool member_is_incompatible()
{
    RaidInfo info = {};
    if (raid_info_get(kSystemArray, &info) != 1) {
        NORV_LOG(LOG_ERR, "Failed to get root device from /dev/md0, skip");
        return false;
    }
    bool is_incompatible = false;
    for (const RaidDisk *disk = info.disks.get(); disk != nullptr; disk = disk->next)
        if (root_block_is_compatible(disk->path) == kRootBlockIncompatible) {
            NORV_LOG(LOG_ERR, "Find incompatible root block on disk: [%s]", disk->path);
            is_incompatible = true;
        }
    return is_incompatible;
}

static bool root_block_is_in_the_way()
{
    char device[16];
    if (!boot_device_read(device)) {
        NORV_LOG(LOG_ERR, "Failed to get boot arguments");
        return false;
    }
    if (strcmp(device, kSystemArray) == 0)
        return member_is_incompatible();
    return root_block_is_compatible(device) == kRootBlockIncompatible;
}

uint32_t system_migration_bits()
{
    const auto bit = [](bool is_set, SystemMigration value) { return is_set ? uint32_t{value} : 0U; };
    uint32_t bits = bit(gDiskSysInfo.bits == 64 && system_bit_get(nullptr, nullptr) == 32, kMigrateBits);
    bits |= bit(gDiskSysInfo.endian != system_endian_get(nullptr, nullptr), kMigrateEndian);
    bits |= bit(gDiskSysInfo.max_align != 8, kMigrateAlignment);
    bits |= bit(platform_differs(), kMigratePlatform);
    bits |= bit(is_nvr("/etc.defaults/norvinfo.conf") != is_nvr("/tmpRoot/etc.defaults/norvinfo.conf"), kMigrateNvr);
    bits |= bit(root_block_is_in_the_way(), kMigrateRootBlock);
    return bits;
}
