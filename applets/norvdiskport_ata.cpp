// The disks behind ATA links: their names, and the links that are switched off.
#include "applets/norvdiskport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unistd.h>
#include <utility>

#include "autocleanup/glob_matches.h"
#include "disk/disk.h"
#include "external/sys_attribute.h"
#include "lib/file.h"
#include "lib/report.h"
#include "product.h"

static constexpr int kNoDevice = -1, kLastDevice = 14;
static constexpr int kThawPasses = 20;
static constexpr char kThawPattern[] = "/sys/class/scsi_host/*/norv_port_thaw";
static constexpr int kLetterBase = 0x60; // 'a' is 1

namespace
{

using DiskName = char[64];

// Reads a number from 0 that is all of a text. Returns -1 when it is none.
int number_read(const char *text)
{
    char *end = nullptr;
    const long number = strtol(text, &end, 10);
    return end != text && *end == '\0' && number >= 0 && number < 100000 ? static_cast<int>(number) : -1;
}

// Letter of a device behind a port with an expansion unit; NUL when the unit has no such device.
char unit_letter(const char *port_disk, int device)
{
    static constexpr char kReversed[] = "dcba";
    ExpansionUnitPlace place;
    if (unit_find(port_disk, &place) != 1 || strcmp(place.model, kProductReversedExpansionUnit) != 0)
        return static_cast<char>('a' + device);
    return device < static_cast<int>(strlen(kReversed)) ? kReversed[device] : '\0';
}

// Name of the disk on an ATA link: `link` counts from 1, `device` is kNoDevice for the link itself. Returns 0; -1.
int ata_disk_get(int link, int device, DiskName &disk)
{
    char path[128];
    snprintf(path, sizeof(path), "/sys/class/scsi_host/host%d/norv_diskname_trans", link - 1);
    if (!sys_attribute_read(path, disk, sizeof(disk) - 1))
        return fail(kErrNoDevice);
    if (device == kNoDevice || external_disk_port_check(disk) != kDiskPortExpansion)
        return 0;
    const size_t length = strlen(disk);
    disk[length + 1] = '\0';
    disk[length] = unit_letter(disk, device);
    return disk[length] != '\0' ? 0 : fail(kErrBadParameter);
}

struct PortNumbers {
    int numbers[64];
    int count;
    bool operator==(const PortNumbers &) const = default;
};

// Number of the disk whose link a file says is switched off; 0 when it is none, or not to be told.
int thawed_disk_find(const char *path, unsigned long long dummy_ports)
{
    char state[4];
    int host = 0;
    DiskName disk;
    if (!sys_attribute_read(path, state, sizeof(state)) || state[0] != '0' || sscanf(path, "%*[^0-9]%9d", &host) != 1 ||
        (host < 64 && (dummy_ports >> host & 1) != 0))
        return 0;
    if (ata_disk_get(host + 1, kNoDevice, disk) != 0 || strncmp(disk, "sd", 2) != 0 || disk[2] == '\0')
        return 0;
    return disk[2] - kLetterBase;
}

PortNumbers ports_scan(unsigned long long dummy_ports)
{
    PortNumbers ports = {};
    GlobMatches matches;
    if (glob(kThawPattern, 0, nullptr, &matches.found) != 0)
        return ports;
    for (size_t i = 0; i < matches.found.gl_pathc && ports.count < static_cast<int>(std::size(ports.numbers)); i++)
        if (const int number = thawed_disk_find(matches.found.gl_pathv[i], dummy_ports); number != 0)
            ports.numbers[ports.count++] = number;
    return ports;
}

} // namespace

int option_ata_to_device(char *args[], ResultText *result)
{
    const char *link = strncmp(args[1], "ata", strlen("ata")) == 0 ? args[1] + strlen("ata") : args[1];
    char host[16], device[16];
    const int parts = sscanf(link, "%15[^.].%15s", host, device);
    const int host_number = parts >= 1 ? number_read(host) : -1;
    const int device_number = parts == 2 ? number_read(device) : kNoDevice;
    if (host_number < 1 || (parts == 2 && (device_number < 0 || device_number > kLastDevice)))
        return fail(kErrBadParameter);
    DiskName disk;
    return ata_disk_get(host_number, device_number, disk) == 0 ? result_add(result, "%s", disk) : -1;
}

// A link that is just coming up is off for a moment, hence the wait for a list that stays.
int option_port_thaw_list(char * /*args*/[], ResultText *result)
{
    char value[65];
    unsigned long long dummy_ports = 0;
    if (NLIBCFileGetKeyValue(kDefaultsPath, "skip_ata_dummy_port", value, sizeof(value), 0) > 0)
        dummy_ports = strtoull(value, nullptr, 16);
    PortNumbers ports = ports_scan(dummy_ports);
    for (int same = 1; ports.count > 0 && same < kThawPasses;) {
        sleep(1);
        const PortNumbers before = std::exchange(ports, ports_scan(dummy_ports));
        same = ports == before ? same + 1 : 1;
    }
    for (int i = 0; i < ports.count; i++)
        if (result_add(result, i == 0 ? "%d" : " %d", ports.numbers[i]) != 0)
            return -1;
    return 0;
}
