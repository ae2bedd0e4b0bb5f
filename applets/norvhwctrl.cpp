#include <cstdio>
#include <cstring>

#include "applets/applets.h"
#include "applets/command.h"
#include "applets/not_built_in.h"

static constexpr Command kCommands[] = {
    {"-set_stat_led", nullptr,
     "norvhwctrl -set_stat_led "
     "<run/shutdown/nodisk/usbcopy_on/usbcopy_off/usbcopy_blinking/memtest_on/memtest_off/memtest_blinking>\n"
     "  ex: norvhwctrl -set_stat_led nodisk\n"},
    {"-set_led", nullptr,
     "norvhwctrl -set_led "
     "<usbcopy_on/usbcopy_off/usbcopy_blinking/memtest_on/memtest_off/memtest_blinking/"
     "power_green_on/power_green_off/power_orange_on/power_orange_off>\n"
     "  ex: norvhwctrl -set_led power_orange_off\n"},
};

static bool is_help(const char *word)
{
    return strcmp(word, "-h") == 0 || strcmp(word, "-help") == 0 || strcmp(word, "--help") == 0;
}

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
    case CommandEnd::kNotBuiltIn:
        return not_built_in(argc, argv);
    case CommandEnd::kUnknown:
        break;
    }
    puts("command error");
    command_usage_print(kCommands);
    return 1;
}
