// Who is on the wire.
#pragma once

// Whether an address belongs to a neighbour: on some running port `arping` gets an answer from it and none from an
// address that no LAN holds, as it would from a proxy.
//   address  as text; goes to arping as it is
//   count    ARP requests to send
// Waits for all children of the process. Returns 0 for a neighbour; -1 otherwise, 0x9700 logged when a child could not
// be started.
[[nodiscard]] int norv_is_in_lan(const char *address, int count);
