// What disks and enclosures answer. The input's first byte chooses the reader.
// Covers: external/disk_identity_parse.cpp external/ses_configuration_parse.cpp

#include "external/disk_identity.h"
#include "external/enclosure.h"
#include "tests/fuzz/fuzz.h"

template <size_t kRoom> static void require_text(const char (&field)[kRoom])
{
    check_ended(field);
    const size_t length = strlen(field);
    check(length == 0 || (field[0] != ' ' && field[length - 1] != ' '), "blanks at the ends");
    for (size_t i = 0; i < length; i++)
        check(field[i] >= ' ' && field[i] < 0x7f, "a byte that cannot be shown");
}

void fuzz_one(std::string_view input)
{
    using IdentityRead = int (*)(std::span<const uint8_t>, DiskIdentity *);
    using SmartRead = int (*)(std::span<const uint8_t>, DiskSmart *);
    static constexpr IdentityRead kIdentityReads[] = {ata_identity_parse, scsi_inquiry_parse, scsi_serial_parse,
                                                      nvme_identity_parse};
    static constexpr SmartRead kSmartReads[] = {ata_smart_parse, scsi_log_page_parse, nvme_smart_parse};
    const unsigned kind = byte_take(&input) % 8U;
    const std::span<const uint8_t> answer = bytes_of(input);
    if (kind < 4) {
        DiskIdentity disk = {};
        const int result = kIdentityReads[kind](answer, &disk);
        check(result != 0 || kind == 2 || disk.model[0] != '\0', "a disk without a model");
        require_text(disk.vendor);
        require_text(disk.model);
        require_text(disk.firmware);
        require_text(disk.serial);
    } else if (kind < 7) {
        DiskSmart smart = kDiskSmartUnknown;
        static_cast<void>(kSmartReads[kind - 4](answer, &smart));
        check(smart.power_on_hours >= -1 && smart.bad_sectors >= -1 && smart.used_percent >= -1 &&
                  smart.temperature_c >= -1,
              "a negative count");
    } else {
        SesConfiguration configuration = {};
        if (ses_configuration_parse(answer.data(), answer.size(), &configuration) == 0)
            require_text(configuration.model);
    }
}
