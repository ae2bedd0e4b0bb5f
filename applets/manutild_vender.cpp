// The two events that store something in the factory's record.
#include "applets/manutild.h"
#include "lib/report.h"
#include "manutil/vender.h"
#include "net/net.h"

int MANCustomSnSet(UDPD_HANDLE *handle, char *message, int /*length*/)
{
    const bool done = message != nullptr && NORVManutilCustomSnSet(message) == 0;
    return man_reply(handle, kManCustomSnSet, done ? kManDone : kManFailed);
}

// mac = base + number, six bytes each. False when the sum does not fit.
static bool mac_add(const uint8_t *base, int number, uint8_t *mac)
{
    auto carry = static_cast<unsigned>(number);
    for (size_t i = kVenderMacBytes; i-- > 0; carry >>= 8) {
        carry += base[i];
        mac[i] = static_cast<uint8_t>(carry);
    }
    return carry == 0;
}

// Stores an address for each interface. Returns 0; -1, logged.
static int macs_set(const uint8_t *base)
{
    const int interfaces = NLIBNetGetInterfaceInfo(nullptr, kNetInterfacesMax, kNetVirtual);
    if (interfaces < 1)
        return -1;
    for (int i = 0; i < interfaces; i++) {
        uint8_t mac[kVenderMacBytes];
        if (!mac_add(base, i, mac)) {
            NORV_LOG(LOG_ERR, "mac address is overflowed");
            NORV_LOG(LOG_ERR, "mac address calculation failed");
            return -1;
        }
        if (NORVManutilMacSet(i + 1, mac) != 0) {
            NORV_LOG(LOG_ERR, "failed to set mac address %d", i + 1);
            return -1;
        }
    }
    return 0;
}

int MANMacSet(UDPD_HANDLE *handle, char *message, int length)
{
    const bool done =
        length >= static_cast<int>(kVenderMacBytes) && macs_set(reinterpret_cast<const uint8_t *>(message)) == 0;
    return man_reply(handle, kManMacSet, done ? kManDone : kManFailed);
}
