#include "findhost/quick_conf.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "findhost/findhost.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/norvjnet.h"

namespace
{

// An IPv4 address as text.
struct AddressText {
    char text[INET_ADDRSTRLEN] = "";

    explicit AddressText(uint32_t address) { inet_ntop(AF_INET, &address, text, sizeof(text)); }
};

// Looks the interface up by the digit that its name ends in. `step` stands in the log.
// Returns whether it is in DHCP mode as far as that tells, 1 or 0; -1.
int card_is_dhcp(const char *step, const char *name)
{
    const size_t length = strlen(name);
    if (length == 0 || isdigit(static_cast<unsigned char>(name[length - 1])) == 0) {
        NORV_LOG_OLD(LOG_ERR, step, ": bad dev name:%s", name);
        return fail(kErrBadParameter);
    }
    NORV_CARD current;
    const int found = NORVJNetGetCard1(name[length - 1] - '0', nullptr, &current);
    if (found < 0) {
        NORV_LOG_OLD(LOG_ERR, step, " NORVJNetGetCard1 failed.(%X)", static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    return found == 1 && current.nMode == kNetDhcp ? 1 : 0; // without a card there is no mode to keep
}

int dhcp_apply(const char *step, const char *name)
{
    const int is_dhcp = card_is_dhcp(step, name);
    if (is_dhcp != 0)
        return is_dhcp == 1 ? 0 : -1; // a client cannot force a new lease
    NORV_CARD card = {};
    card.nMode = kNetDhcp;
    text_cut(card.szName, name);
    if (NORVJNetSetCard1(&card) >= 0)
        return 0;
    NORV_LOG_OLD(LOG_ERR, step, " NORVJNetSetCard1 failed.(%X)", static_cast<unsigned>(NLIBCErrGet()));
    return -1;
}

int NETSetDHCP(const char *name)
{
    if (dhcp_apply(__func__, name) == 0)
        return 0;
    syslog(LOG_ERR, "Failed to set DHCP! (0x%X)\n", static_cast<unsigned>(NLIBCErrGet()));
    return -1;
}

int address_apply(const char *step, const FHOST_RECORD &record, const char *name, FILE *lines)
{
    if (card_is_dhcp(step, name) < 0)
        return -1;
    const AddressText ip(record.ulIP), mask(record.ulMask);
    NORV_CARD card = {};
    card.nMode = kNetStatic;
    text_cut(card.szName, std::string_view(name).substr(0, sizeof(NET_IF_INFO::szName)));
    text_cut(card.szIP, ip.text);
    text_cut(card.szMask, mask.text);
    fprintf(lines, "ip=%s\n", ip.text);
    fprintf(lines, "mask=%s\n", mask.text);
    return NORVJNetSetCard1(&card) >= 0 ? 0 : -1;
}

int ErrQCFSetManual(const FHOST_RECORD &record, const char *name)
{
    if (record.ulIP == 0 || record.ulMask == 0) {
        NORV_LOG_OLD(LOG_ERR, __func__, ": Bad parameters(ulIP=%u, ulMask=%u)", record.ulIP, record.ulMask);
        return fail(kErrBadParameter);
    }
    UniqueFile lines(fopen(kQuickConfPath, "we"));
    if (!lines) {
        NORV_LOG_OLD(LOG_ERR, __func__, ": open %s fail", kQuickConfPath);
        return fail(kErrOpen);
    }
    if (address_apply(__func__, record, name, lines.get()) != 0) {
        unlink(kQuickConfPath);
        syslog(LOG_ERR, "Failed to set network manually! (0x%X)\n", static_cast<unsigned>(NLIBCErrGet()));
        return -1;
    }
    // What fails from here on is not told to the client: the address is set, and the client will see what it can reach.
    if (record.ulGateway != 0) {
        const AddressText gateway(record.ulGateway);
        fprintf(lines.get(), "gateway=%s\n", gateway.text);
        static_cast<void>(NORVJNetSetGateway(gateway.text));
    }
    if (record.ulDns != 0) {
        const AddressText dns(record.ulDns);
        fprintf(lines.get(), "dns=%s\n", dns.text);
        static_cast<void>(NORVJNetSetDNS(dns.text));
    }
    const bool is_whole = ferror(lines.get()) == 0;
    if (fclose(lines.release()) != 0 || !is_whole) {
        NORV_LOG(LOG_ERR, "Failed to write %s: %m", kQuickConfPath);
        unlink(kQuickConfPath); // half of an address is none
    }
    return 0;
}

int ErrQCFSetHostName(const FHOST_RECORD &record)
{
    char name[sizeof(record.szHostName) + 1], current[kHostNameRoom];
    text_cut(name, text_view(record.szHostName));
    if (name[0] == '\0')
        return 0;
    const bool is_known = NORVJNetGetHostname(current) >= 0;
    if (is_known && (strcmp(name, current) == 0 || NORVJNetSetHostname(name) >= 0))
        return 0;
    const auto code = static_cast<unsigned>(NLIBCErrGet());
    syslog(LOG_ERR, "Failed to set host name! (0x%X)\n", code);
    if (!is_known)
        FHOST_DEBUG("(%s)%d:NORVJNetGetHostname(%s) failed.(%X)\n", __func__, __LINE__, name, code);
    else
        FHOST_DEBUG("(%s)%d:NORVJNetSetHostname(%s) failed.(%X)\n", __func__, __LINE__, name, code);
    return -1;
}

} // namespace

int ErrFHOSTDoQuickConf(const FHOST_RECORD *record, int *index)
{
    NET_IF_INFO table[kNetInterfacesMax] = {};
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
    if (count <= 0) {
        FHOST_DEBUG("ERROR (%s %d)\n", __func__, __LINE__);
        return -1;
    }
    const int match = IsMacMatch(record->szMac, table, count);
    if (match < 0)
        return -2;
    *index = match;
    FHOST_DEBUG("%s: the %dth interface matched\n", __func__, match);
    const char *name = table[match].szName;
    if ((record->ulDhcp != 0 ? NETSetDHCP(name) : ErrQCFSetManual(*record, name)) != 0)
        return -1;
    return ErrQCFSetHostName(*record);
}
