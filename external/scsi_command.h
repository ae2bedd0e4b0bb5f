// The few SCSI commands that are sent, through the library of sg3_utils. None writes to a medium.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "autocleanup/unique.h"

inline constexpr int kScsiStandardInquiry = -1;

// Opens a disk or another SCSI device for commands, by kernel name or path, close-on-exec. Empty with 0x0d00 or 0x0900;
// errno tells why.
[[nodiscard]] UniqueFd device_open(const char *device);

// Each sends one command and puts the answer into `answer`, cleared before. They return the bytes that came; -1 with
// 0x8100 when the device refuses or does not answer.
[[nodiscard]] int scsi_inquiry(int fd, int page, std::span<uint8_t> answer); // vital product data, or the standard one
[[nodiscard]] int scsi_log_sense(int fd, int page, std::span<uint8_t> answer);
[[nodiscard]] int scsi_receive_diagnostic(int fd, int page, std::span<uint8_t> answer);
[[nodiscard]] int scsi_grown_defects(int fd, std::span<uint8_t> answer); // READ DEFECT DATA(10)

// An ATA command inside a SCSI one (SAT-4, ATA PASS-THROUGH(16)): one sector in, or nothing where `answer` is empty and
// the registers are wanted.
struct AtaCommand {
    uint8_t command, feature;
    uint8_t lba_mid, lba_high;
};
// Returns the bytes that came; -1 as above.
[[nodiscard]] int ata_command(int fd, const AtaCommand &command, std::span<uint8_t> answer);
// For a command without data. Returns its LBA registers, high * 256 + mid; -1 as above.
[[nodiscard]] int ata_command_registers(int fd, const AtaCommand &command);

// Text of a fixed field, blanks at its ends removed. A byte that is not printable ASCII becomes '?'.
void field_text(std::span<const uint8_t> field, char *text, size_t size);
