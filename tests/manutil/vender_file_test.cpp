// The bytes of the unit's record, and what a cut leaves of them.
#include <cstring>
#include <gtest/gtest.h>

#include "manutil/vender_format.h"

namespace
{

VenderRecord record_of(const char *serial, uint8_t value)
{
    VenderRecord record = {};
    record.format_version = 3;
    record.macs[0] = {{0x02, 0, 0, 0x0a, 0x0b, value}, 1, 0};
    record.macs[0].check = vender_mac_check(record.macs[0].address);
    snprintf(record.serial, sizeof(record.serial), "%s,CHK=%04X", serial, vender_serial_check(serial, strlen(serial)));
    memset(record.custom_serial, value, sizeof(record.custom_serial) - 1);
    record.flags.pt_mem_cnt = 0x01020304U * value;
    memset(record.flags.procomm, value, sizeof(record.flags) - offsetof(VenderTestFlags, procomm));
    return record;
}

std::string bytes_of(const VenderRecord &record)
{
    VenderBytes bytes;
    vender_encode(record, &bytes);
    return {bytes.begin(), bytes.end()};
}

bool is_record(const std::string &bytes, const VenderRecord &expected)
{
    VenderRecord record = {};
    const auto *begin = reinterpret_cast<const uint8_t *>(bytes.data());
    return vender_decode({begin, bytes.size()}, &record) && bytes_of(record) == bytes_of(expected);
}

const VenderRecord kOld = record_of("A8ODN02468", 1), kNew = record_of("B9ODN13579", 2);

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
    EXPECT_EQ(testing::PrintToString(bytes_of(record)), testing::PrintToString(bytes));
    EXPECT_TRUE(is_record(bytes, record));
}

// A record that a cut has left half new, half old, in either order, does not pass its checks; nor does a short one.
TEST(VenderFile, HalfARecordIsNone)
{
    const std::string old = bytes_of(kOld), fresh = bytes_of(kNew);
    for (size_t cut = 0; cut < kVenderBytes; cut++) {
        for (const std::string &torn :
             {fresh.substr(0, cut) + old.substr(cut), old.substr(0, cut) + fresh.substr(cut)}) {
            VenderRecord record = {};
            const bool is_whole = torn == old || torn == fresh;
            EXPECT_EQ(vender_decode({reinterpret_cast<const uint8_t *>(torn.data()), torn.size()}, &record), is_whole)
                << cut;
        }
        EXPECT_FALSE(is_record(fresh.substr(0, cut), kNew)) << cut;
    }
}

} // namespace
