// What the handler lets pass, and when: on a machine without interfaces, where no reply can go out.
#include <ctime>
#include <gtest/gtest.h>
#include <unistd.h>

#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/support/private_root.h"

namespace
{

int handle(const std::string &datagram)
{
    sockaddr_in peer = {};
    peer.sin_addr.s_addr = 0x0100007f;
    return FHOSTHandlePacket(static_cast<int>(datagram.size()), bytes_of(datagram), &peer);
}

TEST(FhostHandlePacket, GatesStandInOrder)
{
    const std::string caps = number(0xb0, 0x40, 8) + number(0xb8, 0x40, 8), half = number(0xb0, 0x40, 8);
    const struct {
        std::string elements;
        int accepts_plain, mem_test;
        bool is_sealed;
        int result;
        int migration; // what the client can do, 7 before
    } kCases[] = {
        {base(1) + caps, 1, 0, false, 0, 1},
        {base(1) + half, 1, 1, false, 0, 0},
        {base(1) + caps, 0, 0, false, -1, 1}, // no key
        {base(1) + number(0xc5, 1) + element(0xc4, std::string(64, 'a')), 0, 0, false, 0, 0},
        {base(4) + caps, 1, 0, false, 0, 1},
        {base(4), 0, 0, false, -1, 7},
        {base(4), 0, 0, true, 0, 0},
        {base(4), 1, 1, true, -1, 7},
        {base(11) + caps, 0, 0, false, 0, 7},
        {number(0x01, 6), 1, 0, true, -1, 7}, // no stamp
    };
    const PrivateRoot root;
    root.run([&] {
        EXPECT_EQ(FHOSTProcessKeyInit(), 0);
        for (const auto &row : kCases) {
            gblAcceptPlain = row.accepts_plain;
            gblMemTest = row.mem_test;
            gblAsstHasSySMigrat = 7;
            tvLastQuery = tvLastNetSet = 0;
            std::string datagram = plain(row.elements);
            if (row.is_sealed) {
                FhostPacket sealed;
                EXPECT_EQ(seal_to_this_process(datagram, &sealed), 0);
                datagram.assign(sealed.bytes, sealed.bytes + sealed.size);
            }
            EXPECT_EQ(handle(datagram), row.result) << testing::PrintToString(row.elements);
            EXPECT_EQ(gblAsstHasSySMigrat, row.migration) << testing::PrintToString(row.elements);
        }
        EXPECT_EQ(FHOSTHandlePacket(10, nullptr, nullptr), -1);
    });
}

TEST(FhostHandlePacket, RepeatsAreLimitedByTheWholeSecond)
{
    const std::string query = plain(base(1)),
                      setting = plain(base(3) + number(0x20, 0) + element(0x21, "") + element(0x29, ""));
    const struct {
        const std::string &datagram;
        int age; // seconds since the last one; negative: the clock was set back
        uint32_t last_ip;
        int result;
    } kCases[] = {
        {query, 0, 0x0100007f, -1}, {query, 1, 0x0100007f, -1}, {query, 2, 0x0100007f, 0},
        {query, -1, 0x0100007f, 0}, {query, 0, 0x0200007f, 0},  {setting, 0, 0, 0},
        {setting, 4, 0, 0},         {setting, 5, 0, -1},        {setting, -1, 0, -1},
    };
    const PrivateRoot root;
    root.run([&] {
        for (const auto &row : kCases)
            for (time_t before = -1; before != time(nullptr);) { // within one second, or once more
                before = time(nullptr);
                tvLastQuery = tvLastNetSet = before - row.age;
                ulLastQueryIP = row.last_ip;
                const int result = handle(row.datagram);
                if (before != time(nullptr))
                    continue;
                EXPECT_EQ(result, row.result) << row.age;
                // A query that was dropped counts, too; a setting that was swallowed does not.
                EXPECT_EQ(&row.datagram == &query ? tvLastQuery : tvLastNetSet,
                          &row.datagram == &setting && row.result == 0 ? before - row.age : before);
                break;
            }
    });
}

} // namespace
