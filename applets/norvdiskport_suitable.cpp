// Disks that do not suit: their interface that of the bay, or the disk itself the rules.
#include "applets/norvdiskport.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "disk/disk_rule.h"
#include "external/disk_intf_check.h"
#include "lib/conf.h"
#include "lib/text.h"

// Adds the line of a group, unless all its disks suit.
static int group_add(const DiskInterfaceGroup &group, int disks, ResultText *result)
{
    const auto name = text_view(group.name);
    bool is_begun = false;
    for (int i = 0; i < disks; i++) {
        if (group.is_incompatible[i] == 0)
            continue;
        const char *line_end = result->text == nullptr ? "" : "\n"; // of the line before
        if (!is_begun && result_add(result, "%s%.*s:", line_end, static_cast<int>(name.size()), name.data()) != 0)
            return -1;
        if (result_add(result, " %d", i + 1) != 0)
            return -1;
        is_begun = true;
    }
    return 0;
}

int option_incompatible_disk_list(char * /*args*/[], ResultText *result)
{
    if (!conf_support_disk_intf_check())
        return 0;
    DiskInterfaces interfaces;
    if (disk_intf_check(&interfaces) != 0)
        return -1;
    const int disks =
        std::min(NLIBCConfMaxDisksGet(), static_cast<int>(std::size(interfaces.groups[0].is_incompatible)));
    for (int i = 0; i < interfaces.count; i++)
        if (group_add(interfaces.groups[i], disks, result) != 0)
            return -1;
    return 0;
}

int option_invalid_disk_list(char * /*args*/[], ResultText *result)
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (!disks || NORVDiskSystemInstallationDeviceEnum(disks.address()) != 0)
        return 1;
    const char *separator = "";
    for (int i = 0; i < disks.get()->nItem; i++) {
        const char *disk = NLIBCSzListGet(disks.get(), i);
        if (strstr(disk, "sysd") != nullptr || disk_is_selectable(disk) == 1)
            continue;
        DiskLocation location;
        static_cast<void>(disk_path_parse(disk, &location)); // a disk without a place is number 0
        if (result_add(result, "%s%d", separator, location.index) != 0)
            return -1;
        separator = ", ";
    }
    return 0;
}
