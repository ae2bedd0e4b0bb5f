// Makes one call of the network library and shows what came of it: `net_calls CALL ARGUMENT ...` prints the result and
// the texts that were returned, each behind a blank. It stands in a box, where such calls can do no harm.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/text.h"
#include "net/lan.h"
#include "net/net.h"
#include "net/norvjnet.h"

namespace
{

constexpr int kArguments = 3;

int card(char *argv[])
{
    NORV_CARD card;
    const bool by_index = isdigit(static_cast<unsigned char>(argv[0][0])) != 0 && strchr(argv[0], '.') == nullptr;
    const int result = NORVJNetGetCard1(atoi(argv[0]), by_index ? nullptr : argv[0], &card);
    printf("%s/%d/%s/%s ", card.szName, card.nMode, card.szIP, card.szMask);
    return result;
}

int card_set(char *argv[])
{
    NORV_CARD card = {};
    text_cut(card.szName, argv[0]);
    card.nMode = argv[1] != nullptr ? kNetStatic : kNetDhcp;
    if (argv[1] != nullptr)
        text_cut(card.szIP, argv[1]);
    if (argv[1] != nullptr && argv[2] != nullptr)
        text_cut(card.szMask, argv[2]);
    return NORVJNetSetCard1(&card);
}

int host_name(char * /*argv*/[])
{
    char name[kHostNameRoom];
    const int result = NORVJNetGetHostname(name);
    printf("%s ", name);
    return result;
}

template <auto kRead> int text_read(char * /*argv*/[])
{
    char text[64];
    const int result = kRead(text, sizeof(text));
    printf("%s ", text);
    return result;
}

int mac(char * /*argv*/[])
{
    uint8_t bytes[6] = {};
    const int result = system_first_vender_mac_addr_get(bytes);
    for (const uint8_t byte : bytes)
        printf("%02x ", byte);
    return result;
}

const struct {
    const char *name;
    int (*call)(char *argv[]);
} kCalls[] = {
    {"card", card},
    {"card_set", card_set},
    {"host_name", host_name},
    {"host_name_set", [](char *argv[]) { return NORVJNetSetHostname(argv[0]); }},
    {"dns", text_read<NORVJNetGetDNS>},
    {"dns_set", [](char *argv[]) { return NORVJNetSetDNS(argv[0]); }},
    {"gateway", text_read<NORVJNetGetGateway>},
    {"gateway_set", [](char *argv[]) { return NORVJNetSetGateway(argv[0]); }},
    {"routes_clean", [](char * /*argv*/[]) { return NORVJNetRoutetableClean(); }},
    {"lan_count", [](char * /*argv*/[]) { return NetInternalLanNumGet(); }},
    {"is_in_lan", [](char *argv[]) { return norv_is_in_lan(argv[0], atoi(argv[1])); }},
    {"mac", mac},
};

} // namespace

int main(int argc, char *argv[])
{
    char *arguments[kArguments + 1] = {};
    for (int i = 2; i < argc && i < kArguments + 2; i++)
        arguments[i - 2] = argv[i];
    for (const auto &[name, call] : kCalls) {
        if (argc < 2 || strcmp(name, argv[1]) != 0)
            continue;
        printf("%d\n", call(arguments));
        return 0;
    }
    return 1;
}
