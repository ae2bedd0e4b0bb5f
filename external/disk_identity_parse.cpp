#include <algorithm>
#include <iterator>

#include "external/disk_identity.h"
#include "external/scsi_command.h"
#include "lib/big_endian.h"
#include "lib/little_endian.h"
#include "lib/report.h"

namespace
{

constexpr size_t kSectorBytes = 512;

// Fields of text within an answer.
struct TextField {
    uint16_t at, bytes;
    uint16_t member, room; // in DiskIdentity
};
#define TEXT_FIELD(at, bytes, name)                                                                                    \
    {                                                                                                                  \
        at, bytes, offsetof(DiskIdentity, name), sizeof(DiskIdentity::name)                                            \
    }

void fields_read(std::span<const TextField> fields, std::span<const uint8_t> bytes, DiskIdentity *identity)
{
    for (const TextField &field : fields)
        field_text(bytes.subspan(field.at, field.bytes), reinterpret_cast<char *>(identity) + field.member, field.room);
}

bool sums_to_zero(std::span<const uint8_t> bytes)
{
    unsigned sum = 0;
    for (const uint8_t byte : bytes)
        sum += byte;
    return (sum & 0xff) == 0;
}

int64_t counter(uint64_t value)
{
    return static_cast<int64_t>(std::min(value, static_cast<uint64_t>(INT64_MAX)));
}

// One parameter of a log page behind its header.
using LogParameterRead = void (*)(uint64_t code, std::span<const uint8_t> value, DiskSmart *smart);

void defects_by_informational_exceptions(uint64_t code, std::span<const uint8_t> value, DiskSmart *smart)
{
    // SPC-5, annex F: these additional sense codes tell of a failure to come.
    constexpr uint8_t kWarning = 0x0b, kFailurePrediction = 0x5d;
    if (code != 0 || value.size() < 2)
        return;
    const bool is_failing = value[0] == kWarning || value[0] == kFailurePrediction;
    smart->verdict = is_failing ? DiskVerdict::kFailing : DiskVerdict::kGood;
}

void temperature_read(uint64_t code, std::span<const uint8_t> value, DiskSmart *smart)
{
    constexpr uint8_t kNotTold = 0xff;
    if (code == 0 && value.size() >= 2 && value[1] != kNotTold)
        smart->temperature_c = value[1];
}

void endurance_read(uint64_t code, std::span<const uint8_t> value, DiskSmart *smart)
{
    if (code == 1 && value.size() >= 4)
        smart->used_percent = value[3];
}

void background_scan_read(uint64_t code, std::span<const uint8_t> value, DiskSmart *smart)
{
    if (code == 0 && value.size() >= 4)
        smart->power_on_hours = counter(big_endian_load(value.data(), 4) / 60); // it counts minutes
}

constexpr struct {
    uint8_t page;
    LogParameterRead read;
} kLogPages[] = {
    {0x0d, temperature_read},
    {0x11, endurance_read},
    {0x15, background_scan_read},
    {0x2f, defects_by_informational_exceptions},
};

} // namespace

int ata_identity_parse(std::span<const uint8_t> identify, DiskIdentity *identity)
{
    constexpr uint8_t kNotAta = 0x80;            // in the high byte of word 0
    constexpr size_t kIntegrity = 510;           // word 255
    constexpr uint8_t kChecksumSignature = 0xa5; // its low byte, where the high byte is a checksum
    static constexpr TextField kFields[] = {TEXT_FIELD(20, 20, serial), TEXT_FIELD(46, 8, firmware),
                                            TEXT_FIELD(54, 40, model)};
    if (identify.size() < kSectorBytes)
        return fail(kErrBadFormat);
    identify = identify.first(kSectorBytes);
    if ((identify[1] & kNotAta) != 0 || (identify[kIntegrity] == kChecksumSignature && !sums_to_zero(identify)))
        return fail(kErrBadFormat);
    uint8_t text[kSectorBytes]; // the first of two characters is in a word's high byte
    for (size_t i = 0; i < kSectorBytes; i++)
        text[i] = identify[i ^ 1];
    fields_read(kFields, text, identity);
    return identity->model[0] != '\0' ? 0 : fail(kErrBadFormat);
}

