// Finding processes in what ps prints.
#pragma once

#include <span>
#include <string_view>
#include <sys/types.h>

// Takes from ps's output the processes whose line holds `command` as whole words, but for the searches for it. Each
// line begins with the process id. Returns how many were stored, at most the room there is.
[[nodiscard]] int net_process_scan(std::string_view output, std::string_view command, std::span<pid_t> found);

// Kills every DHCP client of an interface, twice over for those that were just starting.
void net_dhcp_clients_kill(const char *name);
