#include "platform/sfdisk/label.h"

Fault label_read(const Disk &disk, PartitionTable *table)
{
    *table = {};
    table->disk_sectors = disk.sectors;
    if (const Fault fault = disk_read(disk, 0, table->sector0); fault != Fault::kNone)
        return fault;
    if (!dos_is_label(table->sector0.data()))
        return Fault::kNone;
    return gpt_is_announced(table->sector0.data()) ? gpt_read(disk, table) : dos_read(disk, table);
}

Fault label_write(const Disk &disk, const PartitionTable &table)
{
    return table.kind == LabelKind::kGpt ? gpt_write(disk, table) : dos_write(disk, table);
}

Fault label_erase(const Disk &disk)
{
    static constexpr uint8_t kZeros[kSectorBytes] = {};
    if (const Fault fault = gpt_erase(disk); fault != Fault::kNone)
        return fault;
    if (const Fault fault = disk_write(disk, 0, kZeros); fault != Fault::kNone)
        return fault;
    return disk_sync(disk);
}
