#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

#include "applets/applets.h"
#include "autocleanup/glob_matches.h"
#include "external/board_device.h"
#include "lib/file.h"
#include "lib/io.h"
#include "lib/module.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr char kModulesConfPath[] = "/etc.defaults/modules.conf";
static constexpr char kArgumentsKey[] = "module_ixgbe_args_broadwell";
static constexpr int kControllers = 2;
static constexpr int kRoundsMax = 60;
static constexpr uint32_t kPowerPin = 4; // feeds the controllers

namespace
{

// Reads one identity of a PCI device, "0x8086". Returns false when it cannot be read, logged.
bool id_read(const char *device_path, const char *file_name, char *id, int size)
{
    char path[256];
    if (NLIBCStrSnprintf(path, sizeof(path), "%s%s", device_path, file_name) < 0)
        return false;
    const UniqueFile file(fopen(path, "re"));
    if (!file) {
        NORV_LOG(LOG_ERR, "Failed to open %s", path);
        return false;
    }
    if (NLIBCFgets(id, size, file.get()) == nullptr || NLIBCStrTrimSpace(id, nullptr) < 0) {
        NORV_LOG(LOG_ERR, "Failed get PCIe device");
        return false;
    }
    return true;
}

int controllers_count()
{
    GlobMatches matches;
    if (glob("/sys/class/net/eth*/device/", 0, nullptr, &matches.found) != 0)
        return 0;
    int count = 0;
    for (size_t i = 0; i < matches.found.gl_pathc; i++) {
        const char *path = matches.found.gl_pathv[i];
        char vendor[16], device[16];
        if (id_read(path, "vendor", vendor, sizeof(vendor)) && id_read(path, "device", device, sizeof(device)) &&
            strcmp(vendor, "0x8086") == 0 && strcmp(device, "0x15ad") == 0)
            count++;
    }
    return count;
}

void power_set(uint32_t value)
{
    uint32_t pin_value[2] = {kPowerPin, value};
    const UniqueFd board = board_open();
    if (!board)
        NORV_LOG(LOG_ERR, "Fail to open norvbios.");
    else
        ioctl(board.get(), NORVIO_GPIO_PIN_WRITE, pin_value); // a refusal shows in the next count
}

void controllers_reset(const char *module_arguments)
{
    static_cast<void>(module_unload("ixgbe"));
    power_set(0);
    usleep(500000);
    power_set(1);
    sleep(1);
    static_cast<void>(module_load("/lib/modules/ixgbe.ko", module_arguments));
}

} // namespace

int norvlanstatus_main(int /*argc*/, char * /*argv*/[])
{
    char module_arguments[32];
    if (NLIBCFileGetKeyValue(kModulesConfPath, kArgumentsKey, module_arguments, sizeof(module_arguments), 0) <= 0) {
        NORV_LOG(LOG_ERR, "Failed to get key %s from %s", kArgumentsKey, kModulesConfPath);
        return -1;
    }
    int resets = 0;
    for (; resets < kRoundsMax && controllers_count() != kControllers; resets++)
        controllers_reset(module_arguments);
    if (resets > 0)
        NORV_LOG(LOG_ERR, "norvlanstatus reset %d times", resets);
    return 0;
}
