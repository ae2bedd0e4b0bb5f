// The MS-DOS label: four entries in sector 0, and a chain of such sectors inside an extended partition. What counts as
// a label and which number a logical partition has follow the kernel (block/partitions/msdos.c).
#include "platform/sfdisk/label.h"

#include <algorithm>
#include <cstdlib>

#include "platform/sfdisk/format.h"

namespace
{

struct DosEntry {
    uint8_t active;
    uint8_t first_chs[3];
    uint8_t type;
    uint8_t last_chs[3];
    uint32_t start, sectors;
};
constexpr FormatField kDosEntry[] = {
    FORMAT_FIELD(0, DosEntry, active),   FORMAT_FIELD(1, DosEntry, first_chs), FORMAT_FIELD(4, DosEntry, type),
    FORMAT_FIELD(5, DosEntry, last_chs), FORMAT_FIELD(8, DosEntry, start),     FORMAT_FIELD(12, DosEntry, sectors),
};
constexpr size_t kDosEntryBytes = 16;
static_assert(format_end(kDosEntry) == kDosEntryBytes);

constexpr size_t kDiskIdAt = 440;
constexpr size_t kEntriesAt = 446;
constexpr size_t kSignatureAt = 510;
constexpr int kChainLimit = 100; // links of a chain, as in the kernel
constexpr int kNumberLimit = 255;

const uint8_t *entry_bytes(const uint8_t *sector, int slot)
{
    return sector + kEntriesAt + static_cast<size_t>(slot) * kDosEntryBytes;
}

bool has_signature(const uint8_t *sector)
{
    return sector[kSignatureAt] == 0x55 && sector[kSignatureAt + 1] == 0xaa;
}

void partition_push(PartitionTable *table, int number, uint64_t start, const DosEntry &entry, const uint8_t *bytes)
{
    Partition partition;
    partition.number = number;
    partition.start = start;
    partition.sectors = entry.sectors;
    partition.type = entry.type;
    std::copy_n(bytes, kDosEntryBytes, partition.entry.begin());
    table->partitions.push_back(partition);
}

// Walks the chain that begins at the extended partition `first` of `first_sectors`.
Fault logicals_read(const Disk &disk, uint64_t first, uint64_t first_sectors, int *next_number, PartitionTable *table)
{
    uint64_t here = first;
    uint64_t here_sectors = first_sectors;
    for (int link = 0; link < kChainLimit && here < disk.sectors; link++) {
        std::array<uint8_t, kSectorBytes> sector;
        if (const Fault fault = disk_read(disk, here, sector); fault != Fault::kNone)
            return fault;
        if (!has_signature(sector.data()))
            return Fault::kNone;
        const DosEntry *onward = nullptr;
        DosEntry entries[kDosPrimaries];
        for (int slot = 0; slot < kDosPrimaries; slot++) {
            const uint8_t *bytes = entry_bytes(sector.data(), slot);
            entries[slot] = format_read<DosEntry>(kDosEntry, bytes);
            const DosEntry &entry = entries[slot];
            if (entry.sectors == 0)
                continue;
            if (type_is_extended(entry.type)) {
                if (onward == nullptr)
                    onward = &entries[slot];
                continue;
            }
            const uint64_t start = here + entry.start;
            const bool is_inside = uint64_t{entry.start} + entry.sectors <= here_sectors && start >= first &&
                                   start + entry.sectors <= first + first_sectors;
            if (slot >= 2 && !is_inside) // the last two often hold garbage
                continue;
            if (*next_number > kNumberLimit)
                return Fault::kNone;
            partition_push(table, (*next_number)++, start, entry, bytes);
        }
        if (onward == nullptr)
            return Fault::kNone;
        here = first + onward->start;
        here_sectors = onward->sectors;
    }
    return Fault::kNone;
}

// A sector as cylinder, head and sector of the usual geometry of 255 heads and 63 sectors; the largest values when it
// does not fit.
void chs_set(uint8_t (&chs)[3], uint64_t sector)
{
    const uint64_t cylinder = sector / (255 * 63);
    if (cylinder > 1023) {
        chs[0] = 0xfe;
        chs[1] = chs[2] = 0xff;
        return;
    }
    chs[0] = static_cast<uint8_t>(sector / 63 % 255);
    chs[1] = static_cast<uint8_t>((sector % 63 + 1) | (cylinder >> 8 << 6));
    chs[2] = static_cast<uint8_t>(cylinder);
}

} // namespace

// The sector of a FAT file system has the same signature, and is told apart by what stands for the active flags.
bool dos_is_label(const uint8_t *sector0)
{
    if (!has_signature(sector0))
        return false;
    for (int slot = 0; slot < kDosPrimaries; slot++)
        if ((format_read<DosEntry>(kDosEntry, entry_bytes(sector0, slot)).active & 0x7f) != 0)
            return false;
    return true;
}

Fault dos_read(const Disk &disk, PartitionTable *table)
{
    table->kind = LabelKind::kDos;
    DosEntry entries[kDosPrimaries];
    for (int slot = 0; slot < kDosPrimaries; slot++) {
        const uint8_t *bytes = entry_bytes(table->sector0.data(), slot);
        entries[slot] = format_read<DosEntry>(kDosEntry, bytes);
        if (entries[slot].sectors != 0)
            partition_push(table, slot + 1, entries[slot].start, entries[slot], bytes);
    }
    int next_number = kDosPrimaries + 1;
    for (const DosEntry &entry : entries) {
        if (entry.sectors == 0 || !type_is_extended(entry.type) || entry.start == 0)
            continue;
        const Fault fault = logicals_read(disk, entry.start, entry.sectors, &next_number, table);
        if (fault != Fault::kNone)
            return fault;
    }
    return Fault::kNone;
}

Fault dos_write(const Disk &disk, const PartitionTable &table)
{
    std::array<uint8_t, kSectorBytes> sector = table.sector0;
    std::fill(sector.begin() + kEntriesAt, sector.begin() + kSignatureAt, uint8_t{0});
    for (const Partition &partition : table.partitions)
        if (partition.number <= kDosPrimaries) // the chain of the logical ones has not changed
            std::copy_n(partition.entry.begin(), kDosEntryBytes,
                        sector.begin() + kEntriesAt + (partition.number - 1) * static_cast<int>(kDosEntryBytes));
    if (const Fault fault = disk_write(disk, 0, sector); fault != Fault::kNone)
        return fault;
    return disk_sync(disk);
}

void dos_clear(PartitionTable *table)
{
    table->kind = LabelKind::kDos;
    table->partitions.clear();
    std::fill(table->sector0.begin() + kDiskIdAt, table->sector0.end(), uint8_t{0});
    arc4random_buf(table->sector0.data() + kDiskIdAt, 4);
    table->sector0[kSignatureAt] = 0x55;
    table->sector0[kSignatureAt + 1] = 0xaa;
}

void dos_entry_make(Partition *partition)
{
    DosEntry entry = {};
    entry.type = partition->type;
    entry.start = static_cast<uint32_t>(partition->start);
    entry.sectors = static_cast<uint32_t>(partition->sectors);
    chs_set(entry.first_chs, partition->start);
    chs_set(entry.last_chs, partition->end() - 1);
    format_write(kDosEntry, entry, partition->entry.data());
}
