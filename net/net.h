// Network interfaces as the kernel lists them.
#pragma once

#include <cstdint>

inline constexpr int kNetInterfacesMax = 32;

// What NLIBNetGetInterfaceInfo lists.
enum NetListMode : int {
    kNetPhysical = 1, // the ports, members of a bond included
    kNetVirtual = 2,  // what carries addresses: a bond instead of its members
    kNetPointToPoint = 8
};

inline constexpr int kNetLinkUp = 2;

struct NET_IF_INFO {
    char szName[16];
    uint8_t mac[6];
    char szIP[63]; // empty without an address
    int nLink;     // kNetLinkUp when running, else 0
    int nFlags;    // interface flags, sign-extended from 16 bits
    char szMask[20];
};

// Traffic of one interface, as /proc/net/dev counts it.
struct NET_STAT {
    int nVersion; // 1
    char szName[16];
    long long llRxBytes, llRxPackets, llTxBytes, llTxPackets;
};

// An array of `count` records with nVersion set, for NetStatFree. NULL with 0x0d00 or 0x0200.
[[nodiscard]] NET_STAT *NetStatInit(int count);
void NetStatFree(NET_STAT *array);

// Reads up to `count` interfaces in natural order of their names; virtual ones of containers, monitors and taps are
// left out. Returns how many; -1 with 0x0d00, 0x0900 or 0x0a00.
[[nodiscard]] int NetStatGetAll(NET_STAT *array, int count);
// Reads one interface. Returns 0; -1.
[[nodiscard]] int NetStatGet(const char *name, NET_STAT *stat);

// How many ports are built in, the out-of-band port among them: as the kernel tells, else `maxlanport`, else 1. -1 with
// 0x0900 on a kernel that does not tell, logged.
[[nodiscard]] int NetInternalLanNumGet();

// Whether an interface is up (IFF_UP of /sys/class/net/NAME/flags): 1 or 0, 0 also when there is none.
[[nodiscard]] int NetIsIfUp(const char *name);

// Renames an interface, which must be down. Names of 16 characters are cut to the kernel's 15. Returns 0; -1, all but
// the first logged: NULL or too long a name (0x0d00), `new_name` exists, `old_name` is up, is none, or the kernel
// refuses (0x3900).
[[nodiscard]] int net_rename_eth(const char *old_name, const char *new_name);

// The board's first hardware address, from the kernel's norv_mac_address1: twelve hex digits. Returns 0; -1 with
// 0x0d00, 0x0900 or 0x4000, `mac` untouched.
[[nodiscard]] int system_first_vender_mac_addr_get(uint8_t (&mac)[6]);

// Lists the interfaces that are up, in natural order of their names.
//   table  room for `max` records; NULL to count only
//   mode   NetListMode; any other value but 0 lists all that are neither loopback nor point-to-point
// Returns the count; -1 with 0x0d00 on mode 0 or a negative `max`, or when there are none.
[[nodiscard]] int NLIBNetGetInterfaceInfo(NET_IF_INFO *table, int max, int mode);
