// What the out-of-band controller asks for, and where it is reached.
#include "applets/applets.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "external/oob.h"

static int usage(const char *text)
{
    fprintf(stderr, "Usage: %s\n", text);
    return -1;
}

static int controller_failed(const char *role)
{
    fprintf(stderr, "%s: the out-of-band controller does not answer: %s\n", role, strerror(errno));
    return -1;
}

// Prints the power action that is asked for: bit 0 of the request word wins over bit 1. With --clear the request is
// cleared instead.
int norv_oob_power_action_main(int argc, char *argv[])
{
    static constexpr char kRole[] = "norv_oob_power_action";
    const bool is_clear = argc == 2 && strcmp(argv[1], "--clear") == 0;
    if (argc > 1 && !is_clear)
        return usage("norv_oob_power_action [--clear]");
    if (is_clear)
        return oob_request_clear() == 0 ? 0 : controller_failed(kRole);
    uint8_t request = 0;
    if (oob_request_get(&request) != 0)
        return controller_failed(kRole);
    puts((request & kOobPowerOff) != 0 ? "poweroff" : (request & kOobReboot) != 0 ? "reboot" : "none");
    return 0;
}

int norv_oob_ipv4_get_main(int argc, char * /*argv*/[])
{
    if (argc > 1)
        return usage("norv_oob_ipv4_get");
    char address[16];
    if (oob_ipv4_get(address, sizeof(address)) != 0)
        return controller_failed("norv_oob_ipv4_get");
    puts(address);
    return 0;
}
