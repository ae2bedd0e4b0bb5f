#include "external/expansion_unit.h"

#include <cstdlib>
#include <cstring>
#include <glob.h>

#include "autocleanup/glob_matches.h"
#include "disk/disk.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/text.h"

static constexpr char kUnitPattern[] = "/tmp/eunitinfo_*";
static constexpr size_t kDisksRoom = 1024;

// Finds the files of all units, none among them. Returns 0; -1 when there is no memory.
static int units_find(glob_t *found)
{
    return glob(kUnitPattern, 0, nullptr, found) == GLOB_NOSPACE ? fail(kErrOutOfMemory) : 0;
}

// The names in a unit's file. Returns their length with the NUL; 0 or less without any.
template <size_t kRoom> static int unit_disks_read(const char *file, char (&disks)[kRoom])
{
    return NLIBCFileGetKeyValue(file, "EUnitDisks", disks, kRoom, 0);
}

int expansion_unit_disks_get(char *names, size_t size)
{
    if (names == nullptr || size == 0)
        return fail(kErrBadParameter);
    names[0] = '\0';
    size_t length = 0;
    GlobMatches units;
    if (units_find(&units.found) != 0)
        return -1;
    for (size_t i = 0; i < units.found.gl_pathc; i++) {
        char disks[kDisksRoom];
        const int bytes = unit_disks_read(units.found.gl_pathv[i], disks);
        if (bytes <= 1)
            continue;
        if (length + 1 + static_cast<size_t>(bytes) > size)
            return fail(kErrBufferTooSmall);
        if (length > 0)
            names[length++] = ',';
        memcpy(names + length, disks, static_cast<size_t>(bytes));
        length += static_cast<size_t>(bytes) - 1;
    }
    return 0;
}

int expansion_unit_list_position(const char *names, const char *disk_name)
{
    const size_t length = strlen(disk_name);
    int position = 1;
    for (const char *at = names; *at != '\0'; position++) {
        at = disk_bare_name(at + strspn(at, " "));
        const size_t item = strcspn(at, ", ");
        if (item > 0 && item == length && strncmp(at, disk_name, length) == 0)
            return position;
        at += strcspn(at, ",");
        at += *at == ',' ? 1 : 0;
    }
    return 0;
}

int expansion_unit_place_get(const char *disk_name, ExpansionUnitPlace *place)
{
    if (disk_name == nullptr || place == nullptr)
        return fail(kErrBadParameter);
    GlobMatches units;
    if (units_find(&units.found) != 0)
        return -1;
    for (size_t i = 0; i < units.found.gl_pathc; i++) {
        const char *file = units.found.gl_pathv[i];
        char disks[kDisksRoom], model[sizeof(place->model)];
        if (unit_disks_read(file, disks) <= 1)
            continue;
        const int position = expansion_unit_list_position(disks, disk_name);
        if (position == 0)
            continue;
        *place = {.model = "", .unit = 0, .position = position};
        if (NLIBCFileGetKeyValue(file, "EUnitModel", model, sizeof(model), 0) > 0) {
            const std::string_view whole = model;
            const size_t dash = whole.rfind('-');
            text_cut(place->model, whole.substr(0, dash));
            place->unit = dash == whole.npos ? 0 : static_cast<int>(strtol(model + dash + 1, nullptr, 10));
        }
        return 1;
    }
    return 0;
}
