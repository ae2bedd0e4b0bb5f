// The root block's bytes: both ways, every version and every bit.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "lib/report.h"
#include "storage/root_block_op.h"
#include "tests/storage/root_block_bytes.h"

namespace
{

// A handle on a file in memory that holds `bytes`.
RootBlockOpInfo info_on(const std::string &bytes, uint32_t version)
{
    RootBlockOpInfo info;
    info.fd.reset(memfd_create("disk", MFD_CLOEXEC));
    info.path[0] = '\0';
    info.offset = 0;
    info.version = version;
    EXPECT_EQ(pwrite(info.fd.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return info;
}

std::string content(const RootBlockOpInfo &info)
{
    std::string bytes(4096, '\0');
    bytes.resize(static_cast<size_t>(pread(info.fd.get(), bytes.data(), bytes.size(), 0)));
    return bytes;
}

constexpr size_t kBytes[] = {0, 96, 100, 104}; // by version

TEST(RootBlock, EveryVersionBothWays)
{
    for (uint32_t version = 1; version <= 3; version++) {
        SCOPED_TRACE(version);
        const RootBlockOpInfo info = info_on(kHandBody, version);
        const UniqueRootBlock block(root_block_alloc());
        ASSERT_EQ(root_block_read(info, block.get()), 0);
        EXPECT_EQ(memcmp(block.get()->layout, &kHandLayout, offsetof(PartitionLayout, blBuildinStorage) + 4), 0);
        EXPECT_EQ(block.get()->extraVersion != nullptr, version >= 2);
        EXPECT_EQ(block.get()->capability != nullptr, version >= 3);
        if (version >= 3) {
            EXPECT_EQ(*block.get()->extraVersion, 0xd1d2d3d4);
            EXPECT_EQ(*block.get()->capability, 0xe1e2e3e4);
        }

        const RootBlockOpInfo fresh = info_on("", version);
        EXPECT_EQ(root_block_write(fresh, block.get()), 0);
        EXPECT_EQ(content(fresh), kHandBody.substr(0, kBytes[version]));
        const UniqueRootBlock empty(root_block_alloc());
        EXPECT_EQ(root_block_write(fresh, empty.get()), version >= 3 ? -1 : 0); // without a capability
        EXPECT_EQ(root_block_clean(info), 0);                                   // what lies behind the body stays
        EXPECT_EQ(content(info), std::string(kBytes[version], '\0') + kHandBody.substr(kBytes[version]));
    }
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
    const std::string no_version = std::string(kHandHeader).replace(64, 4, 4, '\0');
    EXPECT_EQ(root_block_header_read(info_on(no_version, 1).fd.get(), 0, &header), 0);
}

// A name too long for a disk, which no earlier request makes an image.
TEST(RootBlock, PlaceOnNoDisk)
{
    uint64_t place = 0;
    errno = ENOTTY;
    EXPECT_EQ(root_block_backup_offset_get(std::string(100, 'x').c_str(), kRootBlockBackupHeader, &place), -1);
}

} // namespace
