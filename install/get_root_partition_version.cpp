#include "install/system_status.h"
#include "lib/globals.h"
#include "storage/partition_layout.h"

int GetRootPartitionVersion()
{
    return partition_system_version(gblSupportRaid != 0);
}
