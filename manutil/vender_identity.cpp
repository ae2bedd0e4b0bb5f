#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "lib/report.h"
#include "lib/text.h"
#include "manutil/vender_format.h"

int NORVManutilMacGet(int number, uint8_t *mac)
{
    if (number < 1 || number > kVenderMacsMax || mac == nullptr)
        return fail(kErrBadParameter);
    VenderRecord record;
    if (vender_get(&record) != 0)
        return -1;
    const VenderMac &stored = record.macs[number - 1];
    if (stored.is_set == 0)
        return fail(kErrKeyMissing);
    if (stored.check != vender_mac_check(stored.address))
        return fail(kErrVendorData);
    memcpy(mac, stored.address, kVenderMacBytes);
    return 0;
}

int NORVManutilMacSet(int number, const uint8_t *mac)
{
    if (number < 1 || number > kVenderMacsMax || mac == nullptr)
        return fail(kErrBadParameter);
    struct Change {
        int number;
        const uint8_t *mac;
    } change = {number, mac};
    return vender_update(
        [](VenderRecord *record, void *context) {
            const auto *wanted = static_cast<const Change *>(context);
            VenderMac &stored = record->macs[wanted->number - 1];
            memcpy(stored.address, wanted->mac, kVenderMacBytes);
            stored.is_set = 1;
            stored.check = vender_mac_check(stored.address);
            return 0;
        },
        &change);
}

int NORVManutilSnGet(char *serial, size_t size)
{
    constexpr std::string_view kMark = ",CHK=";
    VenderRecord record;
    if (vender_get(&record) != 0)
        return -1;
    const std::string_view stored = text_view(record.serial);
    if (stored.empty())
        return fail(kErrKeyMissing);
    const size_t mark = stored.rfind(kMark);
    char expected[sizeof(record.serial)];
    if (mark == stored.npos || mark >= size)
        return fail(kErrVendorData);
    snprintf(expected, sizeof(expected), "%.*s%s%04X", static_cast<int>(mark), stored.data(), kMark.data(),
             vender_serial_check(stored.data(), mark));
    if (stored != expected)
        return fail(kErrVendorData);
    stored.copy(serial, mark);
    serial[mark] = '\0';
    return 0;
}

static bool serial_is_valid(const char *serial)
{
    const size_t length = serial != nullptr ? strlen(serial) : 0;
    if (length == 0 || length >= kVenderSerialRoom)
        return false;
    for (size_t i = 0; i < length; i++)
        if (isalnum(static_cast<unsigned char>(serial[i])) == 0 && serial[i] != '-' && serial[i] != '_')
            return false;
    return true;
}

int NORVManutilSnSet(const char *serial)
{
    if (!serial_is_valid(serial))
        return fail(kErrBadParameter);
    return vender_update(
        [](VenderRecord *record, void *context) {
            const char *text = static_cast<const char *>(context);
            snprintf(record->serial, sizeof(record->serial), "%s,CHK=%04X", text,
                     vender_serial_check(text, strlen(text)));
            return 0;
        },
        const_cast<char *>(serial));
}

int NORVManutilCustomSnSet(const char *serial)
{
    if (serial == nullptr || strlen(serial) >= kVenderSerialRoom)
        return fail(kErrBadParameter);
    return vender_update(
        [](VenderRecord *record, void *context) {
            text_cut(record->custom_serial, static_cast<const char *>(context));
            return 0;
        },
        const_cast<char *>(serial));
}