int ata_smart_parse(std::span<const uint8_t> smart_data, DiskSmart *smart)
{
    // ACS leaves the table to the makers, who agree on its form and on these numbers.
    constexpr size_t kTableAt = 2, kAttributes = 30, kAttributeBytes = 12, kRawAt = 5;
    enum : uint8_t { kReallocated = 5, kPowerOnHours = 9, kAirflowTemperature = 190, kTemperature = 194 };
    if (smart_data.size() < kSectorBytes || !sums_to_zero(smart_data.first(kSectorBytes)))
        return fail(kErrBadFormat);
    for (size_t i = 0; i < kAttributes; i++) {
        const auto attribute = smart_data.subspan(kTableAt + i * kAttributeBytes, kAttributeBytes);
        const auto raw = attribute.subspan(kRawAt);
        switch (attribute[0]) {
        case kReallocated:
            smart->bad_sectors = counter(little_endian_load(raw.data(), 4));
            break;
        case kPowerOnHours:
            smart->power_on_hours = counter(little_endian_load(raw.data(), 4));
            break;
        case kAirflowTemperature:
            smart->temperature_c = smart->temperature_c < 0 ? raw[0] : smart->temperature_c;
            break;
        case kTemperature:
            smart->temperature_c = raw[0];
            break;
        default:
            break;
        }
    }
    return 0;
}

int scsi_inquiry_parse(std::span<const uint8_t> inquiry, DiskIdentity *identity)
{
    constexpr size_t kTextEnd = 36;
    constexpr uint8_t kTypeMask = 0xff, kDisk = 0x00, kZonedDisk = 0x14; // peripheral qualifier 0: it is there
    static constexpr TextField kFields[] = {TEXT_FIELD(8, 8, vendor), TEXT_FIELD(16, 16, model),
                                            TEXT_FIELD(32, 4, firmware)};
    if (inquiry.size() < kTextEnd)
        return fail(kErrBadFormat);
    const int type = inquiry[0] & kTypeMask;
    if (type != kDisk && type != kZonedDisk)
        return fail(kErrBadFormat);
    fields_read(kFields, inquiry, identity);
    return identity->model[0] != '\0' ? 0 : fail(kErrBadFormat);
}

int scsi_serial_parse(std::span<const uint8_t> page, DiskIdentity *identity)
{
    constexpr uint8_t kSerialPage = 0x80;
    if (page.size() < 4 || page[1] != kSerialPage)
        return fail(kErrBadFormat);
    const auto serial = page.subspan(4);
    const size_t told = static_cast<size_t>(big_endian_load(&page[2], 2));
    field_text(serial.first(std::min(told, serial.size())), identity->serial, sizeof(identity->serial));
    return 0;
}

int scsi_log_page_parse(std::span<const uint8_t> page, DiskSmart *smart)
{
    constexpr size_t kHeader = 4;
    constexpr uint8_t kPageMask = 0x3f, kSubpageFormat = 0x40;
    if (page.size() < kHeader || (page[0] & kSubpageFormat) != 0)
        return fail(kErrBadFormat);
    const auto *rule = std::find_if(std::begin(kLogPages), std::end(kLogPages),
                                    [&page](const auto &known) { return known.page == (page[0] & kPageMask); });
    if (rule == std::end(kLogPages))
        return fail(kErrBadFormat);
    const size_t told = static_cast<size_t>(big_endian_load(&page[2], 2));
    auto rest = page.subspan(kHeader);
    rest = rest.first(std::min(told, rest.size()));
    while (rest.size() >= kHeader) {
        const size_t length = rest[3];
        if (rest.size() - kHeader < length)
            return fail(kErrBadFormat);
        rule->read(big_endian_load(rest.data(), 2), rest.subspan(kHeader, length), smart);
        rest = rest.subspan(kHeader + length);
    }
    return 0;
}

int nvme_identity_parse(std::span<const uint8_t> controller, DiskIdentity *identity)
{
    static constexpr TextField kFields[] = {TEXT_FIELD(4, 20, serial), TEXT_FIELD(24, 40, model),
                                            TEXT_FIELD(64, 8, firmware)};
    if (controller.size() < 72)
        return fail(kErrBadFormat);
    fields_read(kFields, controller, identity);
    return identity->model[0] != '\0' ? 0 : fail(kErrBadFormat);
}

int nvme_smart_parse(std::span<const uint8_t> log, DiskSmart *smart)
{
    constexpr int kZeroCelsius_k = 273;
    if (log.size() < kSectorBytes)
        return fail(kErrBadFormat);
    const uint64_t kelvin = little_endian_load(&log[1], 2);
    if (kelvin == 0) // a log that was never filled
        return fail(kErrBadFormat);
    smart->verdict = log[0] != 0 ? DiskVerdict::kFailing : DiskVerdict::kGood;
    smart->temperature_c = std::max(static_cast<int>(kelvin) - kZeroCelsius_k, 0);
    smart->used_percent = log[5];
    smart->power_on_hours = counter(little_endian_load(&log[128], 8));
    smart->bad_sectors = counter(little_endian_load(&log[160], 8));
    return 0;
}
