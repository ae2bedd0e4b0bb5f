#include <cstdio>
#include <cstdlib>

#include "applets/raidtool.h"
#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"
#include "storage/disk_format_type.h"
#include "storage/partition_layout.h"

// Pushes the disks of one type. Returns 0; -1, logged.
static int disks_of_type(const NLIBSZLIST *disks, const int *types, int type, PNLIBSZLIST *found)
{
    for (int i = 0; i < disks->nItem; i++) {
        if (types[i] != type)
            continue;
        if (NLIBCSzListPush(found, disks->items[i]) < 0) {
            NORV_LOG(LOG_ERR, "Push %s into FormatAllList failed", disks->items[i]);
            return -1;
        }
    }
    return 0;
}

// Prints the numbers of the disks, or one word instead.
static int numbers_print(const NLIBSZLIST *disks, bool all_at_once)
{
    UniqueText numbers;
    int room = 0;
    for (int i = 0; i < disks->nItem; i++) {
        DiskLocation location = {};
        char number[16];
        if (disk_path_parse(disks->items[i], &location) < 0) {
            NORV_LOG(LOG_ERR, "DiskPathParse(%s) fail", disks->items[i]);
            location.index = 0;
        }
        snprintf(number, sizeof(number), "%d ", location.index);
        if (NLIBCStrCat(numbers.address(), &room, number) != 0)
            return -1;
    }
    if (numbers)
        fputs(all_at_once ? "all" : numbers.get(), stdout);
    return disks->nItem;
}

static int format_enum(bool all_at_once)
{
    int version = 0;
    if (partition_layout_get_max(&version, false) < 0 || version == 0) {
        NORV_LOG(LOG_ERR, "Failed to find partition layout");
        return 1;
    }
    const UniqueList disks = install_disks_get();
    UniqueList kept(NLIBCSzListAlloc(1024)), whole(NLIBCSzListAlloc(1024));
    if (!disks || !kept || !whole)
        return -1;
    const UniqueBlock<int> types(static_cast<int *>(calloc(static_cast<size_t>(disks.get()->nItem) + 1, sizeof(int))));
    if (!types || format_types_find(disks.get(), version, types.get()) != 0 ||
        disks_of_type(disks.get(), types.get(), kDiskFormatSystem, kept.address()) != 0 ||
        disks_of_type(disks.get(), types.get(), kDiskFormatWhole, whole.address()) != 0)
        return -1;
    return numbers_print(kept.get()->nItem > 0 ? whole.get() : disks.get(), all_at_once);
}

int raidtool_enum_format(int /*argc*/, char * /*argv*/[])
{
    return format_enum(false);
}

int raidtool_enum_format_dual_head(int /*argc*/, char * /*argv*/[])
{
    return format_enum(NLIBCConfSupportDualHead() == 1);
}
