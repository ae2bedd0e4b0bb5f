#include <cstdio>
#include <cstring>

#include "applets/applets.h"
#include "applets/command.h"
#include "external/hw_control.h"

namespace
{

// What a name means: a control and, for -set_led, the value that goes with it.
struct LedName {
    const char *name;
    int control;
    char value;
};
constexpr LedName kStatusNames[] = {
    {"run", kHwPowerLedOn, 0},
    {"shutdown", kHwSystemShutdown, 0},
    {"nodisk", kHwNoDisk, 0},
};
constexpr LedName kLedNames[] = {
    {"usbcopy_blinking", kHwUsbCopyBlinking, 0},
    {"usbcopy_on", kHwUsbCopyOn, 0},
    {"usbcopy_off", kHwUsbCopyOff, 0},
    {"memtest_blinking", kHwMemtest, 2},
    {"memtest_on", kHwMemtest, 1},
    {"memtest_off", kHwMemtest, 0},
    {"power_green_on", kHwPowerGreen, 1},
    {"power_green_off", kHwPowerGreen, 0},
    {"power_orange_on", kHwPowerOrange, 1},
    {"power_orange_off", kHwPowerOrange, 0},
};

// The last row of that name counts; NULL when there is none.
template <size_t kRows> const LedName *led_find(const LedName (&rows)[kRows], const char *name)
{
    const LedName *found = nullptr;
    for (const LedName &row : rows)
        if (name != nullptr && strcmp(row.name, name) == 0)
            found = &row;
    return found;
}

int set_stat_led(int /*argc*/, char *argv[])
{
    const LedName *led = led_find(kStatusNames, argv[2]);
    return led == nullptr ? -1 : NORVHWExternalControl(led->control, 0, nullptr, kHwTypeDefault);
}

int set_led(int /*argc*/, char *argv[])
{
    const LedName *led = led_find(kLedNames, argv[2]);
    if (led == nullptr)
        return -1;
    char data[128] = {led->value};
    return NORVHWExternalControl(led->control, sizeof(data), data, kHwTypeDefault);
}

constexpr Command kCommands[] = {
    {"-set_stat_led", set_stat_led,
     "norvhwctrl -set_stat_led "
     "<run/shutdown/nodisk/usbcopy_on/usbcopy_off/usbcopy_blinking/memtest_on/memtest_off/memtest_blinking>\n"
     "  ex: norvhwctrl -set_stat_led nodisk\n"},
    {"-set_led", set_led,
     "norvhwctrl -set_led "
     "<usbcopy_on/usbcopy_off/usbcopy_blinking/memtest_on/memtest_off/memtest_blinking/"
     "power_green_on/power_green_off/power_orange_on/power_orange_off>\n"
     "  ex: norvhwctrl -set_led power_orange_off\n"},
};

bool is_help(const char *word)
{
    return strcmp(word, "-h") == 0 || strcmp(word, "-help") == 0 || strcmp(word, "--help") == 0;
}

} // namespace

int norvhwctrl_main(int argc, char *argv[])
{
    if (argc < 2 || is_help(argv[1])) {
        command_usage_print(kCommands);
        return 0;
    }
    switch (command_run(kCommands, argc, argv)) {
    case CommandEnd::kDone:
        return 0;
    case CommandEnd::kFailed:
        return 1;
    case CommandEnd::kUnknown:
        break;
    }
    puts("command error");
    command_usage_print(kCommands);
    return 1;
}
