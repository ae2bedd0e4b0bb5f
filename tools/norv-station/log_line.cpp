#include "tools/norv-station/log_line.h"

static constexpr size_t kLengthMax = 1024; // of a whole message

bool log_line_parse(std::string_view message, LogRecords *records)
{
    message = message.substr(0, message.find('\0'));
    records->clear();
    while (!message.empty()) {
        size_t length = 0, digits = 0;
        for (; digits < message.size() && message[digits] >= '0' && message[digits] <= '9'; digits++) {
            length = length * 10 + static_cast<size_t>(message[digits] - '0');
            if (length > kLengthMax)
                return false;
        }
        message.remove_prefix(digits);
        const std::string_view record = message.substr(0, length);
        const size_t sign = record.find('=');
        if (digits == 0 || record.size() != length || sign == 0 || sign == record.npos)
            return false;
        records->emplace_back(record.substr(0, sign), record.substr(sign + 1));
        message.remove_prefix(length);
    }
    return !records->empty();
}

std::string log_line_value(const LogRecords &records, std::string_view key)
{
    for (const auto &[name, value] : records)
        if (name == key)
            return value;
    return "";
}
