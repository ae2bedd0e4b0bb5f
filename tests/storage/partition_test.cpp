// The partition tool's listing.
#include "storage/partition.h"

#include <gtest/gtest.h>

namespace
{

TEST(Partition, ListingLine)
{
    static constexpr struct {
        const char *line;
        int result;
        PartitionExtent extent;
    } kCases[] = {
        {"/dev/sda1 2048 4980480 83\n", 0, {2048, 4980480, 0x83}},
        {"  /dev/sda1\t8192   16777216  FD more\n", 0, {8192, 16777216, 0xfd}},
        {"/dev/sda1 2048 4980480 0xfd\n", 0, {2048, 4980480, 0xfd}},
        {"/dev/sda1 2048 4980480 0x\n", -1, {}},
        {"/dev/sda1 2048 4980480\n", -1, {}}, // a column is missing
        {"/dev/sda1 -1 4980480 83\n", -1, {}},
        {"/dev/sda1 2048 9223372036854775808 83\n", -1, {}}, // no result of PartitionInfoGet
        {"/dev/sda1 2048s 4980480 83\n", -1, {}},
        {"/dev/sda1 2048 4980480 zz\n", -1, {}},
    };
    for (const auto &row : kCases) {
        PartitionExtent extent = {};
        EXPECT_EQ(partition_line_parse(row.line, &extent), row.result) << row.line;
        EXPECT_EQ(extent, row.extent) << row.line;
    }
}

} // namespace
