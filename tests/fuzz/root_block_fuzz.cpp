// A root block on a small disk: 76 bytes of header, then what stands at the usual place of the body and behind it. A
// block that was read and written is read again as the same, and the disk is not touched by reading.
// Covers: storage/root_block_format.cpp(integer_get integer_set cut_field_report read_report root_fields_decode
// Covers: root_fields_encode root_fields_read) storage/root_block_op.cpp(root_block_header_read root_block_read)
#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>

#include "storage/root_block_op.h"
#include "tests/fuzz/fuzz.h"

namespace
{

void put(int fd, uint64_t at, std::string_view bytes)
{
    check(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)) == static_cast<ssize_t>(bytes.size()));
}

RootBlockOpInfo info_on(int fd, uint64_t offset, uint32_t version)
{
    RootBlockOpInfo info;
    info.fd.reset(dup(fd));
    info.path[0] = '\0';
    info.offset = offset;
    info.version = version;
    return info;
}

// What the writer makes of a block.
std::string written(int fd, const RootBlock *block, uint32_t version)
{
    std::string bytes(kRootBodyBytes[version], '\0');
    check(root_block_write(info_on(fd, 0, version), block) == 0);
    check(pread(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return bytes;
}

} // namespace

void fuzz_one(std::string_view input)
{
    static const int kDisk = memfd_create("disk", MFD_CLOEXEC), kCopy = memfd_create("copy", MFD_CLOEXEC);
    const std::string_view head = input.substr(0, kRootHeaderBytes);
    check(ftruncate(kDisk, 0) == 0 && ftruncate(kCopy, 0) == 0);
    put(kDisk, kRootBlockHeaderAt, head);
    put(kDisk, kRootBlockBodyAt, input.substr(head.size()));

    RootHeader header;
    const int is_valid = root_block_header_read(kDisk, kRootBlockHeaderAt, &header);
    check(is_valid == (head.size() < kRootHeaderBytes ? -1 : is_valid));
    if (is_valid != 1)
        return;
    const uint32_t version = std::min(header.version, kRootBlockVersion);
    const UniqueRootBlock block(root_block_alloc()), again(root_block_alloc());
    if (root_block_read(info_on(kDisk, header.dataOffset, version), block.get()) != 0)
        return;
    const std::string bytes = written(kCopy, block.get(), version);
    check(root_block_read(info_on(kCopy, 0, version), again.get()) == 0);
    check(written(kCopy, again.get(), version) == bytes);
}
