// Bytes written by hand.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Of hexadecimal digits, with blanks between pairs where they please.
inline Bytes hex(std::string_view digits)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += digits[i] == ' ' ? 1 : 2)
        if (digits[i] != ' ')
            bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16)));
    return bytes;
}
