// Lines that units send to the log server: records of "<length><key>=<value>" behind each other, the length in decimal
// counting key, '=' and value.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

using LogRecords = std::vector<std::pair<std::string, std::string>>; // key, value

// Takes a message apart, up to its first NUL. False when a record is not whole or has no key.
[[nodiscard]] bool log_line_parse(std::string_view message, LogRecords *records);

// The value of a key; empty when it is not there.
[[nodiscard]] std::string log_line_value(const LogRecords &records, std::string_view key);
