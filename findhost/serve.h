// The requests that the daemon serves, one unit each.
#pragma once

#include <ctime>
#include <netinet/in.h>

#include "findhost/packet.h"

// Each takes a packet that has passed all tests. Returns what FHOSTHandlePacket returns.
int fhost_serve_query(const FHOST_RECORD &record, const sockaddr_in &peer);
int fhost_serve_netsetting(const FHOST_RECORD &record, const sockaddr_in &peer);
int fhost_serve_quickconf(const FHOST_RECORD &record, const sockaddr_in &peer);
int fhost_serve_grinst(const FHOST_RECORD &record, const sockaddr_in &peer);

// Whether `then` was at most `seconds` ago; never for 0, nor when the clock has been set back since.
[[nodiscard]] inline bool fhost_is_recent(time_t then, int seconds)
{
    const time_t age = time(nullptr) - then;
    return then != 0 && age >= 0 && age <= seconds;
}
