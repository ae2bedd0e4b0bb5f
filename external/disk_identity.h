// What a disk says of itself, asked through the kernel: SATA disks by ATA commands inside SCSI ones, SAS disks by SCSI,
// NVMe disks by the admin requests of their device. Reads only.
#pragma once

#include <cstdint>
#include <span>

enum class DiskBus : int { kUnknown = 0, kSata, kSas, kNvme };

struct DiskIdentity {
    DiskBus bus;
    char vendor[9]; // of SAS disks; empty on others
    char model[41];
    char firmware[9];
    char serial[41];
    uint64_t sectors; // of 512 bytes
};

enum class DiskVerdict : int { kUnknown = 0, kGood, kFailing };

// -1 where a disk does not tell.
struct DiskSmart {
    DiskVerdict verdict; // the disk's own
    int temperature_c;
    int64_t power_on_hours;
    int64_t bad_sectors;  // reallocated (SATA), grown defects (SAS), media errors (NVMe)
    int64_t used_percent; // of an SSD's rated writes, on SAS and NVMe; may be above 100
};
inline constexpr DiskSmart kDiskSmartUnknown = {DiskVerdict::kUnknown, -1, -1, -1, -1};

// Ask a disk, by its kernel name or device path. They return 0; -1 with 0x0d00, 0x0900 when it cannot be opened (errno
// tells), 0x3300 when it does not answer or answers nonsense.
[[nodiscard]] int disk_identity_get(const char *disk, DiskIdentity *identity);
[[nodiscard]] int disk_smart_get(const char *disk, DiskSmart *smart);

// Readers of the answers, each of as many bytes as came. They return 0; -1 with 0x4000 when an answer is too short,
// fails its checksum or lacks what makes it one. What an answer does not tell stays as it was in the record.

// IDENTIFY DEVICE and SMART READ DATA (ACS-4, 7.12 and 7.48.6), one sector each.
[[nodiscard]] int ata_identity_parse(std::span<const uint8_t> identify, DiskIdentity *identity);
[[nodiscard]] int ata_smart_parse(std::span<const uint8_t> smart_data, DiskSmart *smart);
// Standard INQUIRY data, page 0x80 of it (SPC-5, 6.7.2 and 7.7.19) and log pages (7.3, SBC-4 6.4).
[[nodiscard]] int scsi_inquiry_parse(std::span<const uint8_t> inquiry, DiskIdentity *identity);
[[nodiscard]] int scsi_serial_parse(std::span<const uint8_t> page, DiskIdentity *identity);
[[nodiscard]] int scsi_log_page_parse(std::span<const uint8_t> page, DiskSmart *smart);
// Identify Controller data and the SMART log (NVM Express 1.4, 5.15.2.2 and 5.14.1.2).
[[nodiscard]] int nvme_identity_parse(std::span<const uint8_t> controller, DiskIdentity *identity);
[[nodiscard]] int nvme_smart_parse(std::span<const uint8_t> log, DiskSmart *smart);
