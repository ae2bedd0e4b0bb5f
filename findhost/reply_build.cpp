#include <unistd.h>

#include "findhost/findhost.h"
#include "findhost/reply_facts.h"
#include "install/mem_test_progress.h"
#include "install/system_status.h"
#include "lib/conf.h"
#include "lib/file.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/norvjnet.h"

namespace
{

struct Facts {
    const FhostReply *reply;
    const NET_IF_INFO *interface;
    int status; // FhostStatus; negative: not told
};
using Emitter = void (*)(const Facts &, FhostPacket *);

// Puts what its name says; the order of a packet stands in the tables below.

template <FhostTagId kTag, uint64_t kValue> void constant(const Facts & /*facts*/, FhostPacket *packet)
{
    fhost_put_number(packet, kTag, kValue);
}

template <FhostTagId kTag, uint32_t FhostReply::*kMember> void exchange(const Facts &facts, FhostPacket *packet)
{
    fhost_put_number(packet, kTag, facts.reply->*kMember);
}

template <Emitter kEmitter> void in_long_form(const Facts &facts, FhostPacket *packet)
{
    if (facts.reply->long_form)
        kEmitter(facts, packet);
}

constexpr char kNoHostName[] = "empty_hostname", kBootingHostName[] = "booting_filer";

template <const char *kFallback> void host_name(const Facts & /*facts*/, FhostPacket *packet)
{
    char name[kHostNameRoom] = "";
    if (gethostname(name, sizeof(name)) != 0)
        name[0] = '\0';
    const std::string_view host = text_view(name).substr(0, text_view(name).find('.')).substr(0, 31);
    fhost_put_text(packet, PKT_ID_HOSTNAME, host.empty() ? kFallback : host);
}

void mac(const Facts &facts, FhostPacket *packet)
{
    fhost_put_mac(packet, PKT_ID_MAC, facts.interface->mac);
}

void first_mac(const Facts &facts, FhostPacket *packet)
{
    fhost_put_mac(packet, PKT_ID_FIRST_MAC, facts.reply->table[0].mac);
}

void address(const Facts &facts, FhostPacket *packet)
{
    fhost_put_number(packet, PKT_ID_IP, fhost_address_parse(facts.interface->szIP));
}

void address_or_report(const Facts &facts, FhostPacket *packet)
{
    const unsigned long ip = fhost_address_parse(facts.interface->szIP);
    if (ip == 0) {
        NORV_LOG_CALL(LOG_ERR, "(%s) nic_ip.s_addr=%lX", "FHOSTSendViaVface", ip);
        NORV_LOG_CALL(LOG_ERR, "(%s) nic_index=[%d], PsIfaces[nic_index].szName=[%s]", "FHOSTSendViaVface",
                      facts.reply->index, facts.interface->szName);
    }
    fhost_put_number(packet, PKT_ID_IP, ip);
}

void dhcp(const Facts &facts, FhostPacket *packet)
{
    fhost_put_number(packet, PKT_ID_DHCP, NORVJNetDeviceIsDHCP(facts.interface->szName) == 1 ? 1 : 0);
}

void mask(const Facts &facts, FhostPacket *packet)
{
    const bool has_address = fhost_address_parse(facts.interface->szIP) != 0;
    fhost_put_number(packet, PKT_ID_MASK, has_address ? fhost_address_parse(facts.interface->szMask) : 0);
}

void web_install(const Facts & /*facts*/, FhostPacket *packet)
{
    fhost_put_number(packet, PKT_ID_WEBINSTALL, NLIBCConfIsYes("support_webinstall") ? 1 : 0);
}

void dns_and_gateway(const Facts &facts, FhostPacket *packet)
{
    NORV_CARD card;
    if (NORVJNetGetCard1(facts.reply->index, nullptr, &card) != 1)
        return;
    char dns[64] = "", gateway[64] = "";
    if (NORVJNetGetDNS(dns, sizeof(dns)) == 0 && fhost_address_parse(dns) != 0)
        fhost_put_number(packet, PKT_ID_DNS, fhost_address_parse(dns));
    if (NORVJNetGetGateway(gateway, sizeof(gateway)) == 0 && fhost_address_parse(gateway) != 0)
        fhost_put_number(packet, PKT_ID_GATEWAY, fhost_address_parse(gateway));
}

void index(const Facts &facts, FhostPacket *packet)
{
    fhost_put_number(packet, PKT_ID_IF_INDEX, static_cast<uint32_t>(facts.reply->index));
}

void code_unless_done(const Facts &facts, FhostPacket *packet)
{
    if (facts.reply->code != kFhostDone)
        fhost_put_number(packet, PKT_ID_ERRCODE, facts.reply->code);
}

constexpr char kModel[] = "upnpmodelname", kUnique[] = "unique";

// A key of the model description, left out when it is not set or longer than `kRoom` allows with a NUL.
template <FhostTagId kTag, const char *kKey, int kRoom> void model_key(const Facts & /*facts*/, FhostPacket *packet)
{
    char value[kRoom];
    if (NLIBCFileGetKeyValue(kDefaultsPath, kKey, value, kRoom, 0) > 0)
        fhost_put_text(packet, kTag, value);
}

void os_name(const Facts & /*facts*/, FhostPacket *packet)
{
    char name[8];
    const bool is_set = NLIBCFileGetKeyValue(kDefaultsPath, "os_name", name, sizeof(name), 0) > 0;
    fhost_put_text(packet, PKT_ID_OS_NAME, is_set ? name : "NOS");
}

void support_raid(const Facts & /*facts*/, FhostPacket *packet)
{
    fhost_put_number(packet, PKT_ID_SUPPORT_RAID, NLIBCConfIsYes("supportraid") ? 1 : 0);
}

void pc_mac(const Facts &facts, FhostPacket *packet)
{
    const FHOST_RECORD *request = facts.reply->request;
    if (request != nullptr && request->szPcMac[0] != '\0')
        fhost_put_text(packet, PKT_ID_PC_MAC, text_view(request->szPcMac));
}

void status(const Facts &facts, FhostPacket *packet)
{
    if (facts.status < 0)
        return;
    fhost_put_number(packet, PKT_ID_STATUS, static_cast<uint32_t>(facts.status));
    if (facts.status == kFhostMemTesting) {
        unsigned long current = 0, total = 0;
        const bool is_known = GetMemTestProgress(&current, &total) == 0;
        fhost_put_number(packet, PKT_ID_PROGRESS, is_known ? mem_test_hundredths(current, total) : 0);
    }
    if (facts.status == kFhostMigratable) {
        fhost_put_text(packet, PKT_ID_OLD_VERSION, text_view(gDiskSysInfo.version));
        fhost_put_text(packet, PKT_ID_OLD_MODEL, text_view(gDiskSysInfo.model));
        fhost_put_number(packet, PKT_ID_OLD_BUILD, gDiskSysInfo.build_num);
        fhost_put_number(packet, PKT_ID_MIGRATE_TYPE, ulSysMigratType);
    }
}

void capabilities(const Facts &facts, FhostPacket *packet)
{
    const uint64_t bits = facts.status == kFhostMigratable ? kFhostCapsMigration : 0;
    fhost_put_number(packet, PKT_ID_CAPS1, bits);
    fhost_put_number(packet, PKT_ID_CAPS2, bits);
}

// A newer system on disks that may migrate is told in place of the one that runs.
template <void (*kRead)(FhostRelease *)> void release(const Facts &facts, FhostPacket *packet)
{
    FhostRelease told;
    kRead(&told);
    fhost_put_number(packet, PKT_ID_SMALLFIX, told.small_fix);
    const bool disk_is_newer = facts.status == kFhostMigratable && gDiskSysInfo.build_num > told.build;
    fhost_put_number(packet, PKT_ID_BUILD, disk_is_newer ? gDiskSysInfo.build_num : told.build);
    const std::string_view version = disk_is_newer ? text_view(gDiskSysInfo.version) : text_view(told.version);
    if (!version.empty())
        fhost_put_text(packet, PKT_ID_VERSION, version);
}

void serial(const Facts & /*facts*/, FhostPacket *packet)
{
    char text[kFhostSerialRoom];
    const int length = fhost_serial_read(text);
    if (length < 0)
        return;
    fhost_put_text(packet, PKT_ID_SERIAL, text);
    const char *short_form = fhost_serial_short(text, length);
    if (short_form != nullptr)
        fhost_put_text(packet, PKT_ID_SERIAL_SHORT, short_form);
}

// The packets, in the order in which clients find their elements.

constexpr Emitter kInterfaceReply[] = {
    host_name<kNoHostName>,
    mac,
    address_or_report,
    dhcp,
    mask,
    in_long_form<web_install>,
    in_long_form<exchange<PKT_ID_CONNECT, &FhostReply::connect>>,
    in_long_form<exchange<PKT_ID_PEER_IP, &FhostReply::peer_ip>>,
    in_long_form<exchange<PKT_ID_ERRCODE, &FhostReply::code>>,
    dns_and_gateway,
    index,
    constant<PKT_ID_PTYPE, PKT_ID_PTYPE_REPLY>,
    constant<PKT_ID_STAMP, kFhostStamp>,
    constant<PKT_ID_FLAGA6, 0x78>,
    constant<PKT_ID_FLAG48, 1>,
    model_key<PKT_ID_MODEL, kModel, 48>,
    model_key<PKT_ID_UNIQUE, kUnique, 64>,
    os_name,
    support_raid,
    pc_mac,
    status,
    capabilities,
    release<fhost_release_read>,
    serial,
};

constexpr Emitter kPhysicalReply[] = {
    host_name<kBootingHostName>,
    mac,
    constant<PKT_ID_CONNECT, 0>,
    exchange<PKT_ID_PEER_IP, &FhostReply::peer_ip>,
    code_unless_done,
    first_mac,
    index,
    constant<PKT_ID_PTYPE, PKT_ID_PTYPE_REPLY>,
    constant<PKT_ID_STAMP, kFhostStamp>,
    status,
    capabilities,
    release<fhost_release_read_parts>,
    pc_mac,
};

constexpr Emitter kReady[] = {
    mac,
    address,
    constant<PKT_ID_PTYPE, PKT_ID_PTYPE_READY>,
    constant<PKT_ID_STAMP, kFhostStamp>,
};

void build(std::span<const Emitter> emitters, const Facts &facts, FhostPacket *packet)
{
    fhost_packet_begin(packet);
    for (const Emitter emit : emitters)
        emit(facts, packet);
}

} // namespace

void fhost_vface_reply_build(const FhostReply &reply, FhostPacket *packet)
{
    build(kInterfaceReply, {&reply, &reply.table[reply.index], FHOSTGetStatus()}, packet);
}

void fhost_phyface_reply_build(const FhostReply &reply, FhostPacket *packet)
{
    build(kPhysicalReply, {&reply, &reply.table[reply.index], FHOSTGetStatus()}, packet);
}

void fhost_ready_build(const NET_IF_INFO &interface, FhostPacket *packet)
{
    build(kReady, {nullptr, &interface, -1}, packet);
}
