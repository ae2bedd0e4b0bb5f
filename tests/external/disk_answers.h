// Answers of disks, built byte by byte.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

inline void text_put(std::string *bytes, size_t at, size_t size, std::string_view text)
{
    std::string field(text);
    field.resize(size, ' ');
    bytes->replace(at, size, field);
}

// The last byte makes the sum of all zero.
inline void checksum_put(std::string *sector)
{
    std::uint8_t sum = 0;
    for (size_t i = 0; i < 511; i++)
        sum = static_cast<std::uint8_t>(sum + static_cast<std::uint8_t>((*sector)[i]));
    (*sector)[511] = static_cast<char>(-sum);
}

inline std::string ata_identity(std::string_view serial, std::string_view firmware, std::string_view model)
{
    std::string sector(512, '\0');
    text_put(&sector, 20, 20, serial);
    text_put(&sector, 46, 8, firmware);
    text_put(&sector, 54, 40, model);
    for (size_t i = 20; i < 94; i += 2)
        std::swap(sector[i], sector[i + 1]);
    sector[510] = '\xa5';
    checksum_put(&sector);
    return sector;
}

struct AtaAttribute {
    std::uint8_t id, raw[4];
};
inline std::string ata_attributes(std::initializer_list<AtaAttribute> attributes)
{
    std::string sector(512, '\0');
    size_t at = 2;
    for (const AtaAttribute &attribute : attributes) {
        sector[at] = static_cast<char>(attribute.id);
        for (size_t i = 0; i < 4; i++)
            sector[at + 5 + i] = static_cast<char>(attribute.raw[i]);
        at += 12;
    }
    checksum_put(&sector);
    return sector;
}

inline std::string scsi_inquiry_data(char type, std::string_view vendor, std::string_view model,
                                     std::string_view revision)
{
    std::string data(96, '\0');
    data[0] = type;
    data[4] = 91;
    text_put(&data, 8, 8, vendor);
    text_put(&data, 16, 16, model);
    text_put(&data, 32, 4, revision);
    return data;
}

inline std::string nvme_controller(std::string_view serial, std::string_view model, std::string_view firmware)
{
    std::string data(4096, '\0');
    text_put(&data, 4, 20, serial);
    text_put(&data, 24, 40, model);
    text_put(&data, 64, 8, firmware);
    return data;
}

// A configuration page: one enclosure, `types` of two bytes each: element type, number of elements.
inline std::string ses_configuration(std::string_view types)
{
    std::string page("\x01\x00\x00\x00\x00\x00\x00\x01", 8), enclosure(40, '\0');
    enclosure[2] = static_cast<char>(types.size() / 2);
    enclosure[3] = 36;
    enclosure.replace(4, 8, "\x50\x01\x02\x03\x04\x05\x06\x07", 8);
    text_put(&enclosure, 12, 8, "NORVESSA");
    text_put(&enclosure, 20, 16, "NX2400S");
    text_put(&enclosure, 36, 4, "0102");
    page += enclosure;
    for (size_t i = 0; i < types.size(); i += 2)
        page += std::string{types[i], types[i + 1], 0, 0};
    page[3] = static_cast<char>(page.size() - 4);
    return page;
}
