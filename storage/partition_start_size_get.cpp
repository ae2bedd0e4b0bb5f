#include "storage/partition.h"

#include <charconv>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"

// Reads the number in the file `name` of a folder. Returns 1; -1.
static int number_read(const char *folder, const char *name, uint64_t *value)
{
    char path[256], text[128];
    if (NLIBCStrSnprintf(path, sizeof(path), "%s/%s", folder, name) < 0)
        return -1;
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return fail(kErrOpen);
    const ssize_t length = NLIBCRead(fd.get(), text, sizeof(text));
    if (length < 0)
        return fail(kErrRead);
    const auto [stop, error] = std::from_chars(text, text + length, *value);
    return error == std::errc() ? 1 : fail(kErrBadFormat);
}

int partition_start_size_get(const char *disk, int n, uint64_t *start, uint64_t *size)
{
    if (disk == nullptr || n < 1 || start == nullptr || size == nullptr)
        return fail(kErrBadParameter);
    char name[64], folder[128];
    if (disk_device_partition_name_get(disk, n, name, sizeof(name)) != 0 ||
        NLIBCStrSnprintf(folder, sizeof(folder), "/sys/block/%s/%s", disk_bare_name(disk), name) < 0)
        return -1;
    if (access(folder, F_OK) != 0)
        return 0;
    return number_read(folder, "start", start) == 1 ? number_read(folder, "size", size) : -1;
}
