// The network state that the configuration files keep, and the tools that carry it out.
#pragma once

#include <cstddef>

// Where the state of an interface stands.
inline constexpr char kNetConfigPrefix[] = "/etc/sysconfig/network-scripts/ifcfg-"; // and the name
inline constexpr char kNetLeasePrefix[] = "/etc/dhcpc/dhcpcd-";                     // and the name, ".info" or ".pid"

// Lock words of the network files.
inline constexpr int kNetReadLockWord = 0x105;
inline constexpr int kNetWriteLockWord = 0x106;
inline constexpr int kNetUnlockWord = 0x100;

// Waits up to three seconds for the lease of a DHCP interface to be written. Returns its path in `path`.
void net_lease_wait(const char *name, char *path, size_t size);

// Whether the interface's file says DHCP: 1 or 0. A file without BOOTPROTO is made static.
[[nodiscard]] int NORVJNetDeviceIsDHCP(const char *name);

enum RouteAction : int { kRouteAdd = 0, kRouteRemove = 1 };

// Adds or removes (RouteAction) the route to the interface's own subnet. A DHCP interface gets no route here.
// Returns 0; -1 when its address or mask is not known.
int NORVJNetRoutetableHandler(int action, const char *name);

// Removes the subnet routes of interfaces without a link, when there are at least two interfaces. Returns 0; -1.
int NORVJNetRoutetableClean();

// Ends the DHCP client of an interface: SIGTERM, up to three seconds of grace, then SIGKILL. Returns 0, also when none
// runs; -1 when it survives.
int net_dhcp_client_stop(const char *name);

// Starts a DHCP client that goes to the background. Returns 0; -1.
int net_dhcp_client_start(const char *name);
