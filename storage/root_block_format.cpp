#include "storage/root_block_format.h"

#include <cstring>
#include <unistd.h>

#include "lib/big_endian.h"
#include "lib/io.h"
#include "lib/report.h"

namespace
{

uint64_t integer_get(const RootField &field, const void *record)
{
    const auto *member = static_cast<const uint8_t *>(record) + field.member;
    uint64_t wide = 0;
    uint32_t narrow = 0;
    if (field.memory_bytes == sizeof(wide)) {
        memcpy(&wide, member, sizeof(wide));
        return wide;
    }
    memcpy(&narrow, member, sizeof(narrow));
    return narrow;
}

void integer_set(const RootField &field, uint64_t value, void *record)
{
    auto *member = static_cast<uint8_t *>(record) + field.member;
    const auto narrow = static_cast<uint32_t>(value);
    if (field.memory_bytes == sizeof(value))
        memcpy(member, &value, sizeof(value));
    else
        memcpy(member, &narrow, sizeof(narrow));
}

// The field in which `moved` bytes, -1 for none, end. Logs how much of it was moved.
const RootField &cut_field_report(std::span<const RootField> fields, ssize_t moved)
{
    const auto end = static_cast<size_t>(moved < 0 ? 0 : moved);
    const RootField *cut = fields.data();
    while (cut->at + cut->disk_bytes <= end)
        cut++;
    const int of_field = moved < 0 ? -1 : static_cast<int>(end - cut->at);
    if (cut->text == RootText::kMagic)
        NORV_LOG(LOG_ERR, "Failed to norv-block string: ret = %d(total should be %d), errno=%m", of_field,
                 cut->disk_bytes);
    else
        NORV_LOG(LOG_ERR, "Failed to norv-block int: ret = %d(total should be %d), errno=%m", of_field,
                 cut->disk_bytes);
    return *cut;
}

void read_report(const RootField &field)
{
    switch (field.text) {
    case RootText::kVersion:
    case RootText::kExtraVersion:
        NORV_LOG(LOG_ERR, "Fail to read root block version");
        break;
    case RootText::kRaidType:
        NORV_LOG(LOG_ERR, "Fail to read root block bl raid type");
        break;
    case RootText::kSize:
        NORV_LOG(LOG_ERR, "Fail to read root block size");
        break;
    case RootText::kStart:
        NORV_LOG(LOG_ERR, "Fail to read offset");
        break;
    case RootText::kPartitionSize:
        NORV_LOG(LOG_ERR, "Fail to read size");
        break;
    case RootText::kFsId:
        NORV_LOG(LOG_ERR, "Fail to read fs id");
        break;
    case RootText::kMagic:
    case RootText::kCapability:
        break; // without a text of their own
    }
}

void write_report(const RootField &field, const char *path, const void *record)
{
    const uint64_t value = field.text == RootText::kMagic ? 0 : integer_get(field, record);
    switch (field.text) {
    case RootText::kVersion:
        NORV_LOG(LOG_ERR, "Fail to write partition layout version [%d] to [%s]. errno=%m", static_cast<int>(value),
                 path);
        break;
    case RootText::kRaidType:
        NORV_LOG(LOG_ERR, "Fail to write blraidType [%d] to [%s]. errno=%m", static_cast<int>(value), path);
        break;
    case RootText::kSize:
        NORV_LOG(LOG_ERR, "Fail to write size [%llu] to [%s]. errno=%m", static_cast<unsigned long long>(value), path);
        break;
    case RootText::kStart:
        NORV_LOG(LOG_ERR, "Fail to write offset");
        break;
    case RootText::kPartitionSize:
        NORV_LOG(LOG_ERR, "Fail to write size");
        break;
    case RootText::kFsId:
        NORV_LOG(LOG_ERR, "Fail to write fs id");
        break;
    case RootText::kCapability:
        NORV_LOG(LOG_ERR, "Fail to write root capability to [0x%x].", static_cast<unsigned>(value));
        break;
    case RootText::kMagic:
    case RootText::kExtraVersion:
        break; // without a text of their own
    }
}

void root_fields_decode(std::span<const RootField> fields, uint32_t version, const uint8_t *bytes, void *record)
{
    for (const RootField &field : fields) {
        if (field.since > version)
            return;
        if (field.text == RootText::kMagic) {
            memcpy(static_cast<uint8_t *>(record) + field.member, bytes + field.at, field.disk_bytes);
            continue;
        }
        const uint64_t value = big_endian_load(bytes + field.at, field.disk_bytes);
        integer_set(field, field.is_flag && value != 0 ? 1 : value, record);
    }
}

void root_fields_encode(std::span<const RootField> fields, uint32_t version, const void *record, uint8_t *bytes)
{
    for (const RootField &field : fields) {
        if (field.since > version)
            return;
        if (field.text == RootText::kMagic)
            memcpy(bytes + field.at, static_cast<const uint8_t *>(record) + field.member, field.disk_bytes);
        else
            big_endian_store(bytes + field.at, field.disk_bytes, integer_get(field, record));
    }
}

} // namespace

int root_fields_read(int fd, uint64_t offset, std::span<const RootField> fields, uint32_t version, void *record)
{
    if (fd < 0) {
        NORV_LOG(LOG_ERR, "bad parameters");
        return fail(kErrBadParameter);
    }
    if (lseek(fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
        NORV_LOG(LOG_ERR, "Fail to lseek with fd:[%d] offset:[%llu]. errno=%m", fd,
                 static_cast<unsigned long long>(offset));
        return fail(kErrSystemCall);
    }
    uint8_t bytes[kRootFieldsMaxBytes];
    const size_t size = root_fields_bytes(fields, version);
    const ssize_t moved = NLIBCRead(fd, bytes, size);
    if (moved != static_cast<ssize_t>(size)) {
        read_report(cut_field_report(fields, moved));
        return fail(kErrRead);
    }
    root_fields_decode(fields, version, bytes, record);
    return 0;
}

int root_fields_write(int fd, const char *path, uint64_t offset, std::span<const RootField> fields, uint32_t version,
                      const void *record)
{
    if (fd < 0) {
        NORV_LOG(LOG_ERR, "bad paramters");
        return fail(kErrBadParameter);
    }
    if (lseek(fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
        NORV_LOG(LOG_ERR, "Fail to lseek. errno=%m");
        return fail(kErrSystemCall);
    }
    uint8_t bytes[kRootFieldsMaxBytes];
    const size_t size = root_fields_bytes(fields, version);
    root_fields_encode(fields, version, record, bytes);
    const ssize_t moved = NLIBCWrite(fd, bytes, size);
    if (moved == static_cast<ssize_t>(size) && fsync(fd) == 0)
        return 0;
    if (moved != static_cast<ssize_t>(size))
        write_report(cut_field_report(fields, moved), path, record);
    return fail(kErrWrite);
}
