#include <cctype>
#include <cstdio>
#include <cstring>

#include "applets/mantool.h"
#include "lib/report.h"
#include "lib/string.h"
#include "manutil/vender.h"

// Reads the number of an address, when the command gives one.
static bool number_parse(const char *text, int *number)
{
    uint32_t value = 1;
    if (text != nullptr && !ParseNumber(text, &value))
        return false;
    *number = value <= kVenderMacsMax ? static_cast<int>(value) : 0;
    return true;
}

// Reads an address of twelve hexadecimal digits.
static bool mac_parse(const char *text, uint8_t (&mac)[kVenderMacBytes])
{
    if (strlen(text) != 2 * kVenderMacBytes)
        return false;
    for (size_t i = 0; i < kVenderMacBytes; i++) {
        const unsigned char high = static_cast<unsigned char>(text[2 * i]),
                            low = static_cast<unsigned char>(text[2 * i + 1]);
        unsigned byte = 0;
        if (isxdigit(high) == 0 || isxdigit(low) == 0 || sscanf(text + 2 * i, "%2x", &byte) != 1)
            return false;
        mac[i] = static_cast<uint8_t>(byte);
    }
    return true;
}

int man_mac_get(int argc, char *argv[])
{
    int number = 1;
    uint8_t mac[kVenderMacBytes];
    if (argc > 3 || !number_parse(argc == 3 ? argv[2] : nullptr, &number))
        return mantool_usage_error();
    if (NORVManutilMacGet(number, mac) != 0) {
        puts("Failed to get Mac Address.");
        return -1;
    }
    printf("MAC:");
    for (size_t i = 0; i < kVenderMacBytes; i++)
        printf("%02X%c", mac[i], i + 1 < kVenderMacBytes ? ':' : '\n');
    return 0;
}

int man_mac_set(int argc, char *argv[])
{
    int number = 1;
    uint8_t mac[kVenderMacBytes];
    if ((argc != 3 && argc != 4) || !number_parse(argc == 4 ? argv[2] : nullptr, &number) ||
        !mac_parse(argv[argc - 1], mac))
        return mantool_usage_error();
    if (NORVManutilMacSet(number, mac) == 0)
        return 0;
    puts("Failed to set Mac Address.");
    return -1;
}

int man_sn_get(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    char serial[kVenderSerialRoom];
    if (NORVManutilSnGet(serial, sizeof(serial)) == 0) {
        printf("SN:%s\n", serial);
        return 0;
    }
    puts(NLIBCErrGet() == kErrVendorData ? "Checksum error!" : "Failed to get serial number.");
    return -1;
}

int man_sn_set(int argc, char *argv[])
{
    if (argc != 3)
        return mantool_usage_error();
    if (NORVManutilSnSet(argv[2]) == 0)
        return 0;
    puts("Failed to set serial number.");
    return -1;
}

int man_vender_version_get(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    uint32_t version = 0;
    if (vender_format_version_get(&version) == 0) {
        printf("Vender version:%d\n", static_cast<int>(version));
        return 0;
    }
    puts(NLIBCErrGet() == kErrBadFormat ? "Failed to read version!" : "Failed to get vender format version.");
    return -1;
}

int man_custom_sn_set(int argc, char *argv[])
{
    if (argc != 3 || strlen(argv[2]) >= kVenderSerialRoom)
        return mantool_usage_error();
    if (NORVManutilCustomSnSet(argv[2]) == 0)
        return 0;
    puts("Failed to set custom serial number.");
    return -1;
}
