// The partition tool's listing, and the table of layouts.
#include "storage/partition_layout.h"

#include <gtest/gtest.h>

#include "lib/report.h"

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
        {"/dev/sda1 0 9223372036854775807 0", 0, {0, INT64_MAX, 0}},
        {"/dev/sda1 2048 4980480\n", -1, {}}, // a column is missing
        {"\n", -1, {}},
        {"", -1, {}},
        {"/dev/sda1 -1 4980480 83\n", -1, {}},
        {"/dev/sda1 2048 -1 83\n", -1, {}},
        {"/dev/sda1 2048 9223372036854775808 83\n", -1, {}}, // no result of PartitionInfoGet
        {"/dev/sda1 18446744073709551616 1 83\n", -1, {}},
        {"/dev/sda1 2048s 4980480 83\n", -1, {}},
        {"/dev/sda1 2048 4980480 zz\n", -1, {}},
    };
    for (const auto &row : kCases) {
        PartitionExtent extent = {};
        EXPECT_EQ(partition_line_parse(row.line, &extent), row.result) << row.line;
        EXPECT_EQ(extent, row.extent) << row.line;
    }
}

// By place and type of both partitions; the museum holds every row.
TEST(PartitionLayout, Match)
{
    static constexpr struct {
        PartitionExtent root, swap;
        int row; // -1: none
    } kCases[] = {
        {{2048, 4980480, 0x83}, {4982528, 4194304, 0x82}, 6},
        {{2048, 4980480, 0xfd}, {4982528, 4194304, 0xfd}, 12},
        {{256, 2097152, 0x83}, {2097408, 5105569, 0x83}, 14}, // of two equal rows the first
        {{2048, 4980480, 0x83}, {4982528, 4194304, 0x83}, -1},
        {{2048, 4980480, 0x82}, {4982528, 4194304, 0x82}, -1},
        {{2049, 4980480, 0x83}, {4982528, 4194304, 0x82}, -1},
        {{2048, 4980480, 0x83}, {4982528, 4194305, 0x82}, -1},
        {{0, 0, 0}, {0, 0, 0}, -1},
    };
    for (const auto &[root, swap, expected] : kCases) {
        int row = -1;
        const PartitionLayout *layout = partition_layout_match(root, swap, &row);
        EXPECT_EQ(row, expected);
        EXPECT_EQ(layout != nullptr, expected >= 0);
    }
}

} // namespace
