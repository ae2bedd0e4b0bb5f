// The bytes of the unit's record.
#include <cstring>
#include <gtest/gtest.h>

#include "manutil/vender_format.h"

namespace
{

// The layout of docs/vendor-record.md, by hand.
TEST(VenderFile, Layout)
{
    VenderRecord record = {};
    record.format_version = 0x00010203;
    for (int i = 0; i < kVenderMacsMax; i++)
        record.macs[i] = {{0x02, 0x10, 0x20, 0x30, 0x40, static_cast<uint8_t>(i)}, 1, static_cast<uint8_t>(0x80 + i)};
    strcpy(record.serial, "A,CHK=0041");
    strcpy(record.custom_serial, "custom");
    record.flags = {0x11121314, 0x21222324, 0x31323334, {4, 40}, {5, 50}, {6, 60}, {7, 70}};

    std::string bytes("NORVVEND\1\0\0\0\0\0\0\0", 16);
    // The digest of bytes 24 to 511, by sha256sum.
    bytes += std::string("\xbf\x73\xed\x0d\xf0\x0f\xa2\xc4", 8) + std::string("\3\2\1\0", 4);
    for (int i = 0; i < 16; i++)
        bytes += std::string("\x02\x10\x20\x30\x40", 5) + static_cast<char>(i) + "\1" + static_cast<char>(0x80 + i);
    const auto field = [&](std::string text, size_t size) {
        text.resize(size);
        bytes += text;
    };
    field("A,CHK=0041", 64);
    field("custom", 32);
    bytes += "\x14\x13\x12\x11\x24\x23\x22\x21\x34\x33\x32\x31";
    field("\4\x28", 16);
    field("\5\x32", 16);
    field("\6\x3c", 32);
    field("\7\x46", 16);
    bytes.resize(512);
    const auto encoded = [](const VenderRecord &from) {
        VenderBytes to;
        vender_encode(from, &to);
        return std::string(to.begin(), to.end());
    };
    EXPECT_EQ(testing::PrintToString(encoded(record)), testing::PrintToString(bytes));
    VenderRecord decoded = {};
    EXPECT_TRUE(vender_decode({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}, &decoded));
    EXPECT_EQ(encoded(decoded), bytes);
}

} // namespace
