// Carries out the network settings that a client sent.
#pragma once

#include "findhost/packet.h"

inline constexpr char kQuickConfPath[] = "/.tmpcfg"; // what was set by hand, for what follows the install

// Sets DHCP or an address on the interface that `szMac` names, then the host name. Blocks for 30 seconds when the
// interface goes over to DHCP. Nothing is rolled back.
//   index  receives the interface's number among the virtual ones
// Returns 0; -1 on failure; -2 when no interface matches.
int ErrFHOSTDoQuickConf(const FHOST_RECORD *record, int *index);
