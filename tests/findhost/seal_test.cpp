// Sealed packets, the process's key pair and the cache of client keys.
#include <csignal>
#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/wait.h>

#include "autocleanup/unique.h"
#include "findhost/findhost.h"
#include "findhost/key_cache_parts.h"
#include "findhost/keys.h"
#include "lib/report.h"
#include "lib/text.h"
#include "tests/findhost/packet_bytes.h"
#include "tests/support/alloc_fault.h"

namespace
{

constexpr char kSealedMagic[] = "\x12\x34\x55\x66NORV";

// A key pair of this process for the length of a test, and an empty cache.
struct Keys {
    Keys() { EXPECT_EQ(FHOSTProcessKeyInit(), 0); }
    ~Keys()
    {
        FHOSTProcessKeyFree();
        FHOSTKeyCacheClear();
    }
};

// A datagram sealed by the library itself.
std::string sealed(const std::string &text, const uint8_t *key = FHOSTProcessPublicKey())
{
    std::string bytes(text.size() + crypto_box_SEALBYTES, '\0');
    EXPECT_EQ(crypto_box_seal(reinterpret_cast<uint8_t *>(bytes.data()), bytes_of(text), text.size(), key), 0);
    return kSealedMagic + bytes;
}

int open(const std::string &datagram, FHOST_RECORD *record, std::string *said = nullptr)
{
    gblDebug = 1;
    testing::internal::CaptureStderr();
    memset(record, 0x55, sizeof(*record));
    const int result = fhost_open(datagram.size(), bytes_of(datagram), record);
    const std::string text = testing::internal::GetCapturedStderr();
    gblDebug = 0;
    if (said != nullptr)
        *said = text;
    return result;
}

std::string hex(const uint8_t *key)
{
    char text[kFhostKeyTextLength + 1];
    return sodium_bin2hex(text, sizeof(text), key, kFhostKeyBytes);
}

TEST(FhostSeal, OpensWhatWasSealedToThisProcessAlone)
{
    const Keys keys;
    FHOST_RECORD record;
    std::string said;
    ASSERT_EQ(open(sealed(plain(base(1) + element(0x7c, "aa:bb"))), &record), 0);
    EXPECT_EQ(record.ulStamp, 0x01020000U);
    EXPECT_STREQ(record.szPcMac, "aa:bb");

    EXPECT_EQ(open(sealed(plain("\x11")), &record), -1); // opened, and does not parse
    for (const std::string &inner : {std::string("1234567"), std::string(), std::string(kSealedMagic) + base(1)}) {
        EXPECT_EQ(open(sealed(inner), &record, &said), -1);
        EXPECT_EQ(said, "Invalid findhost header\n");
    }
    // Not ours: a zero record, and silence.
    const FHOST_RECORD zero = {};
    uint8_t other_public[kFhostKeyBytes], other_secret[kFhostKeyBytes];
    crypto_box_keypair(other_public, other_secret);
    const std::string good = sealed(plain(base(1)));
    std::vector<std::string> foreign = {sealed(plain(base(1)), other_public), kSealedMagic};
    for (size_t length = 8; length < good.size(); length++)
        foreign.push_back(good.substr(0, length));
    for (size_t bit = 64; bit < good.size() * 8; bit++) {
        foreign.push_back(good);
        foreign.back()[bit / 8] = static_cast<char>(foreign.back()[bit / 8] ^ (1 << (bit % 8)));
    }
    for (const std::string &datagram : foreign) {
        ASSERT_EQ(open(datagram, &record, &said), 0);
        ASSERT_EQ(said, "");
        ASSERT_EQ(memcmp(&record, &zero, sizeof(record)), 0);
    }
}

TEST(FhostSeal, WithoutAKeyPairNothingSealedParses)
{
    FHOST_RECORD record;
    std::string said;
    std::string datagram;
    {
        const Keys keys;
        datagram = sealed(plain(base(1)));
    }
    EXPECT_FALSE(FHOSTProcessKeyIsSet());
    EXPECT_EQ(FHOSTProcessPublicKey(), nullptr);
    EXPECT_EQ(FHOSTProcessSecretKeyOpen(), nullptr);
    EXPECT_EQ(open(datagram, &record, &said), -1);
    EXPECT_EQ(said, "Process key not set. Read unencrypted only.\n");
}

// By a signal, or by a sanitizer in its place.
bool is_killed(int status)
{
    return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
}

// A touch of the secret key outside of its time ends the process.
TEST(FhostSealDeathTest, SecretKeyIsOutOfReachBetweenUses)
{
    const Keys keys;
    const uint8_t *secret = FHOSTProcessSecretKeyOpen();
    ASSERT_NE(secret, nullptr);
    uint8_t derived[kFhostKeyBytes];
    crypto_scalarmult_base(derived, secret);
    EXPECT_EQ(hex(derived), hex(FHOSTProcessPublicKey()));
    const auto touch = [secret] { exit(*static_cast<const volatile uint8_t *>(secret) & 0); };
    FHOSTProcessSecretKeyClose();
    EXPECT_EXIT(touch(), is_killed, "");
    FHOST_RECORD record;
    for (const std::string &datagram : {sealed(plain(base(1))), std::string(kSealedMagic) + "rubbish"}) {
        EXPECT_EQ(fhost_open(datagram.size(), bytes_of(datagram), &record), 0);
        EXPECT_EXIT(touch(), is_killed, "");
    }
}

TEST(FhostSeal, ReplyGoesSealedOrNotAtAllToAClientWithAKey)
{
    uint8_t client_public[kFhostKeyBytes], client_secret[kFhostKeyBytes];
    crypto_box_keypair(client_public, client_secret);
    const std::string good = hex(client_public);
    const struct {
        std::string key;
        size_t plain_bytes; // with what the sealing step appends: 66 and 6
        int result;
    } kCases[] = {
        {"", 100, 0}, // no key is known
        {good, 967, 1},
        {good, 968, -1},
        {std::string(64, '0'), 100, -1}, // nothing can be sealed to this one
        {good.substr(0, 63) + ",", 100, -1},
    };
    for (const auto &row : kCases) {
        const Keys keys;
        FHOST_RECORD request = {};
        ASSERT_TRUE(text_set(request.szPcMac, "02:00:00:00:00:01"));
        request.ulKeyId = 0x1234;
        if (!row.key.empty()) {
            ASSERT_EQ(FHOSTKeyCacheSet("02:00:00:00:00:01", 0x1234, row.key.c_str()), 0);
        }
        FhostPacket packet;
        fhost_packet_begin(&packet);
        while (packet.size < row.plain_bytes - 72)
            fhost_put_text(&packet, PKT_ID_BLOB,
                           std::string(std::min<size_t>(row.plain_bytes - 72 - packet.size - 2, 200), 'b'));
        const std::string before(packet.bytes, packet.bytes + packet.size);
        EXPECT_EQ(fhost_reply_seal(request, &packet), row.result) << row.key << " " << row.plain_bytes;
        const std::string after(packet.bytes, packet.bytes + packet.size);
        if (row.result == 0) {
            EXPECT_EQ(after, before);
        }
        if (row.result != 1)
            continue;
        ASSERT_EQ(after.size(), row.plain_bytes + 56);
        EXPECT_EQ(after.substr(0, 8), kSealedMagic);
        std::string opened(row.plain_bytes, '\0');
        ASSERT_EQ(crypto_box_seal_open(reinterpret_cast<uint8_t *>(opened.data()), bytes_of(after) + 8,
                                       after.size() - 8, client_public, client_secret),
                  0);
        EXPECT_EQ(opened, before + element(0xc4, hex(FHOSTProcessPublicKey())) + number(0xc5, FHOSTProcessKeyId()));
    }
}

TEST(FhostKeyCache, TellsClientsApartAndCutsTheirTexts)
{
    const std::string key(64, 'a'), mac(60, 'm');
    char text[kFhostCachedKeyRoom];
    FHOSTKeyCacheClear();
    EXPECT_EQ(FHOSTKeyCacheGet("m", 1, text), -1);
    ASSERT_EQ(FHOSTKeyCacheSet("", 1, key.c_str()), 0);
    ASSERT_EQ(FHOSTKeyCacheSet(mac.c_str(), 2, "bbbb"), 0);
    ASSERT_EQ(FHOSTKeyCacheSet("m", 1, std::string(90, 'c').c_str()), 0); // no room is left for the comma
    ASSERT_EQ(FHOSTKeyCacheSet("m", 0xffffffff, "one,two"), 0);
    struct Case {
        const char *mac;
        uint32_t id;
        const char *key; // NULL: none
    };
    const std::string cut = mac.substr(0, 59);
    const Case kCases[] = {
        {"", 1, key.c_str()},
        {mac.c_str(), 2, "bbbb"},
        {mac.c_str(), 0x25, "bbbb"}, // the 63rd character is the
                                     // last of the name: "+0"
        {cut.c_str(), 2, nullptr},
        {"m", 1, nullptr},
        {"m", 0xffffffff, "one"},
        {"m", 0, nullptr},
    };
    for (const auto &row : kCases)
        for (int round = 0; round < 2; round++) { // a lookup changes nothing but the entry's age
            EXPECT_EQ(FHOSTKeyCacheGet(row.mac, row.id, text), row.key == nullptr ? -1 : 0) << row.id;
            if (row.key != nullptr) {
                EXPECT_STREQ(text, row.key);
            }
        }
    EXPECT_EQ(FHOSTKeyCacheSet("m", 0, "k"), -1);
    EXPECT_EQ(FHOSTKeyCacheDelete("", 1), 0);
    EXPECT_EQ(FHOSTKeyCacheGet("", 1, text), -1);
    FHOSTKeyCacheClear();
    EXPECT_EQ(FHOSTKeyCacheGet("m", 0xffffffff, text), -1);
}

// Fills a cache with 4096 clients, the i-th set at first + i * step. The client's own text tells no time, commas or
// not.
void cache_fill(UniqueHash *cache, unsigned long first, unsigned long step)
{
    char mac[24];
    for (unsigned long i = 0; i < 4096; i++) {
        snprintf(mac, sizeof(mac), "mac %lu", i);
        ASSERT_EQ(key_cache_set(cache->address(), mac, 1, "key,fffffff,", first + i * step), 0);
    }
    ASSERT_EQ(NLIBCSzHashPairNum(cache->get()), 4096);
}

TEST(FhostKeyCache, MakesRoomByAgeThenForAll)
{
    static constexpr struct {
        unsigned long now;
        unsigned long first, step; // when entry i was set: first + i * step
        int kept;                  // beside the new one
    } kCases[] = {
        {1200, 599, 1, 0},          // a limit of 600 is none: all go
        {1202, 600, 1, 4095},       // one is older than 601
        {200000, 113599, 1, 4095},  // one is over a day old
        {200000, 113600, 20, 1936}, // half a day: entries from 156800 on
        {200000, 199325, 0, 0},     // 675 seconds: all stay at the last limit, and go at once
    };
    for (const auto &row : kCases) {
        UniqueHash cache;
        cache_fill(&cache, row.first, row.step);
        ASSERT_EQ(key_cache_set(cache.address(), "new", 1, "key", row.now), 0);
        EXPECT_EQ(NLIBCSzHashPairNum(cache.get()), row.kept + 1) << row.now << " " << row.first << " " << row.step;
        EXPECT_NE(NLIBCSzHashGetValue(cache.get(), "new+00000001"), nullptr);
        EXPECT_EQ(NLIBCSzHashGetValue(cache.get(), "mac 4095+00000001") != nullptr, row.kept > 0);
    }
}

TEST(FhostKeyCache, FailedWalkLeavesTheCacheAsItWas)
{
    UniqueHash cache;
    cache_fill(&cache, 100000, 20);
    for (int nth = 1, struck = 1; struck != 0; nth++) {
        AllocFault fault(nth);
        const int result = key_cache_set(cache.address(), "new", 1, "key", 200000);
        struck = fault.struck() ? 1 : 0;
        EXPECT_EQ(result, struck != 0 ? -1 : 0);
        if (struck != 0) {
            EXPECT_EQ(NLIBCErrGet(), kErrOutOfMemory);
            ASSERT_EQ(NLIBCSzHashPairNum(cache.get()), 4096);
            ASSERT_NE(NLIBCSzHashGetValue(cache.get(), "mac 0+00000001"), nullptr);
        }
    }
}

} // namespace
