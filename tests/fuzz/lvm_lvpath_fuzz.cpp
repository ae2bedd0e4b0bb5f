// What `pvs` printed about physical volumes of unknown origin.
// Covers: storage/lvm_get_lvpath.cpp(lvm_lvpath_parse)

#include "autocleanup/unique.h"
#include "storage/lvm.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    const UniqueFile listing = stream_of(input);
    char path[64];
    const int found = lvm_lvpath_parse(listing.get(), "/dev/md2", path, sizeof(path));
    check(found == -1 || (found == 0 && strncmp(path, "/dev/", 5) == 0 && strchr(path, '\n') == nullptr));
}
