#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "autocleanup/glob_matches.h"
#include "disk/disk.h"
#include "external/enclosure.h"
#include "external/sys_attribute.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr char kClass[] = "/sys/class/enclosure/";

int enclosure_slot_find(const char *disk_name, EnclosureSlot *slot)
{
    if (disk_name == nullptr || slot == nullptr)
        return fail(kErrBadParameter);
    disk_name = disk_bare_name(disk_name);
    if (*disk_name == '\0' || strpbrk(disk_name, "/*?[\\") != nullptr || strlen(disk_name) > NAME_MAX)
        return fail(kErrBadParameter);

    // A slot that holds a disk has a link to its SCSI device.
    char pattern[NAME_MAX + 64];
    snprintf(pattern, sizeof(pattern), "%s*/*/device/block/%s", kClass, disk_name);
    GlobMatches matches;
    if (glob(pattern, 0, nullptr, &matches.found) != 0)
        return fail(kErrNoDevice);
    const std::string_view path = matches.found.gl_pathv[0];
    const size_t id_at = strlen(kClass), id_end = path.find('/', id_at), name_end = path.find('/', id_end + 1);
    *slot = {};
    if (!text_set(slot->enclosure, path.substr(id_at, id_end - id_at)) ||
        !text_set(slot->folder, path.substr(0, name_end)))
        return fail(kErrNoDevice);

    char number_path[sizeof(slot->folder) + 8], number[16];
    snprintf(number_path, sizeof(number_path), "%s/slot", slot->folder);
    char *end = number;
    if (sys_attribute_read(number_path, number, sizeof(number)))
        slot->number = static_cast<int>(strtol(number, &end, 10));
    if (end == number || *end != '\0')
        slot->number = -1;
    return 0;
}
