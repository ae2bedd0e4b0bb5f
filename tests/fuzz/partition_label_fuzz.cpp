// Labels of a small disk. The first byte says what is done with the rest, which is the start of the disk:
//   bit 0  the check sums of the GPT are made right, so that what lies behind them is reached
//   bit 1  the GPT stands at the end of the disk alone
//   bits 2 to 4  number of the partition that is added; 0: none
// A label that was read and written is read again as the same.
// Covers: platform/sfdisk/label.cpp(label_read label_write) platform/sfdisk/label_dos.cpp(has_signature
// Covers: entry_bytes partition_push logicals_read dos_is_label dos_read dos_write)
// Covers: platform/sfdisk/label_gpt.cpp
#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include "platform/sfdisk/label.h"
#include "tests/fuzz/fuzz.h"

namespace
{

constexpr uint64_t kSectors = 128;
constexpr size_t kHeaderAt = 512, kEntriesAt = 1024, kBackupHeaderAt = 127 * 512, kBackupEntriesAt = 95 * 512;

uint8_t gblImage[kSectors * kSectorBytes];

void store(size_t at, uint64_t value, size_t bytes)
{
    for (size_t i = 0; i < bytes; i++)
        gblImage[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

void sums_set(size_t header_at, size_t entries_at)
{
    const size_t entries = std::min<size_t>(gblImage[header_at + 80], 128) * 128;
    store(header_at + 88, crc32(0, gblImage + entries_at, static_cast<uInt>(entries)), 4);
    store(header_at + 16, 0, 4);
    store(header_at + 16, crc32(0, gblImage + header_at, 92), 4);
}

void backup_make()
{
    std::copy_n(gblImage + kHeaderAt, kSectorBytes, gblImage + kBackupHeaderAt);
    std::copy_n(gblImage + kEntriesAt, 32 * kSectorBytes, gblImage + kBackupEntriesAt);
    store(kBackupHeaderAt + 24, kBackupHeaderAt / kSectorBytes, 8);
    store(kBackupHeaderAt + 72, kBackupEntriesAt / kSectorBytes, 8);
    gblImage[kHeaderAt] = 0;
}

bool same(const PartitionTable &left, const PartitionTable &right)
{
    return left.kind == right.kind &&
           std::equal(left.partitions.begin(), left.partitions.end(), right.partitions.begin(), right.partitions.end(),
                      [](const Partition &one, const Partition &other) {
                          return one.number == other.number && one.start == other.start &&
                                 one.sectors == other.sectors && one.type == other.type && one.entry == other.entry;
                      });
}

void partition_add_check(PartitionTable *table, int number, uint8_t seed)
{
    const PartitionRequested requested = {number, seed % 50U, seed % 3 == 0 ? kToTheEnd : seed, 0x83};
    if (table_add(table, requested) != Fault::kNone)
        return;
    const Partition *added = table_find(*table, number);
    check(added->sectors > 0 && added->end() <= kSectors);
    for (const Partition &other : table->partitions)
        check(&other == added || other.end() <= added->start || added->end() <= other.start);
}

} // namespace

void fuzz_one(std::string_view input)
{
    static const int kFd = memfd_create("disk", MFD_CLOEXEC);
    const uint8_t what = byte_take(&input);
    std::fill(std::begin(gblImage), std::end(gblImage), uint8_t{0});
    input.copy(reinterpret_cast<char *>(gblImage), sizeof(gblImage));
    if ((what & 2U) != 0)
        backup_make();
    if ((what & 1U) != 0)
        (what & 2U) != 0 ? sums_set(kBackupHeaderAt, kBackupEntriesAt) : sums_set(kHeaderAt, kEntriesAt);
    check(pwrite(kFd, gblImage, sizeof(gblImage), 0) == sizeof(gblImage));

    Disk disk;
    disk.fd.reset(dup(kFd));
    disk.sectors = kSectors;
    PartitionTable table;
    if (label_read(disk, &table) != Fault::kNone || table.kind == LabelKind::kNone)
        return;
    check(std::is_sorted(table.partitions.begin(), table.partitions.end(),
                         [](const Partition &left, const Partition &right) { return left.number < right.number; }));
    static_cast<void>(table_remove(&table, 2, what >> 5));
    if (const int number = what >> 2 & 7; number != 0)
        partition_add_check(&table, number, input.empty() ? uint8_t{0} : bytes_of(input).back());
    PartitionTable again;
    check(label_write(disk, table) == Fault::kNone);
    check(label_read(disk, &again) == Fault::kNone);
    check(same(table, again));
}
