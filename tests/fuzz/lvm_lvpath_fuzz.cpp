// What `pvs` printed about physical volumes of unknown origin.
// Covers: storage/lvm_get_lvpath.cpp(lvm_lvpath_parse)
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "autocleanup/unique.h"
#include "storage/lvm.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const UniqueFile listing(fmemopen(const_cast<uint8_t *>(data), size, "r"));
    char path[64];
    const int found = lvm_lvpath_parse(listing.get(), "/dev/md2", path, sizeof(path));
    if (found != -1 && (found != 0 || strncmp(path, "/dev/", 5) != 0 || strchr(path, '\n') != nullptr))
        abort();
    return 0;
}
