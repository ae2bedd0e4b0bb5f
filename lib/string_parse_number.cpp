#include "lib/string.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

bool ParseNumber(const char *text, uint32_t *value)
{
    const bool is_hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *digits = is_hexadecimal ? text + 2 : text;
    const size_t length = strspn(digits, is_hexadecimal ? "0123456789abcdefABCDEF" : "0123456789");
    if (length == 0 || digits[length] != '\0')
        return false; // strtoul would take a blank, a sign and a second "0x"
    errno = 0;
    const unsigned long number = strtoul(digits, nullptr, is_hexadecimal ? 16 : 10);
    *value = static_cast<uint32_t>(number);
    return errno == 0 && number <= UINT32_MAX;
}
