// The packet's bytes: parser, limits, writer.
#include "findhost/findhost.h"

#include <gtest/gtest.h>

#include "lib/text.h"
#include "tests/findhost/packet_bytes.h"

namespace
{

using namespace std::string_literals;

// Parses elements that end where their memory ends, into a record of its own. `said`: what went to the debug channel.
int parse(const std::string &elements, FHOST_RECORD *record, std::string *said = nullptr)
{
    const auto exact = std::make_unique<uint8_t[]>(elements.size());
    memcpy(exact.get(), elements.data(), elements.size());
    gblDebug = 1;
    testing::internal::CaptureStderr();
    const int result = FHOSTParsePacket(elements.size(), exact.get(), record);
    const std::string text = testing::internal::GetCapturedStderr();
    gblDebug = 0;
    if (said != nullptr)
        *said = text;
    return result;
}
int parse(const std::string &elements)
{
    const auto record = std::make_unique<FHOST_RECORD>();
    return parse(elements, record.get());
}

std::string repeat(const std::string &text, int times)
{
    std::string all;
    for (int i = 0; i < times; i++)
        all += text;
    return all;
}

TEST(FhostPacket, EachTagHasItsPlaceAndItsLimit)
{
    // Of the numbers and texts those that an appliance acts on; the others are told, not heard.
    static constexpr struct {
        int tag;
        uint32_t FHOST_RECORD::*member;
    } kNumbers[] = {
        {0x20, &FHOST_RECORD::ulDhcp}, {0xa4, &FHOST_RECORD::ulStamp},   {0xc5, &FHOST_RECORD::ulKeyId},
        {0x22, &FHOST_RECORD::ulIP},   {0x24, &FHOST_RECORD::ulGateway}, {0x25, &FHOST_RECORD::ulDns},
    };
    FHOST_RECORD record;
    for (const auto &row : kNumbers) {
        ASSERT_EQ(parse(base(1) + number(row.tag, 0x81020304), &record), 0) << row.tag;
        EXPECT_EQ(record.*row.member, 0x81020304) << row.tag;
        for (const int width : {0, 3, 5, 8})
            EXPECT_EQ(parse(base(1) + number(row.tag, 1, width)), -1) << row.tag << " " << width;
    }
    ASSERT_EQ(parse(number(0xb0, 0x8102030405060708, 8) + base(1) + number(0xb8, 0x40, 8), &record), 0);
    EXPECT_EQ(record.ullCaps1, 0x8102030405060708);
    EXPECT_EQ(record.ullCaps2, 0x40U);
    EXPECT_EQ(parse(base(1) + number(0xb0, 1, 4)), -1);

    struct Text {
        int tag;
        size_t max;
        size_t place, room;
    };
#define TEXT(tag, max, name)                                                                                           \
    {                                                                                                                  \
        tag, max, offsetof(FHOST_RECORD, name), sizeof(FHOST_RECORD::name)                                             \
    }
    static constexpr Text kTexts[] = {
        TEXT(0x21, 32, szHostName), TEXT(0x29, 32, szMac),    TEXT(0x77, 7, szVersion),
        TEXT(0x7c, 32, szPcMac),    TEXT(0xc4, 65, szPubKey), TEXT(0x2a, 255, szBlob),
    };
    for (const Text &row : kTexts) {
        const auto stored = [&] {
            const char *place = reinterpret_cast<const char *>(&record) + row.place;
            return std::string(place, row.room);
        };
        const auto field = [&](const std::string &text) { return text + std::string(row.room - text.size(), '\0'); };
        const std::string longest(row.max, 'x');
        ASSERT_EQ(parse(base(1) + element(row.tag, longest), &record), 0) << row.tag;
        EXPECT_EQ(stored(), field(longest)) << row.tag;
        if (row.max < 255) {
            EXPECT_EQ(parse(base(1) + element(row.tag, longest + "x")), -1) << row.tag;
        }
        // A shorter value leaves nothing of a longer one, a NUL ends it, an empty one changes nothing.
        ASSERT_EQ(
            parse(base(1) + element(row.tag, longest) + element(row.tag, "ab\0cd"s) + element(row.tag, ""), &record),
            0);
        EXPECT_EQ(stored(), field("ab")) << row.tag;
    }
}

TEST(FhostPacket, FrameAndTypeDecideWhatPasses)
{
    const std::string setting = base(3) + number(0x20, 1) + element(0x21, "") + element(0x29, "");
    const std::string few = "not enough fields for netsetting ";
    const struct {
        std::string elements;
        int result;
        std::string said;
    } kCases[] = {
        {base(1), 0, ""},
        {"", -1, "Basic is not satifsfied\n"},
        {number(0x01, 1), -1, "Basic is not satifsfied\n"},
        {number(0x01, 1) + number(0xa4, 1), 0, ""}, // what the stamp says is the handler's to judge
        {number(0x01, 16), 0, ""},
        {number(0x01, 18), -1, "Basic is not satifsfied\n"},
        {number(0x01, 1) + number(0x01, 6), 0, ""}, // the last type counts
        {number(0x01, 6) + number(0x01, 1), -1, "Basic is not satifsfied\n"},
        {setting, 0, ""},
        {base(3) + number(0x10, 1) + element(0x11, "a") + element(0x19, "b"), -1, few + "3\n"},
        {base(3) + element(0x21, "a") + element(0x29, "b"), -1, few + "1b\n"},
        // Lengths that point past the end, or exactly to it; the width of a skipped number is nobody's business.
        {base(1) + "\x11\x01", -1, ""},
        {base(1) + "\x99", -1, ""},
        {base(1) + "\x99\x05"
                   "1234",
         -1, ""},
        {base(1) + "\x99\x04"
                   "1234",
         0, ""},
        {base(1) + element(0x18, "1"), 0, ""},
        // At most 64 elements, skipped ones among them, also when the one too many is the last.
        {base(1) + repeat(element(0x99, ""), 62), 0, ""},
        {base(1) + repeat(element(0x99, ""), 63), -1, "Maybe some virus try to hack me\n"},
    };
    const FHOST_RECORD zero = {};
    for (const auto &row : kCases) {
        FHOST_RECORD record;
        memset(&record, 0x55, sizeof(record));
        std::string said;
        EXPECT_EQ(parse(row.elements, &record, &said), row.result) << testing::PrintToString(row.elements);
        EXPECT_EQ(said, row.said) << testing::PrintToString(row.elements);
        if (row.result != 0) {
            EXPECT_EQ(memcmp(&record, &zero, sizeof(record)), 0);
        }
    }
}

// What an element looks like stands in the test of replies.
TEST(FhostPacket, WriterKeepsToItsRoom)
{
    FhostPacket packet;
    fhost_packet_begin(&packet);
    while (packet.size < sizeof(packet.bytes) - 257)
        fhost_put_text(&packet, PKT_ID_BLOB, std::string(255, 'b'));
    const size_t before = packet.size;
    fhost_put_text(&packet, PKT_ID_BLOB, std::string(sizeof(packet.bytes) - before - 1, 'c')); // one byte too long
    EXPECT_EQ(packet.size, before);
    fhost_put_text(&packet, PKT_ID_BLOB, std::string(sizeof(packet.bytes) - before - 2, 'c'));
    EXPECT_EQ(packet.size, sizeof(packet.bytes));
    fhost_put_number(&packet, PKT_ID_STAMP, 1);
    EXPECT_EQ(packet.size, sizeof(packet.bytes));
}

} // namespace
