#include "external/mapped_disk.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

#include "autocleanup/glob_matches.h"
#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "external/sys_attribute.h"
#include "lib/report.h"

static constexpr char kMapper[] = "/dev/mapper/";

namespace
{

int name_put(const char *name, char *parent, size_t size)
{
    const size_t length = strlen(name);
    if (length >= size)
        return fail(kErrBufferTooSmall);
    memmove(parent, name, length + 1);
    return 0;
}

// The block device of a mapper's name.
int mapper_find(const char *name, char *parent, size_t size)
{
    GlobMatches names;
    if (glob("/sys/block/dm-*/dm/name", 0, nullptr, &names.found) != 0)
        return fail(kErrNoDevice);
    for (size_t i = 0; i < names.found.gl_pathc; i++) {
        char mapped[NAME_MAX + 1], device[NAME_MAX + 1];
        if (sys_attribute_read(names.found.gl_pathv[i], mapped, sizeof(mapped)) && strcmp(mapped, name) == 0 &&
            sscanf(names.found.gl_pathv[i], "/sys/block/%255[^/]", device) == 1)
            return name_put(device, parent, size);
    }
    return fail(kErrNoDevice);
}

} // namespace

int mapped_disk_parent_get(const char *name, char *parent, size_t size)
{
    if (name == nullptr || parent == nullptr)
        return fail(kErrBadParameter);
    name = strncmp(name, kMapper, strlen(kMapper)) == 0 ? name + strlen(kMapper) : disk_bare_name(name);
    if (*name == '\0' || strchr(name, '/') != nullptr || strlen(name) > NAME_MAX)
        return fail(kErrBadParameter);

    char path[NAME_MAX + 32];
    snprintf(path, sizeof(path), "/sys/block/%s", name);
    if (access(path, F_OK) != 0)
        return mapper_find(name, parent, size);
    snprintf(path, sizeof(path), "/sys/block/%s/slaves", name);
    const UniqueDir members(opendir(path));
    char first[NAME_MAX + 1] = "";
    while (const dirent *member = members ? readdir(members.get()) : nullptr)
        if (member->d_name[0] != '.' && (first[0] == '\0' || strcmp(member->d_name, first) < 0))
            snprintf(first, sizeof(first), "%s", member->d_name);
    return name_put(first[0] == '\0' ? name : first, parent, size);
}
