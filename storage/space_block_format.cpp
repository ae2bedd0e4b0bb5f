#include "storage/space_block_format.h"

#include <algorithm>
#include <cstring>

#include "lib/big_endian.h"
#include "lib/io.h"
#include "lib/little_endian.h"
#include "lib/report.h"

SpaceTaken space_bytes_take(SpaceReader *reader, uint8_t *bytes, size_t size)
{
    while (size > 0) {
        if (reader->at == reader->filled) {
            const ssize_t count = NLIBCRead(reader->fd, reader->ahead, sizeof(reader->ahead));
            if (count <= 0)
                return count == 0 ? SpaceTaken::kEnd : SpaceTaken::kError;
            reader->at = 0;
            reader->filled = static_cast<size_t>(count);
        }
        const size_t piece = std::min(size, reader->filled - reader->at);
        memcpy(bytes, reader->ahead + reader->at, piece);
        reader->at += piece;
        bytes += piece;
        size -= piece;
    }
    return SpaceTaken::kAll;
}

// The oldest systems wrote numbers in the order of their processor, and these are small: a first byte of 0 tells the
// order of now.
static uint64_t number_load(const uint8_t *bytes, size_t size, bool may_be_little)
{
    const bool is_little = may_be_little && bytes[0] != 0;
    return is_little ? little_endian_load(bytes, size) : big_endian_load(bytes, size);
}

int space_fields_take(SpaceReader *reader, const SpaceFields &group, uint32_t version, void *record)
{
    for (const SpaceField &field : group.fields) {
        uint8_t bytes[256];
        if (field.since > version)
            continue;
        if (space_bytes_take(reader, bytes, field.disk_bytes) != SpaceTaken::kAll) {
            NORV_LOG(LOG_ERR, "%s", group.trouble);
            return fail(kErrRead);
        }
        char *member = static_cast<char *>(record) + field.member;
        if (space_field_is_text(field)) {
            memcpy(member, bytes, field.memory_bytes - 1);
            member[field.memory_bytes - 1] = '\0';
            continue;
        }
        const uint64_t number = number_load(bytes, field.disk_bytes, version == 1);
        const auto word = static_cast<uint32_t>(number);
        if (field.memory_bytes == sizeof(word))
            memcpy(member, &word, sizeof(word));
        else
            memcpy(member, &number, sizeof(number));
    }
    return 0;
}

bool space_word_take(SpaceReader *reader, uint32_t *word)
{
    uint8_t bytes[sizeof(*word)];
    if (space_bytes_take(reader, bytes, sizeof(bytes)) != SpaceTaken::kAll)
        return false;
    *word = static_cast<uint32_t>(number_load(bytes, sizeof(bytes), true));
    return true;
}
