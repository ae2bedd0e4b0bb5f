// A whole disk or an image file, by sectors of 512 bytes.
#pragma once

#include <cstdint>
#include <linux/blkpg.h>
#include <span>

#include "autocleanup/unique.h"
#include "platform/sfdisk/fault.h"

inline constexpr uint64_t kSectorBytes = 512;

// Asks the kernel for one BLKPG operation (linux/blkpg.h). Returns 0; -1 with errno.
using PartitionRequest = int (*)(int fd, int operation, blkpg_partition *partition);

struct Disk {
    UniqueFd fd;
    uint64_t sectors = 0;
    PartitionRequest request = nullptr; // nullptr: an image file, of which the kernel knows no partitions
};

enum class DiskAccess : uint8_t { kRead, kWrite };

// Opens a disk; with kWrite it waits for others that hold it in the same way.
[[nodiscard]] Fault disk_open(const char *path, DiskAccess access, Disk *disk);

// Whole sectors from `sector` on; the span's size is a multiple of kSectorBytes.
[[nodiscard]] Fault disk_read(const Disk &disk, uint64_t sector, std::span<uint8_t> bytes);
[[nodiscard]] Fault disk_write(const Disk &disk, uint64_t sector, std::span<const uint8_t> bytes);
// Returns when what was written has reached the medium.
[[nodiscard]] Fault disk_sync(const Disk &disk);
