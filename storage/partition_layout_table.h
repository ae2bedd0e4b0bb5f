// All layouts that a firmware has ever written.
#pragma once

#include <iterator>

#include "storage/partition_layout.h"

namespace partition_layout_table
{

inline constexpr uint64_t kRest = kPartitionToTheEnd;

// What the tool is asked for is what the partitions then have.
constexpr PartitionLayout row(int version, int raid, int builtin, const PartitionExtent &root,
                              const PartitionExtent &swap, const PartitionExtent &data, uint64_t gap)
{
    return {version, raid, root.size, swap.size, gap, {root, swap, data}, builtin};
}

// The first row that matches a disk counts. The last two differ in their version alone, so such a disk is always 7.
// clang-format off
inline constexpr PartitionLayout kRows[] = {
    // version, RAID, built-in, root, swap, data {start, size, type}, data gap
    row(1, 0, 0, {  63,   273042, 0x83}, {  273105,  787185, 0x82}, {kRest, kRest, 0x83},     273042),
    row(2, 0, 0, {  63,  4980087, 0x83}, { 4980150, 1044225, 0x82}, {kRest, kRest, 0x83},     257040),
    row(3, 0, 0, {  63,   530082, 0x83}, {  530145,  787185, 0x82}, {kRest, kRest, 0x83},     16002),
    row(5, 0, 0, {  63,   722862, 0x83}, {  722925,  594405, 0x82}, {kRest, kRest, 0x83},     16002),
    row(6, 0, 0, {  63,  4980087, 0x83}, { 4980150, 4192965, 0x82}, {kRest, kRest, 0x83},     257040),
    row(7, 0, 0, { 256,  4980480, 0x83}, { 4980736, 4194304, 0x82}, {kRest, kRest, 0x83},     262144),
    row(8, 0, 0, {2048,  4980480, 0x83}, { 4982528, 4194304, 0x82}, {kRest, kRest, 0x83},     260352),
    row(9, 0, 0, {8192, 16777216, 0x83}, {16785408, 4194304, 0x82}, {kRest, kRest, 0x83},     262144),
    row(1, 1, 0, {  63,  1574307, 0xfd}, { 1574370,  787185, 0xfd}, {kRest, kRest, 0xfd},     273105),
    row(2, 1, 0, {  63,  4980087, 0xfd}, { 4980150, 1044225, 0xfd}, {kRest, kRest, 0xfd},     257040),
    row(6, 1, 0, {  63,  4980087, 0xfd}, { 4980150, 4192965, 0xfd}, {kRest, kRest, 0xfd},     257040),
    row(7, 1, 0, { 256,  4980480, 0xfd}, { 4980736, 4194304, 0xfd}, {kRest, kRest, 0xfd},     262144),
    row(8, 1, 0, {2048,  4980480, 0xfd}, { 4982528, 4194304, 0xfd}, {kRest, kRest, 0xfd},     260352),
    row(9, 1, 0, {8192, 16777216, 0xfd}, {16785408, 4194304, 0xfd}, {kRest, kRest, 0xfd},     262144),
    row(7, 0, 1, { 256,  2097152, 0x83}, { 2097408, 5105569, 0x83}, {7202977, 524288, 0x83},  524288),
    row(8, 0, 1, { 256,  2097152, 0x83}, { 2097408, 5105569, 0x83}, {7202977, 524288, 0x83},  524288),
};
// clang-format on
static_assert(std::size(kRows) == 16);

constexpr bool types_are(const PartitionLayout &layout, uint64_t root, uint64_t swap, uint64_t data)
{
    return layout.partition[0].fsId == root && layout.partition[1].fsId == swap && layout.partition[2].fsId == data;
}

constexpr bool is_sound(const PartitionLayout &layout)
{
    const auto &[root, swap, data] = layout.partition;
    const bool is_raid = layout.blRaidType == 1, is_builtin = layout.blBuildinStorage == 1;
    if (layout.version < 1 || layout.version == 4 || layout.version > kPartitionVersionMax || (is_raid && is_builtin))
        return false;
    if (root.start + root.size != swap.start || layout.dataGap == 0)
        return false;
    if (is_builtin ? data.start != swap.start + swap.size : data.start != kRest || data.size != kRest)
        return false;
    return is_raid      ? types_are(layout, kPartitionTypeRaid, kPartitionTypeRaid, kPartitionTypeRaid)
           : is_builtin ? types_are(layout, kPartitionTypeLinux, kPartitionTypeLinux, kPartitionTypeLinux)
                        : types_are(layout, kPartitionTypeLinux, kPartitionTypeSwap, kPartitionTypeLinux);
}

// Each row is sound, and no other has its version, RAID and built-in words.
constexpr bool rows_are_sound()
{
    for (const PartitionLayout &left : kRows) {
        if (!is_sound(left))
            return false;
        for (const PartitionLayout &right : kRows)
            if (&left != &right && left.version == right.version && left.blRaidType == right.blRaidType &&
                left.blBuildinStorage == right.blBuildinStorage)
                return false;
    }
    return true;
}
static_assert(rows_are_sound());

// Models that boot from eMMC have this one.
inline constexpr const PartitionLayout &kEmmc = kRows[10];
static_assert(kEmmc.version == 6 && kEmmc.blRaidType == 1);

} // namespace partition_layout_table
