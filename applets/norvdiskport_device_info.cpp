#include "applets/norvdiskport.h"

#include <cstring>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/report.h"

static constexpr size_t kPortNameLength = 3; // "sdj", the port that a unit hangs on
static constexpr int kUnitDisksMax = 26;

// Number of a disk among the ports of a class, from 1; 0 when it is none of them; -1 on a failure.
static int port_number_get(int type, const char *disk)
{
    UniqueList ports(NLIBCSzListAlloc(1024));
    if (!ports || external_disk_port_enum_all(type, ports.address()) != 0)
        return -1;
    return NLIBCSzListFind(ports.get(), disk) + 1;
}

int unit_find(const char *disk, ExpansionUnitPlace *place)
{
    int result = expansion_unit_place_get(disk, place);
    for (int i = 0; result == 0 && strlen(disk) == kPortNameLength && i < kUnitDisksMax; i++) {
        const char name[] = {disk[0], disk[1], disk[2], static_cast<char>('a' + i), '\0'};
        result = expansion_unit_place_get(name, place);
    }
    return result;
}

int option_device_info(char *args[], ResultText *result)
{
    const char *disk = disk_bare_name(args[1]);
    const int bay = port_number_get(kDiskPortInternal, disk);
    if (bay != 0)
        return bay < 0 ? -1 : result_add(result, "Internal HDD%d", bay);
    const int port = port_number_get(kDiskPortEsata, disk);
    if (port != 0)
        return port < 0 ? -1 : result_add(result, "ESATA%d", port);
    ExpansionUnitPlace place;
    if (unit_find(disk, &place) != 1 || place.unit <= 0)
        return fail(kErrNoDevice);
    if (strlen(disk) == kPortNameLength)
        return result_add(result, "EUnit%d", place.unit);
    return result_add(result, "EUnit%d HDD%d", place.unit, place.position);
}
