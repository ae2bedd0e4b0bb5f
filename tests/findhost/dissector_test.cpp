// What people are told of the packet: the documentation, and the dissector on captures written here.
#include <gtest/gtest.h>
#include <sodium.h>

#include "build_paths.h"
#include "tests/findhost/capture.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/platform/run_program.h"

namespace
{

TEST(Discovery, QueryOfTheDocument)
{
    std::string digits;
    for (const char byte : plain(base(1))) {
        char text[4];
        snprintf(text, sizeof(text), "%02x ", static_cast<uint8_t>(byte));
        digits += text + std::string(digits.size() == 21 || digits.size() == 40 ? " " : "");
    }
    const std::string document = run_program({"/bin/cat", NORV_SOURCE_DIR "/docs/discovery.md"}).out;
    EXPECT_NE(document.find(digits.substr(0, digits.size() - 1) + "\n"), std::string::npos) << digits;
}

std::string hex(const uint8_t *key)
{
    char text[65];
    return sodium_bin2hex(text, sizeof(text), key, 32);
}

struct Pair {
    uint8_t public_key[32], secret_key[32];
    Pair() { crypto_box_keypair(public_key, secret_key); }

    [[nodiscard]] std::string seal(const std::string &packet) const
    {
        std::string bytes(packet.size() + 48, '\0');
        EXPECT_EQ(
            crypto_box_seal(reinterpret_cast<uint8_t *>(bytes.data()), bytes_of(packet), packet.size(), public_key), 0);
        return "\x12\x34\x55\x66NORV" + bytes;
    }
};

TEST(Discovery, DissectorShowsPacketsAndOpensSealedOnes)
{
    if (!Capture::can_be_shown())
        GTEST_SKIP() << "no tshark: the dissector was not run";
    struct Packet {
        std::string datagram, shown; // info, type, host name, address, bits, client, expert messages
        int port = 9999;
    };
    const Pair client, appliance, stranger;
    const std::string cut = "Element runs past the end", mac = element(0x7c, "02:cc:00:00:00:01");
    std::vector<Packet> packets = {
        {plain(base(1)), "Query|1|||||"},
        {plain(base(6) + element(0x11, "nas") + number(0xb0, 0x8000000000000040, 8) + mac + element(0x19, "")),
         "Reply|6|nas||0x8000000000000040|02:cc:00:00:00:01|", 9997},
        {plain(base(77) + element(0x99, "abc") + number(0x01, 3, 2)), "Type 77|77|||||Number of another width"},
        {plain(base(3) + element(0x11, std::string(33, 'h'))),
         "Network setting|3|" + std::string(33, 'h') + "||||Text longer than is taken"},
        {plain("\x11"), "No type||||||" + cut},
        {client.seal(""), "Sealed||||||What was sealed is no plain packet"},
        {stranger.seal(plain(base(6))), "Sealed||||||"},
        {client.seal(plain(base(6))).substr(0, 55), "Sealed||||||" + cut},
        {std::string("\x12\x34\x56\x78NORW\x01\x04", 10), "1234 \xe2\x86\x92 9999 Len=10||||||"},
    };
    std::string many;
    for (int i = 0; i < 63; i++)
        many += element(0x99, "");
    packets.push_back(
        {plain(base(4) + many), "Quick configuration|4|||||More than 64 elements: nobody takes this packet"});
    // Around the ends of blocks of 16 and of 64 bytes, and the longest; each under a fresh key.
    for (const size_t length : {7U, 8U, 55U, 56U})
        packets.push_back({(length % 2 == 0 ? client : appliance)
                               .seal(plain(base(6) + element(0x2a, std::string(length, 'b')) + mac)),
                           "Sealed Reply|6||||02:cc:00:00:00:01|"});
    const std::string blob = element(0x2a, std::string(255, 'b'));
    packets.push_back({appliance.seal(plain(base(1) + blob + blob + blob + element(0x2a, std::string(155, 'c')) + mac)),
                       "Sealed Query|1||||02:cc:00:00:00:01|"});
    ASSERT_EQ(packets.back().datagram.size(), 1023U);
    for (const size_t at : {8U, 40U, 56U}) { // one bit of key, authenticator or text
        packets.push_back({client.seal(plain(base(6))), "Sealed||||||"});
        packets.back().datagram[at] = static_cast<char>(packets.back().datagram[at] ^ 1);
    }

    Capture capture;
    std::string expected;
    for (const Packet &packet : packets) {
        capture.add_datagram(packet.datagram, packet.port);
        expected += packet.shown + "\n";
    }
    EXPECT_EQ(capture.shown(hex(client.secret_key) + " " + hex(appliance.secret_key),
                            {"_ws.col.Info", "norvfind.ptype", "norvfind.hostname", "norvfind.ip", "norvfind.caps1",
                             "norvfind.pc_mac", "_ws.expert.message"}),
              expected);
}

} // namespace
