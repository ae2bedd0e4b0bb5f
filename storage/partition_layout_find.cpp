#include <cstdlib>

#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"
#include "storage/partition_layout.h"
#include "storage/partition_layout_table.h"

int partition_layout_model_version()
{
    char value[32];
    if (NLIBCFileGetKeyValue(kDefaultsPath, "partition_curr_version", value, sizeof(value), 0) <= 0)
        return kPartitionVersionDefault;
    const long version = strtol(value, nullptr, 10);
    return version >= 1 && version <= kPartitionVersionMax ? static_cast<int>(version) : kPartitionVersionDefault;
}

const PartitionLayout *partition_layout_find(int version, bool raid)
{
    const int wanted = version == kPartitionVersionModel ? partition_layout_model_version() : version;
    const int is_raid = raid ? 1 : 0, is_builtin = NLIBCConfIsYes("support_buildin_storage") ? 1 : 0;
    for (const PartitionLayout &row : partition_layout_table::kRows)
        if (row.version == wanted && row.blRaidType == is_raid && row.blBuildinStorage == is_builtin)
            return &row;
    return fail(kErrBadParameter);
}

int partition_layout_version_get(int version, bool raid)
{
    const PartitionLayout *layout = partition_layout_find(version, raid);
    if (layout != nullptr)
        return layout->version;
    NORV_LOG(LOG_ERR, "Failed to find curr partitionlayout version: [%d]", version);
    return -1;
}
