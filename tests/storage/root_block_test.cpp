// The root block's bytes: both ways, every version, every cut and every bit.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "lib/report.h"
#include "storage/root_block_op.h"
#include "tests/storage/root_block_bytes.h"

namespace
{

// A handle on a file in memory that holds `bytes` from `offset` on.
RootBlockOpInfo info_on(const std::string &bytes, uint32_t version, uint64_t offset = 0)
{
    RootBlockOpInfo info;
    info.fd.reset(memfd_create("disk", MFD_CLOEXEC));
    info.path[0] = '\0';
    info.offset = offset;
    info.version = version;
    EXPECT_EQ(pwrite(info.fd.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)),
              static_cast<ssize_t>(bytes.size()));
    return info;
}

std::string content(const RootBlockOpInfo &info)
{
    std::string bytes(4096, '\0');
    bytes.resize(static_cast<size_t>(pread(info.fd.get(), bytes.data(), bytes.size(), 0)));
    return bytes;
}

void expect_equal(const PartitionLayout &left, const PartitionLayout &right)
{
    EXPECT_EQ(left.version, right.version);
    EXPECT_EQ(left.blRaidType, right.blRaidType);
    EXPECT_EQ(left.sysSize, right.sysSize);
    EXPECT_EQ(left.swapSize, right.swapSize);
    EXPECT_EQ(left.dataGap, right.dataGap);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(left.partition[i], right.partition[i]) << i;
    EXPECT_EQ(left.blBuildinStorage, right.blBuildinStorage);
}

constexpr size_t kBytes[] = {0, 96, 100, 104}; // by version

TEST(RootBlock, EveryVersionBothWays)
{
    for (uint32_t version = 1; version <= 3; version++) {
        SCOPED_TRACE(version);
        const RootBlockOpInfo info = info_on(kHandBody, version);
        const UniqueRootBlock block(root_block_alloc());
        ASSERT_EQ(root_block_read(info, block.get()), 0);
        expect_equal(*block.get()->layout, kHandLayout);
        EXPECT_EQ(block.get()->extraVersion != nullptr, version >= 2);
        EXPECT_EQ(block.get()->capability != nullptr, version >= 3);
        if (version >= 3) {
            EXPECT_EQ(*block.get()->extraVersion, 0xd1d2d3d4);
            EXPECT_EQ(*block.get()->capability, 0xe1e2e3e4);
        }

        const RootBlockOpInfo fresh = info_on("", version);
        EXPECT_EQ(root_block_write(fresh, block.get()), 0);
        EXPECT_EQ(content(fresh), kHandBody.substr(0, kBytes[version]));
        EXPECT_EQ(root_block_clean(info), 0); // what lies behind the body stays
        EXPECT_EQ(content(info), std::string(kBytes[version], '\0') + kHandBody.substr(kBytes[version]));
    }
}

TEST(RootBlock, FlagsAreOneAndAbsentPartsZero)
{
    std::string body = kHandBody;
    body[4] = '\x80';
    body[92] = '\x80';
    const UniqueRootBlock block(root_block_alloc());
    ASSERT_EQ(root_block_read(info_on(body, 1), block.get()), 0);
    EXPECT_EQ(block.get()->layout->blRaidType, 1);
    EXPECT_EQ(block.get()->layout->blBuildinStorage, 1);

    const UniqueRootBlock empty(root_block_alloc());
    const RootBlockOpInfo info = info_on("", 3);
    EXPECT_EQ(root_block_write(info, empty.get()), -1); // no capability
    EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    EXPECT_EQ(content(info), "");
    ASSERT_EQ(root_block_update_capability(7, empty.get()), 0);
    EXPECT_EQ(root_block_write(info, empty.get()), 0);
    EXPECT_EQ(content(info), std::string(103, '\0') + '\7');
}

TEST(RootBlock, EveryCut)
{
    for (uint32_t version = 1; version <= 3; version++)
        for (size_t size = 0; size <= kHandBody.size(); size++) {
            const UniqueRootBlock block(root_block_alloc());
            const int result = root_block_read(info_on(kHandBody.substr(0, size), version), block.get());
            EXPECT_EQ(result, size < kBytes[version] ? -1 : 0) << version << " " << size;
            EXPECT_TRUE(result == 0 || (NLIBCErrGet() == kErrRead && block.get()->layout == nullptr));
        }
    RootHeader header;
    for (size_t size = 0; size < kHandHeader.size(); size++)
        EXPECT_EQ(root_block_header_read(info_on(kHandHeader.substr(0, size), 1).fd.get(), 0, &header), -1) << size;
}

TEST(RootBlock, EveryBitOfTheHeader)
{
    RootHeader header;
    for (size_t bit = 0; bit < kHandHeader.size() * 8; bit++) {
        std::string flipped = kHandHeader;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        // The word and its end count, the padding does not; version 3 stays above 0, and only without its one bit is
        // the offset too small.
        const bool is_offset_bit = bit == 73 * 8 + 2;
        EXPECT_EQ(root_block_header_read(info_on(flipped, 1).fd.get(), 0, &header),
                  bit / 8 < 20 || is_offset_bit ? 0 : 1)
            << bit;
    }
}

// An offset that is no offset of a file, a descriptor that is none, and a name too long for a disk, which no earlier
// request makes an image.
TEST(RootBlock, Unreachable)
{
    uint64_t place = 0;
    errno = ENOTTY;
    EXPECT_EQ(root_block_backup_offset_get(std::string(100, 'x').c_str(), kRootBlockBackupHeader, &place), -1);
    const UniqueRootBlock block(root_block_alloc());
    ASSERT_EQ(root_block_update_capability(0, block.get()), 0);
    for (const uint64_t offset : {uint64_t{1} << 63, UINT64_MAX}) {
        RootBlockOpInfo info = info_on("", 3);
        info.offset = offset;
        EXPECT_EQ(root_block_read(info, block.get()), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrSystemCall);
        EXPECT_EQ(root_block_write(info, block.get()), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrSystemCall);
        info.fd.reset();
        EXPECT_EQ(root_block_read(info, block.get()), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
        EXPECT_EQ(root_block_write(info, block.get()), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
    }
}

} // namespace
