#include "external/sas.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/sys_attribute.h"
#include "lib/report.h"
#include "lib/text.h"

// The phy with the lowest number in the folder of a port.
static bool port_phy_find(const char *folder, char (&phy)[32])
{
    phy[0] = '\0';
    const UniqueDir port(opendir(folder));
    while (const dirent *entry = port ? readdir(port.get()) : nullptr)
        if (strncmp(entry->d_name, "phy-", strlen("phy-")) == 0 &&
            (phy[0] == '\0' || strverscmp(entry->d_name, phy) < 0) && !text_set(phy, entry->d_name))
            return false;
    return phy[0] != '\0';
}

// A disk's folder is .../host0/port-0:0/expander-0:0/port-0:0:12/end_device-0:0:12/target0:0:9/0:0:9:0, or without
// expanders .../host0/port-0:3/end_device-0:3/...; the port has links to its phys.
int sas_place_get(const char *disk, SasPlace *place)
{
    if (disk == nullptr || place == nullptr)
        return fail(kErrBadParameter);
    disk = disk_bare_name(disk);
    if (*disk == '\0' || strchr(disk, '/') != nullptr || strlen(disk) > NAME_MAX)
        return fail(kErrBadParameter);
    char path[PATH_MAX], link[NAME_MAX + 32];
    snprintf(link, sizeof(link), "/sys/block/%s/device", disk);
    if (realpath(link, path) == nullptr)
        return fail(kErrNoDevice);
    const std::string_view end_device = sys_path_component(path, "end_device-");
    if (end_device.empty())
        return fail(kErrNoDevice);
    path[end_device.data() - path - 1] = '\0'; // now the port's
    const std::string_view expander = sys_path_component(path, "expander-");
    const bool is_named =
        text_set(place->host, sys_path_component(path, "host")) && text_set(place->expander, expander);
    if (!is_named || place->host[0] == '\0' || !port_phy_find(path, place->phy))
        return fail(kErrNoDevice);
    return 0;
}
