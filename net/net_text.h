// Reading what the kernel and the system's files tell of the network. Any bytes may stand there.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

#include "net/net.h"

// Reads interfaces in the form of /proc/net/dev (proc(5)), up to a line without a colon. Results of NetStatGetAll.
[[nodiscard]] int net_stat_read(FILE *file, NET_STAT *array, int count);

// The first name server in the text of a resolv.conf(5), "" when there is none.
[[nodiscard]] std::string_view net_name_server(std::string_view resolv_conf);

// Reads the default gateway from a routing table in the form of /proc/net/route (proc(5)). Results of
// NORVJNetGetGateway.
[[nodiscard]] int net_gateway_read(FILE *file, char *text, size_t size);
