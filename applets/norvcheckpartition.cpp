#include "applets/applets.h"
#include "lib/conf.h"
#include "storage/partition_layout.h"

int norvcheckpartition_main(int argc, char *argv[])
{
    if (argc < 2)
        return partition_system_version(conf_supportraid());
    PartitionLayout layout;
    return GetPartitionLayout(argv[1], &layout) == 1 ? layout.version : 0;
}
