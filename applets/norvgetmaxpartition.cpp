#include <algorithm>

#include "applets/applets.h"
#include "lib/conf.h"
#include "lib/globals.h"
#include "storage/partition_layout.h"

int norvgetmaxpartition_main(int, char *[])
{
    if (NLIBCConfIsHdSeries())
        return 1;
    return std::max(partition_layout_version_get(kPartitionVersionMax, gblSupportRaid != 0), 0);
}
