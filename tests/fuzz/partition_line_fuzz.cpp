// A line of the partition tool's listing. What is accepted reads the same when it is printed in plain form.
// Covers: storage/partition_info_get.cpp(partition_line_parse)
#include <cinttypes>

#include "storage/partition.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    const std::string line(input);
    PartitionExtent extent, again;
    if (partition_line_parse(line.c_str(), &extent) != 0)
        return;
    char plain[128];
    snprintf(plain, sizeof(plain), "/dev/sda1 %" PRIu64 " %" PRIu64 " %" PRIx64 "\n", extent.start, extent.size,
             extent.fsId);
    check(extent.size <= INT64_MAX && partition_line_parse(plain, &again) == 0 && again == extent);
}
