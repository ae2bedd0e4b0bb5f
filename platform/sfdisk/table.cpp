#include "platform/sfdisk/table.h"

#include <algorithm>

#include "platform/sfdisk/label.h"

namespace
{

bool is_logical(const PartitionTable &table, const Partition &partition)
{
    return table.kind == LabelKind::kDos && partition.number > kDosPrimaries;
}

// Turns an MS-DOS table into a GPT with the same partitions.
Fault table_to_gpt(PartitionTable *table)
{
    PartitionTable gpt = *table;
    gpt_clear(&gpt);
    if (table->disk_sectors <= 2 * gpt.gpt_first_usable)
        return Fault::kNoRoomForGpt;
    for (Partition partition : table->partitions) {
        if (type_is_extended(partition.type) || is_logical(*table, partition))
            return Fault::kLogical;
        if (partition.start < gpt.gpt_first_usable || partition.end() > gpt_last_usable(gpt) + 1)
            return Fault::kNoRoomForGpt;
        if (!gpt_entry_make(&partition))
            return Fault::kType;
        gpt.partitions.push_back(partition);
    }
    *table = std::move(gpt);
    return Fault::kNone;
}

// The sectors that a partition may take: from what the label keeps in front up to what it keeps behind.
uint64_t first_usable(const PartitionTable &table)
{
    return table.kind == LabelKind::kGpt ? table.gpt_first_usable : 1;
}
uint64_t end_usable(const PartitionTable &table)
{
    return table.kind == LabelKind::kGpt ? gpt_last_usable(table) + 1 : table.disk_sectors;
}

// Finds start and size; the gap and a given size are numbers from outside, and may be as large as a number can be.
Fault place(const PartitionTable &table, const PartitionRequested &requested, Partition *partition)
{
    const uint64_t usable = end_usable(table);
    uint64_t start = 0;
    for (const Partition &other : table.partitions)
        if (other.number < requested.number)
            start = std::max(start, other.end());
    if (start >= usable || requested.gap >= usable - start)
        return Fault::kBeyondEnd;
    start += requested.gap;
    if (start < first_usable(table))
        return Fault::kInLabel;

    uint64_t end = table.disk_sectors - std::min(table.disk_sectors, kTailSectors);
    for (const Partition &other : table.partitions) {
        if (other.start <= start && start < other.end())
            return Fault::kOverlap;
        if (other.start > start)
            end = std::min(end, other.start);
    }
    if (requested.sectors != kToTheEnd) {
        if (requested.sectors > usable - start)
            return Fault::kBeyondEnd;
        end = start + requested.sectors;
        for (const Partition &other : table.partitions)
            if (other.start > start && other.start < end)
                return Fault::kOverlap;
    }
    if (end <= start)
        return Fault::kBeyondEnd;
    partition->start = start;
    partition->sectors = end - start;
    return Fault::kNone;
}

} // namespace

const Partition *table_find(const PartitionTable &table, int number)
{
    for (const Partition &partition : table.partitions)
        if (partition.number == number)
            return &partition;
    return nullptr;
}

bool type_is_extended(uint8_t type)
{
    return type == 0x05 || type == 0x0f || type == 0x85;
}

bool disk_needs_gpt(uint64_t disk_sectors)
{
    return disk_sectors > UINT32_MAX;
}

PartitionTable table_new(uint64_t disk_sectors)
{
    PartitionTable table;
    table.disk_sectors = disk_sectors;
    if (disk_needs_gpt(disk_sectors))
        gpt_clear(&table);
    else
        dos_clear(&table);
    return table;
}

Fault table_add(PartitionTable *table, const PartitionRequested &requested)
{
    if (table->kind == LabelKind::kNone)
        return Fault::kNoLabel;
    if (table_find(*table, requested.number) != nullptr)
        return Fault::kExists;
    if (requested.type == 0 || requested.type == 0xee || type_is_extended(requested.type))
        return Fault::kType;
    PartitionTable next = *table;
    const bool has_entry = requested.number <= kDosPrimaries && !disk_needs_gpt(table->disk_sectors);
    if (next.kind == LabelKind::kDos && !has_entry)
        if (const Fault fault = table_to_gpt(&next); fault != Fault::kNone)
            return fault;
    if (requested.number < 1 ||
        (next.kind == LabelKind::kGpt && static_cast<uint32_t>(requested.number) > next.gpt_entry_count))
        return Fault::kNumber;

    Partition partition;
    partition.number = requested.number;
    partition.type = requested.type;
    if (const Fault fault = place(next, requested, &partition); fault != Fault::kNone)
        return fault;
    if (next.kind == LabelKind::kDos)
        dos_entry_make(&partition);
    else if (!gpt_entry_make(&partition))
        return Fault::kType;
    const auto behind = std::find_if(next.partitions.begin(), next.partitions.end(),
                                     [&](const Partition &other) { return other.number > partition.number; });
    next.partitions.insert(behind, partition);
    *table = std::move(next);
    return Fault::kNone;
}

Fault table_remove(PartitionTable *table, int first, int last)
{
    const auto is_asked_for = [&](const Partition &partition) {
        return partition.number >= first && partition.number <= last;
    };
    bool some_go = false;
    bool some_stay = false;
    for (const Partition &partition : table->partitions) {
        if (!is_logical(*table, partition) && !(table->kind == LabelKind::kDos && type_is_extended(partition.type)))
            continue;
        (is_asked_for(partition) ? some_go : some_stay) = true;
    }
    if (some_go && some_stay)
        return Fault::kLogical;
    std::erase_if(table->partitions, is_asked_for);
    return Fault::kNone;
}
