// The network state that the configuration files keep, and the tools that carry it out.
//
// Everything here runs as the caller and nothing is cached: each reading opens the files and asks the interfaces anew.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

// Where the state of an interface stands.
inline constexpr char kNetConfigPrefix[] = "/etc/sysconfig/network-scripts/ifcfg-"; // and the name
inline constexpr char kNetLeasePrefix[] = "/etc/dhcpc/dhcpcd-";                     // and the name, ".info" or ".pid"

enum NetCardMode : int { kNetDhcp = 0, kNetStatic = 1 };

// One interface as the network files know it.
struct NORV_CARD {
    int nMode;   // NetCardMode
    int nLinkUp; // 1 when running
    char szName[32];
    uint8_t mac[6];
    char szIP[64];
    char szMask[64];
};

// Reads one of the interfaces that carry addresses (kNetVirtual).
//   index  0 to 31, in natural order of the names; not looked at when `ip` is given
//   ip     the address that the interface holds now; NULL to go by index
// The address in the record is that of the interface's file; for DHCP that of its lease, for which it waits up to three
// seconds. Returns 1; 0 with the record cleared when there is no such interface; -1 when the interfaces cannot be
// listed or the file lacks address or mask, logged.
[[nodiscard]] int NORVJNetGetCard1(int index, const char *ip, NORV_CARD *card);

// Applies nMode, and for kNetStatic address and mask, to the interface szName. DHCP blocks for 30 seconds and more,
// with the lock of the network files held. Returns 0; else the negative result of the step, -1 on a bad argument
// (0x0d00) or address (0x1000).
[[nodiscard]] int NORVJNetSetCard1(const NORV_CARD *card);

// The two steps of NORVJNetSetCard1.
// Restarts the DHCP client, all others are ended too. Returns 0; -1 when it does not start, -2 when the interface's
// file cannot be written.
[[nodiscard]] int NORVJLnxSetDHCP(const char *name);
// Sets a static address. A failure brings the interface's old file back. Returns 0; -1.
[[nodiscard]] int NORVJLnxSetIPNetmask(const char *name, const char *ip, const char *mask);

// Whether an interface may have this address: both dotted quads (parts as strtol in base 0 reads them), address neither
// loopback nor above class C nor the subnet's broadcast address, mask contiguous and not empty. The mask is rewritten
// in plain decimals. Returns 1 or 0.
inline constexpr size_t kNetAddressRoom = 20;
[[nodiscard]] int net_is_valid_ip_mask(const char *ip, char (&mask)[kNetAddressRoom]);

// Whether the interface's file says DHCP: 1 or 0. A file without BOOTPROTO is made static.
[[nodiscard]] int NORVJNetDeviceIsDHCP(const char *name);

// The host name up to its first dot. Returns 1; 0 when it is empty; -1 with 0x0d00 or 0x8100.
inline constexpr size_t kHostNameRoom = HOST_NAME_MAX + 1;
[[nodiscard]] int NORVJNetGetHostname(char (&name)[kHostNameRoom]);
// Sets the host name in the system, /etc/sysconfig/network and /etc/hosts, whose lines are written anew from the
// interfaces' present addresses. Returns 0; -1.
[[nodiscard]] int NORVJNetSetHostname(const char *name);

// The first name server of /etc/resolv.conf, empty when there is none. Returns 0; -1 with 0x0d00 or 0x0100.
[[nodiscard]] int NORVJNetGetDNS(char *text, size_t size);
// Makes `text`, an IPv4 or IPv6 address, the only name server. Returns 0; -1 with 0x1000, 0x0900, 0x0b00 or 0x2800.
[[nodiscard]] int NORVJNetSetDNS(const char *text);

// The default gateway as the kernel routes now, empty when there is none. Returns 0; -1 with 0x0d00, 0x0900, 0x4000 or
// 0x0100.
[[nodiscard]] int NORVJNetGetGateway(char *text, size_t size);
// Replaces the default route; an empty text only removes it. Returns 0; -1 with 0x0d00 or 0x2a00.
[[nodiscard]] int NORVJNetSetGateway(const char *text);

enum RouteAction : int { kRouteAdd = 0, kRouteRemove = 1 };

// Adds or removes (RouteAction) the route to the interface's own subnet. A DHCP interface gets no route here.
// Returns 0; -1 when its address or mask is not known.
int NORVJNetRoutetableHandler(int action, const char *name);

// Removes the subnet routes of interfaces without a link, when there are at least two interfaces. Returns 0; -1.
int NORVJNetRoutetableClean();

// Ends the DHCP client of an interface: SIGTERM, up to three seconds of grace, then SIGKILL. Returns 0, also when none
// runs; -1 when it survives.
[[nodiscard]] int DhcpClientKill(const char *name);

// Starts a DHCP client that goes to the background. Returns 0; -1.
[[nodiscard]] int net_dhcp_client_start(const char *name);
