#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/file_replace.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"
#include "manutil/vender_format.h"

static VenderRecord record_blank()
{
    VenderRecord record = {};
    record.flags.pt_mem_cnt = kVenderNeverSet;
    return record;
}

// Whether there is nothing but erased flash or zeroes: no record is lost with it.
static bool is_erased(std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes)
        if (byte != bytes[0] || (byte != 0 && byte != UINT8_MAX))
            return false;
    return true;
}

namespace
{

struct Paths {
    char file[256], new_file[256]; // the second takes the place of the first
};

bool paths_make(const char *folder, Paths *paths)
{
    return NLIBCStrSnprintf(paths->file, sizeof(paths->file), "%s/vender", folder) > 0 &&
           NLIBCStrSnprintf(paths->new_file, sizeof(paths->new_file), "%s/vender.new", folder) > 0;
}

} // namespace

int vender_file_read(const char *folder, VenderRecord *record)
{
    Paths paths;
    if (!paths_make(folder, &paths))
        return -1;
    const UniqueFd file(open(paths.file, O_RDONLY | O_CLOEXEC));
    const bool is_missing = !file && errno == ENOENT;
    uint8_t bytes[kVenderBytes + 1];
    const ssize_t got = is_missing ? 0 : file ? NLIBCRead(file.get(), bytes, sizeof(bytes)) : -1;
    if (got < 0)
        return fail(kErrRead);
    const std::span<const uint8_t> read(bytes, static_cast<size_t>(got));
    if (is_erased(read))
        *record = record_blank();
    else if (!vender_decode(read, record))
        return fail(kErrVendorData);
    return 0;
}

int vender_file_write(const char *folder, const VenderRecord &record)
{
    Paths paths;
    VenderBytes bytes;
    if (!paths_make(folder, &paths))
        return -1;
    vender_encode(record, &bytes);
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    const bool is_whole = file_write_synced(AT_FDCWD, paths.new_file, text, 0600) == 0;
    if (!is_whole || rename(paths.new_file, paths.file) != 0) {
        unlink(paths.new_file);
        return fail(is_whole ? kErrRename : kErrWrite);
    }
    const UniqueFd place(open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return place && fsync(place.get()) == 0 ? 0 : fail(kErrWrite);
}
