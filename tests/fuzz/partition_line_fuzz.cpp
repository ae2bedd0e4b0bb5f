// A line of the partition tool's listing. What is accepted reads the same when it is printed in plain form.
// Covers: storage/partition_info_get.cpp(partition_line_parse)
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "storage/partition.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string line(reinterpret_cast<const char *>(data), size);
    PartitionExtent extent, again;
    if (partition_line_parse(line.c_str(), &extent) != 0)
        return 0;
    char plain[128];
    snprintf(plain, sizeof(plain), "/dev/sda1 %" PRIu64 " %" PRIu64 " %" PRIx64 "\n", extent.start, extent.size,
             extent.fsId);
    if (extent.size > INT64_MAX || partition_line_parse(plain, &again) != 0 || again != extent)
        abort();
    return 0;
}
