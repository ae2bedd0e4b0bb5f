// Formats on disk as tables: where each member of a record stands. Little-endian on disk as in memory, so that copying
// decodes.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

static_assert(std::endian::native == std::endian::little);

struct FormatField {
    uint8_t at;     // byte offset on disk
    uint8_t bytes;  // width on disk and of the member
    uint8_t member; // byte offset in the record
};
#define FORMAT_FIELD(at, Record, name)                                                                                 \
    {                                                                                                                  \
        at, sizeof(Record::name), offsetof(Record, name)                                                               \
    }

// The byte behind the last field; 0 if rows overlap or do not ascend.
constexpr size_t format_end(std::span<const FormatField> fields)
{
    size_t end = 0;
    for (const FormatField &field : fields) {
        if (field.at < end)
            return 0;
        end = size_t{field.at} + field.bytes;
    }
    return end;
}

template <typename Record> Record format_read(std::span<const FormatField> fields, const uint8_t *bytes)
{
    Record record = {};
    for (const FormatField &field : fields)
        memcpy(reinterpret_cast<uint8_t *>(&record) + field.member, bytes + field.at, field.bytes);
    return record;
}

template <typename Record> void format_write(std::span<const FormatField> fields, const Record &record, uint8_t *bytes)
{
    for (const FormatField &field : fields)
        memcpy(bytes + field.at, reinterpret_cast<const uint8_t *>(&record) + field.member, field.bytes);
}
