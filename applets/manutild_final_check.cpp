#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "applets/manutild.h"
#include "external/hw_control.h"
#include "lib/file.h"
#include "lib/proc.h"
#include "manutil/vender.h"
#include "net/net.h"

static constexpr char kVersionPath[] = "/etc.defaults/VERSION";
static constexpr int kMessageRoom = 64; // with the NUL

// Whether the station means this unit: "<unique>,<buildnumber>".
static bool is_this_unit(const char *message)
{
    char build[32], expected[sizeof(gszManUnique) + sizeof(build)];
    if (message == nullptr || NLIBCFileGetKeyValue(kVersionPath, "buildnumber", build, sizeof(build), 0) <= 0)
        return false;
    snprintf(expected, sizeof(expected), "%s,%s", gszManUnique, build);
    return strcmp(message, expected) == 0;
}

// Whether the factory's record names the unit: its serial, and an address for each interface.
static bool record_is_good()
{
    char serial[kVenderSerialRoom];
    if (NORVManutilSnGet(serial, sizeof(serial)) != 0)
        return false;
    const int interfaces = NLIBNetGetInterfaceInfo(nullptr, kNetInterfacesMax, kNetVirtual);
    for (int number = 1; number <= interfaces; number++) {
        uint8_t mac[kVenderMacBytes];
        if (NORVManutilMacGet(number, mac) != 0)
            return false;
    }
    return interfaces > 0;
}

// Beeps from a process of its own until the unit is switched off.
static void beeper_start()
{
    if (NLIBCFork(kForkNullStreams | kForkCloseAll) != 0)
        return;
    for (;;) {
        man_control(kHwBeepLong);
        sleep(2);
    }
}

int MANFinalCheck(UDPD_HANDLE *handle, char *message, int length)
{
    static bool has_run;
    if (has_run || length >= kMessageRoom)
        return man_reply(handle, kManFinalCheck, kManFailed);
    if (man_disk_is_visible())
        return man_reply(handle, kManFinalCheck, kManDone);
    has_run = true;
    if (man_burnin_stop() == 0 && is_this_unit(message) && record_is_good()) {
        man_control(kHwStatusGreen);
        return man_reply(handle, kManFinalCheck, kManDone);
    }
    beeper_start();
    man_control(kHwStatusOrange);
    return man_reply(handle, kManFinalCheck, kManFailed);
}
