// The GUID partition table (UEFI, chapter 5): sector 0 announces it, a header in sector 1 with its
// entries behind it, and the same again at the end of the disk.
#include "platform/sfdisk/label.h"

#include <algorithm>
#include <cstdlib>
#include <zlib.h>

#include "platform/sfdisk/format.h"

namespace
{

using Guid = std::array<uint8_t, 16>; // as on disk

struct GptHeader {
    uint8_t signature[8];
    uint32_t revision, header_bytes, header_crc;
    uint64_t here, other; // sectors of the two headers
    uint64_t first_usable, last_usable;
    Guid disk_id;
    uint64_t entries_at; // sector
    uint32_t entry_count, entry_bytes, entries_crc;
};
constexpr FormatField kGptHeader[] = {
    FORMAT_FIELD(0, GptHeader, signature),     FORMAT_FIELD(8, GptHeader, revision),
    FORMAT_FIELD(12, GptHeader, header_bytes), FORMAT_FIELD(16, GptHeader, header_crc),
    FORMAT_FIELD(24, GptHeader, here),         FORMAT_FIELD(32, GptHeader, other),
    FORMAT_FIELD(40, GptHeader, first_usable), FORMAT_FIELD(48, GptHeader, last_usable),
    FORMAT_FIELD(56, GptHeader, disk_id),      FORMAT_FIELD(72, GptHeader, entries_at),
    FORMAT_FIELD(80, GptHeader, entry_count),  FORMAT_FIELD(84, GptHeader, entry_bytes),
    FORMAT_FIELD(88, GptHeader, entries_crc),
};
constexpr uint32_t kHeaderBytes = 92;
constexpr size_t kHeaderCrcAt = 16;
static_assert(format_end(kGptHeader) == kHeaderBytes);

struct GptEntry {
    Guid type, id;
    uint64_t first, last; // sectors, both inside
};
constexpr FormatField kGptEntry[] = {
    FORMAT_FIELD(0, GptEntry, type), FORMAT_FIELD(16, GptEntry, id), FORMAT_FIELD(32, GptEntry, first),
    FORMAT_FIELD(40, GptEntry, last), // attributes and name follow, and are zero or kept
};
constexpr uint32_t kEntryBytes = 128;
static_assert(format_end(kGptEntry) == 48 && kEntryBytes == sizeof(Partition::entry));

constexpr uint8_t kSignature[8] = {'E', 'F', 'I', ' ', 'P', 'A', 'R', 'T'};
constexpr uint64_t kPrimaryAt = 1;
constexpr uint64_t kEntriesAt = 2;
constexpr uint32_t kEntryLimit = 1024; // more are not looked at: such a label counts as damaged

struct GptType {
    uint8_t type;
    Guid guid;
};
constexpr GptType kTypes[] = {
    {0x83, {0xaf, 0x3d, 0xc6, 0x0f, 0x83, 0x84, 0x72, 0x47, 0x8e, 0x79, 0x3d, 0x69, 0xd8, 0x47, 0x7d, 0xe4}}, // Linux
    {0x82, {0x6d, 0xfd, 0x57, 0x06, 0xab, 0xa4, 0xc4, 0x43, 0x84, 0xe5, 0x09, 0x33, 0xc8, 0x4b, 0x4f, 0x4f}}, // swap
    {0xfd, {0x0f, 0x88, 0x9d, 0xa1, 0xfc, 0x05, 0x3b, 0x4d, 0xa0, 0x06, 0x74, 0x3f, 0x0f, 0x84, 0x91, 0x1e}}, // array
    {0x8e, {0x79, 0xd3, 0xd6, 0xe6, 0x07, 0xf5, 0xc2, 0x44, 0xa2, 0x3c, 0x23, 0x8f, 0x2a, 0x3d, 0xf9, 0x28}}, // LVM
    {0xef, {0x28, 0x73, 0x2a, 0xc1, 0x1f, 0xf8, 0xd2, 0x11, 0xba, 0x4b, 0x00, 0xa0, 0xc9, 0x3e, 0xc9, 0x3b}}, // EFI
    {0x07, {0xa2, 0xa0, 0xd0, 0xeb, 0xe5, 0xb9, 0x33, 0x44, 0x87, 0xc0, 0x68, 0xb6, 0xb7, 0x26, 0x99, 0xc7}}, // basic
};
constexpr uint8_t kTypeOther = 0xee; // how a partition with any other GUID is listed

uint64_t entry_sectors(uint32_t entry_count)
{
    return (uint64_t{entry_count} * kEntryBytes + kSectorBytes - 1) / kSectorBytes;
}

uint32_t crc_of(std::span<const uint8_t> bytes)
{
    return static_cast<uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

bool has_signature(const uint8_t *sector)
{
    return std::equal(std::begin(kSignature), std::end(kSignature), sector);
}

// Whether a header is whole and says nothing that contradicts itself, its place or the disk.
bool header_read(const Disk &disk, uint64_t at, GptHeader *header)
{
    std::array<uint8_t, kSectorBytes> sector;
    if (disk_read(disk, at, sector) != Fault::kNone || !has_signature(sector.data()))
        return false;
    *header = format_read<GptHeader>(kGptHeader, sector.data());
    if (header->header_bytes < kHeaderBytes || header->header_bytes > kSectorBytes)
        return false;
    std::fill_n(sector.begin() + kHeaderCrcAt, sizeof(header->header_crc), uint8_t{0});
    if (crc_of(std::span(sector).first(header->header_bytes)) != header->header_crc || header->here != at ||
        header->entry_bytes != kEntryBytes || header->entry_count == 0 || header->entry_count > kEntryLimit)
        return false;
    const uint64_t entries = entry_sectors(header->entry_count);
    return header->first_usable >= kEntriesAt + entries && header->first_usable <= header->last_usable &&
           header->last_usable < disk.sectors && disk.sectors - header->last_usable >= entries + 2 &&
           (at == kPrimaryAt ? header->entries_at == kEntriesAt
                             : header->entries_at > header->last_usable && header->entries_at <= at - entries);
}

uint8_t type_of(const Guid &guid)
{
    for (const GptType &row : kTypes)
        if (row.guid == guid)
            return row.type;
    return kTypeOther;
}

bool entries_parse(const GptHeader &header, std::span<const uint8_t> bytes, PartitionTable *table)
{
    table->partitions.clear();
    for (uint32_t index = 0; index < header.entry_count; index++) {
        const uint8_t *entry_bytes = bytes.data() + size_t{index} * kEntryBytes;
        const auto entry = format_read<GptEntry>(kGptEntry, entry_bytes);
        if (entry.type == Guid{})
            continue;
        if (entry.first < header.first_usable || entry.first > entry.last || entry.last > header.last_usable)
            return false;
        Partition partition;
        partition.number = static_cast<int>(index) + 1;
        partition.start = entry.first;
        partition.sectors = entry.last - entry.first + 1;
        partition.type = type_of(entry.type);
        std::copy_n(entry_bytes, kEntryBytes, partition.entry.begin());
        table->partitions.push_back(partition);
    }
    return true;
}

bool copy_read(const Disk &disk, uint64_t at, PartitionTable *table)
{
    GptHeader header;
    if (!header_read(disk, at, &header))
        return false;
    std::vector<uint8_t> bytes(entry_sectors(header.entry_count) * kSectorBytes);
    if (disk_read(disk, header.entries_at, bytes) != Fault::kNone ||
        crc_of(std::span(bytes).first(size_t{header.entry_count} * kEntryBytes)) != header.entries_crc ||
        !entries_parse(header, bytes, table))
        return false;
    table->kind = LabelKind::kGpt;
    table->gpt_entry_count = header.entry_count;
    table->gpt_first_usable = header.first_usable;
    table->gpt_disk_id = header.disk_id;
    return true;
}

Fault copy_write(const Disk &disk, const PartitionTable &table, uint64_t at, std::span<const uint8_t> entries)
{
    const uint64_t last = disk.sectors - 1;
    GptHeader header = {};
    std::copy_n(kSignature, sizeof(kSignature), header.signature);
    header.revision = 0x00010000;
    header.header_bytes = kHeaderBytes;
    header.here = at;
    header.other = at == kPrimaryAt ? last : kPrimaryAt;
    header.first_usable = table.gpt_first_usable;
    header.last_usable = gpt_last_usable(table);
    header.disk_id = table.gpt_disk_id;
    header.entries_at = at == kPrimaryAt ? kEntriesAt : header.last_usable + 1;
    header.entry_count = table.gpt_entry_count;
    header.entry_bytes = kEntryBytes;
    header.entries_crc = crc_of(entries.first(size_t{table.gpt_entry_count} * kEntryBytes));
    std::array<uint8_t, kSectorBytes> sector = {};
    format_write(kGptHeader, header, sector.data());
    header.header_crc = crc_of(std::span(sector).first(kHeaderBytes));
    format_write(kGptHeader, header, sector.data());

    if (const Fault fault = disk_write(disk, header.entries_at, entries); fault != Fault::kNone)
        return fault;
    if (const Fault fault = disk_write(disk, at, sector); fault != Fault::kNone)
        return fault;
    return disk_sync(disk);
}

// A random GUID, version 4.
Guid guid_new()
{
    Guid guid = {};
    arc4random_buf(guid.data(), guid.size());
    guid[7] = static_cast<uint8_t>((guid[7] & 0x0f) | 0x40);
    guid[8] = static_cast<uint8_t>((guid[8] & 0x3f) | 0x80);
    return guid;
}

} // namespace

bool gpt_is_announced(const uint8_t *sector0)
{
    for (size_t at = 446; at < 510; at += 16)
        if (sector0[at + 4] == 0xee)
            return true;
    return false;
}

uint64_t gpt_last_usable(const PartitionTable &table)
{
    return table.disk_sectors - 2 - entry_sectors(table.gpt_entry_count);
}

Fault gpt_read(const Disk &disk, PartitionTable *table)
{
    return copy_read(disk, kPrimaryAt, table) || copy_read(disk, disk.sectors - 1, table) ? Fault::kNone
                                                                                          : Fault::kDamaged;
}

// The backup goes first: while one copy is being written, the other is whole. Sector 0 goes last, so that an MS-DOS
// label holds until the GPT that takes its place is complete.
Fault gpt_write(const Disk &disk, const PartitionTable &table)
{
    std::vector<uint8_t> entries(entry_sectors(table.gpt_entry_count) * kSectorBytes);
    for (const Partition &partition : table.partitions)
        std::copy_n(partition.entry.begin(), kEntryBytes,
                    entries.begin() + (partition.number - 1) * static_cast<int>(kEntryBytes));
    for (const uint64_t at : {disk.sectors - 1, kPrimaryAt})
        if (const Fault fault = copy_write(disk, table, at, entries); fault != Fault::kNone)
            return fault;
    if (const Fault fault = disk_write(disk, 0, table.sector0); fault != Fault::kNone)
        return fault;
    return disk_sync(disk);
}

Fault gpt_erase(const Disk &disk)
{
    for (const uint64_t at : {kPrimaryAt, disk.sectors - 1}) {
        std::array<uint8_t, kSectorBytes> sector;
        if (disk_read(disk, at, sector) != Fault::kNone || !has_signature(sector.data()))
            continue;
        sector = {};
        if (const Fault fault = disk_write(disk, at, sector); fault != Fault::kNone)
            return fault;
    }
    return Fault::kNone;
}

void gpt_clear(PartitionTable *table)
{
    dos_clear(table);
    table->kind = LabelKind::kGpt;
    table->gpt_entry_count = kGptEntryCount;
    table->gpt_first_usable = kEntriesAt + entry_sectors(kGptEntryCount);
    table->gpt_disk_id = guid_new();
    // One entry over the whole disk, so that programs that know only MS-DOS labels find no free room.
    const auto sectors = static_cast<uint32_t>(std::min<uint64_t>(table->disk_sectors - 1, UINT32_MAX));
    const uint8_t announce[] = {0, 0x00, 0x02, 0x00, 0xee, 0xff, 0xff, 0xff, 1, 0, 0, 0};
    std::copy(std::begin(announce), std::end(announce), table->sector0.begin() + 446);
    memcpy(table->sector0.data() + 446 + 12, &sectors, sizeof(sectors));
}

bool gpt_entry_make(Partition *partition)
{
    for (const GptType &row : kTypes) {
        if (row.type != partition->type)
            continue;
        partition->entry = {};
        const GptEntry entry = {row.guid, guid_new(), partition->start, partition->end() - 1};
        format_write(kGptEntry, entry, partition->entry.data());
        return true;
    }
    return false;
}
