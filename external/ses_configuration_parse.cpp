#include <span>

#include "external/enclosure.h"
#include "external/scsi_command.h"
#include "lib/big_endian.h"
#include "lib/report.h"

// A page header, then a descriptor for each enclosure, then a type header for each type of element.
int ses_configuration_parse(const uint8_t *page, size_t size, SesConfiguration *configuration)
{
    constexpr uint8_t kPageCode = 1, kDeviceSlot = 0x01, kArrayDeviceSlot = 0x17;
    constexpr size_t kHeader = 8, kDescriptorMin = 40, kTypeHeader = 4;
    if (page == nullptr || configuration == nullptr)
        return fail(kErrBadParameter);
    if (size < kHeader || page[0] != kPageCode)
        return fail(kErrBadFormat);
    const std::span<const uint8_t> whole(page, size);
    const size_t told = static_cast<size_t>(big_endian_load(page + 2, 2)) + 4;
    if (told < kHeader || told > size)
        return fail(kErrBadFormat);
    auto rest = whole.first(told).subspan(kHeader);

    *configuration = {};
    const int enclosures = page[1] + 1;
    size_t types = 0;
    for (int i = 0; i < enclosures; i++) {
        if (rest.size() < kDescriptorMin)
            return fail(kErrBadFormat);
        const size_t length = static_cast<size_t>(rest[3]) + 4;
        if (length < kDescriptorMin || length > rest.size())
            return fail(kErrBadFormat);
        if (i == 0) {
            configuration->logical_id = big_endian_load(&rest[4], 8);
            field_text(rest.subspan(12, 8), configuration->vendor, sizeof(configuration->vendor));
            field_text(rest.subspan(20, 16), configuration->model, sizeof(configuration->model));
            field_text(rest.subspan(36, 4), configuration->revision, sizeof(configuration->revision));
        }
        types += rest[2];
        rest = rest.subspan(length);
    }
    if (rest.size() / kTypeHeader < types)
        return fail(kErrBadFormat);
    for (size_t i = 0; i < types; i++) {
        const auto type = rest.subspan(i * kTypeHeader, kTypeHeader);
        configuration->disk_slots += type[0] == kDeviceSlot || type[0] == kArrayDeviceSlot ? type[1] : 0;
    }
    return 0;
}
