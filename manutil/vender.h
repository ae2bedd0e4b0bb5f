// The factory's record of one unit: hardware addresses, serial numbers, test flags. It is a file on the boot partition,
// replaced whole, so that a cut leaves the old record or the new one. docs/vendor-record.md has its layout.
//
// Reading and writing take the lock of the boot partition; what reads, changes and writes holds the record's semaphore
// all the while.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t kVenderMacBytes = 6;
inline constexpr int kVenderMacsMax = 16;
inline constexpr size_t kVenderSerialRoom = 32; // with the NUL, as all texts of the record

// The factory's tests. A flag is a VenderTestResult.
struct VenderTestFlags {
    uint32_t pt_mem_cnt; // kVenderNeverSet: none of this was ever set
    uint32_t pt_dma_cnt;
    uint32_t ft_burnin_cnt;
    uint8_t procomm[16], pre_burnin[16], final_functional[32], final_burnin[16];
};
inline constexpr uint32_t kVenderNeverSet = UINT32_MAX;
enum VenderTestResult : uint8_t { kVenderNotTested = 0, kVenderPassed = 1, kVenderFailed = 2 };

struct VenderMac {
    uint8_t address[kVenderMacBytes];
    uint8_t is_set; // 1 when there is one
    uint8_t check;  // vender_mac_check of the address
};

struct VenderRecord {
    uint32_t format_version; // what the kernel says of this board
    VenderMac macs[kVenderMacsMax];
    char serial[64];        // "<serial>,CHK=<check>"; empty: none
    char custom_serial[32]; // empty: none
    VenderTestFlags flags;
};

// Read and write the whole record. A unit without one, or with an erased one, reads as one in which nothing was ever
// set; the format version is the kernel's when it says one. A write is tried three times, and refused when the format
// version or the length of a serial that is there would change. Return 0; -1 with 0x2600 for a damaged record or a
// refused write, or what the access left. Failures are told on standard output.
[[nodiscard]] int ManutilGetAll(VenderRecord *record);
[[nodiscard]] int ManutilSetAll(const VenderRecord &record);

// The semaphore around every read-change-write of the record. A holder that dies gives it back. Return 0; -1, logged.
[[nodiscard]] int NORVManutilVenderSemaphoreEnter();
int NORVManutilVenderSemaphoreRelease();

// Reads the record for a question, under the semaphore. Returns 0; -1 as above.
[[nodiscard]] int vender_get(VenderRecord *record);

// Reads the record, has it changed, and writes it back, under the semaphore. `change` returns 0, or a negative number
// to write nothing. Returns what it returned; -1 when the record could not be read or written.
int vender_update(int (*change)(VenderRecord *record, void *context), void *context);

// Addresses are numbered from 1 to kVenderMacsMax. Return 0; -1 with 0x0d00 for another number, 0x2600 when the stored
// one fails its check, 0x2000 when there is none, or what the access to the record left.
[[nodiscard]] int NORVManutilMacGet(int number, uint8_t *mac);
[[nodiscard]] int NORVManutilMacSet(int number, const uint8_t *mac);

// Reads the serial. Returns 0; -1 with 0x2600 when it fails its check, 0x2000 when there is none.
[[nodiscard]] int NORVManutilSnGet(char *serial, size_t size);
// Stores the serial: 1 to 31 letters, digits, '-' and '_'. Returns 0; -1 with 0x0d00 for another text.
[[nodiscard]] int NORVManutilSnSet(const char *serial);

// Stores the custom serial, at most 31 characters. Returns 0; -1 with 0x0d00 when it is longer.
[[nodiscard]] int NORVManutilCustomSnSet(const char *serial);

// The format version that the kernel says. Returns 0; -1 with 0x0900, or 0x4000 when it is no number.
[[nodiscard]] int vender_format_version_get(uint32_t *version);
