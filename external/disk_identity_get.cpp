#include <cstdint>
#include <cstring>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include "disk/disk.h"
#include "external/disk_identity.h"
#include "external/nvme_command.h"
#include "external/scsi_command.h"
#include "lib/big_endian.h"
#include "lib/report.h"

// ACS-4, 7.12 and 7.48.
static constexpr uint8_t kIdentifyDevice = 0xec, kSmart = 0xb0, kSmartReadData = 0xd0, kSmartReturnStatus = 0xda;
static constexpr int kSmartGood = 0xc24f,
                     kSmartFailing = 0x2cf4; // LBA registers; the first is that of the command, too
static constexpr size_t kSectorBytes = 512;
static constexpr char kSataVendor[] = "ATA"; // how a translation layer names the vendor (SAT-4, 10.2)

namespace
{

constexpr AtaCommand smart_command(uint8_t feature)
{
    return {kSmart, feature, kSmartGood & 0xff, kSmartGood >> 8};
}

bool is_nvme(const char *disk)
{
    return strncmp(disk_bare_name(disk), "nvme", strlen("nvme")) == 0;
}

// Fills vendor, model and firmware, and tells the bus.
int inquiry_ask(int fd, DiskIdentity *identity)
{
    uint8_t answer[96];
    const int bytes = scsi_inquiry(fd, kScsiStandardInquiry, answer);
    if (bytes < 0 || scsi_inquiry_parse({answer, static_cast<size_t>(bytes)}, identity) != 0)
        return -1;
    identity->bus = strcmp(identity->vendor, kSataVendor) == 0 ? DiskBus::kSata : DiskBus::kSas;
    return 0;
}

int sata_identify(int fd, DiskIdentity *identity)
{
    uint8_t answer[kSectorBytes];
    const int bytes = ata_command(fd, {.command = kIdentifyDevice, .feature = 0, .lba_mid = 0, .lba_high = 0}, answer);
    identity->vendor[0] = '\0';
    return bytes < 0 ? -1 : ata_identity_parse({answer, static_cast<size_t>(bytes)}, identity);
}

int sas_identify(int fd, DiskIdentity *identity)
{
    constexpr int kSerialPage = 0x80;
    uint8_t answer[252];
    const int bytes = scsi_inquiry(fd, kSerialPage, answer);
    return bytes < 0 ? -1 : scsi_serial_parse({answer, static_cast<size_t>(bytes)}, identity);
}

int nvme_identify(int fd, DiskIdentity *identity)
{
    uint8_t answer[kNvmeIdentifyBytes];
    identity->bus = DiskBus::kNvme;
    return nvme_identify_controller(fd, answer) != 0 ? -1 : nvme_identity_parse(answer, identity);
}

int identify(int fd, bool is_nvme_disk, DiskIdentity *identity)
{
    if (is_nvme_disk)
        return nvme_identify(fd, identity);
    if (inquiry_ask(fd, identity) != 0)
        return -1;
    return identity->bus == DiskBus::kSata ? sata_identify(fd, identity) : sas_identify(fd, identity);
}

// The table of attributes is a matter of the maker; the verdict is not.
int sata_smart(int fd, DiskSmart *smart)
{
    uint8_t answer[kSectorBytes];
    const int bytes = ata_command(fd, smart_command(kSmartReadData), answer);
    const bool has_table = bytes > 0 && ata_smart_parse({answer, static_cast<size_t>(bytes)}, smart) == 0;
    const int registers = ata_command_registers(fd, smart_command(kSmartReturnStatus));
    if (registers == kSmartGood)
        smart->verdict = DiskVerdict::kGood;
    else if (registers == kSmartFailing)
        smart->verdict = DiskVerdict::kFailing;
    return has_table || smart->verdict != DiskVerdict::kUnknown ? 0 : -1;
}

// A disk keeps some of these pages and refuses the others.
int sas_smart(int fd, DiskSmart *smart)
{
    static constexpr uint8_t kPages[] = {0x0d, 0x11, 0x15, 0x2f};
    constexpr size_t kDefectHeader = 4, kDefectBytes = 8;
    bool is_told = false;
    uint8_t answer[252];
    for (const uint8_t page : kPages) {
        const int bytes = scsi_log_sense(fd, page, answer);
        is_told =
            (bytes > 0 && answer[0] == page && scsi_log_page_parse({answer, static_cast<size_t>(bytes)}, smart) == 0) ||
            is_told;
    }
    if (scsi_grown_defects(fd, {answer, kDefectHeader}) == static_cast<int>(kDefectHeader))
        smart->bad_sectors = static_cast<int64_t>(big_endian_load(answer + 2, 2) / kDefectBytes);
    return is_told || smart->bad_sectors >= 0 ? 0 : -1;
}

int nvme_smart(int fd, DiskSmart *smart)
{
    uint8_t answer[kNvmeSmartBytes];
    return nvme_smart_log(fd, answer) != 0 ? -1 : nvme_smart_parse(answer, smart);
}

} // namespace

int disk_identity_get(const char *disk, DiskIdentity *identity)
{
    if (identity == nullptr)
        return fail(kErrBadParameter);
    *identity = {};
    const UniqueFd fd = device_open(disk);
    if (!fd)
        return -1;
    uint64_t bytes = 0;
    if (identify(fd.get(), is_nvme(disk), identity) != 0 || ioctl(fd.get(), BLKGETSIZE64, &bytes) != 0) {
        *identity = {};
        return fail(kErrDiskIdentify);
    }
    identity->sectors = bytes / kSectorBytes;
    return 0;
}

int disk_smart_get(const char *disk, DiskSmart *smart)
{
    if (smart == nullptr)
        return fail(kErrBadParameter);
    *smart = kDiskSmartUnknown;
    const UniqueFd fd = device_open(disk);
    if (!fd)
        return -1;
    DiskIdentity identity = {};
    int told = -1;
    if (is_nvme(disk))
        told = nvme_smart(fd.get(), smart);
    else if (inquiry_ask(fd.get(), &identity) == 0)
        told = identity.bus == DiskBus::kSata ? sata_smart(fd.get(), smart) : sas_smart(fd.get(), smart);
    return told == 0 ? 0 : fail(kErrDiskIdentify);
}
