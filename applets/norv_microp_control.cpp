#include "applets/applets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>

#include "applets/banner.h"
#include "external/board_device.h"

namespace
{

constexpr int kBadCommand = -1;
constexpr int kVersionRequestFailed = -2;
constexpr int kNoVersion = -3;
constexpr int kVersionReplyBytes = 7;

struct MicropCommand {
    char name[50];
    char text[5];
};
constexpr MicropCommand kCommands[] = {
    {"MAKE_BUZZER_FREQUENCY_LITTLE_LOWER", ","},
    {"MAKE_BUZZER_FREQUENCY_LITTLE_HIGHER", "."},
    {"CPU_GRANT_PIC_TO_POWER_OFF_SYSTEM", "1"},
    {"BUZZER_OUT_SHORT", "2"},
    {"BUZZER_OUT_LONG", "3"},
    {"POWER_LED_ON", "4"},
    {"POWER_LED_BLINKING", "5"},
    {"POWER_LED_OFF", "6"},
    {"STATUS_LED_OFF", "7"},
    {"STATUS_GREEN_LED_ON", "8"},
    {"STATUS_GREEN_LED_BLINKING", "9"},
    {"STATUS_ORANGE_LED_ON", ":"},
    {"STATUS_ORANGE_LED_BLINKING", ";"},
    {"STATUS_GREEN_LED_SLIGHTLY_TURN_ONOFF", "="},
    {"USB_LED_ON", "@"},
    {"USB_LED_BLINKING", "A"},
    {"USB_LED_OFF", "B"},
    {"SYSTEM_RESET_FROM_CPU", "C"},
    {"ALERT_LED_ON", "LA1"},
    {"ALERT_LED_BLINKING", "LA2"},
    {"ALERT_LED_OFF", "LA3"},
    {"ESATA_LED_ON", "LE1"},
    {"ESATA_LED_BLINKING", "LE2"},
    {"ESATA_LED_OFF", "LE3"},
    {"LED_BRIGHTNESS_CONTROL", "M"},
    {"STATUS_LED_SLIGHT_TUNING_DOWN", "P"},
    {"STATUS_LED_SLIGHT_TUNING_UP", "Q"},
    {"DISABLE_WAKE_ON_LAN_FUNCTION", "k"},
    {"ENALBE_WAKE_ON_LAN_FUNCTION", "l"},
    {"DISABLE_AC_RECOVERY_FUNCTION", "p"},
    {"ENABLE_AC_RECOVERY_FUNCTION", "q"},
    {"DISABLE_SCHEDULE_ON_FUNCTION", "r"},
    {"ENABLE_SCHEDULE_ON_FUNCTION", "s"},
    {"DISABLE_FAN_CHECKER_FUNCTION", "t"},
    {"ENABLE_FAN_CHECKER_FUNCTION", "u"},
};

// Commands whose text is a letter and the two characters of a second argument.
constexpr char kFanPrefix[] = "FAN_SPEED_PWM_ADJUST";
constexpr MicropCommand kFanCommands[] = {
    {"FAN_SPEED_PWM_ADJUST_DUTY_CYCLE_IN_PERCENTAGE", "V"},
    {"FAN_SPEED_PWM_ADJUST_FREQUENCY_IN_HZ", "W"},
};

constexpr char kVersionCommand[] = "MICROP_VERSION_REPORT";
constexpr char kVersionText[] = "O"; // asks for the report, and ends it

// The switch of the driver's own log of what goes to and fro.
struct LogCommand {
    const char *name;
    int32_t value;
};
constexpr LogCommand kLogCommands[] = {{"MICROP_LOG_OFF", 0}, {"MICROP_LOG_ON", 1}};

bool starts_with(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

int usage()
{
    banner_print();
    printf("Usage: norv_microp_control -w <code>\n"
           "       norv_microp_control <command> [<two digits>]\n"
           "Commands:\n");
    for (const MicropCommand &command : kFanCommands)
        printf("    %s <two digits>\n", command.name);
    printf("    %s\n", kVersionCommand);
    for (const MicropCommand &command : kCommands)
        printf("    %s\n", command.name);
    for (const LogCommand &command : kLogCommands)
        printf("    %s\n", command.name);
    return kBadCommand;
}

int text_send(int device, const char *text)
{
    return ioctl(device, NORVIO_MICROP_WRITE, text);
}

int code_send(int device, const char *code)
{
    if (!starts_with(code, "0x"))
        return text_send(device, code);
    const char byte[2] = {static_cast<char>(strtol(code, nullptr, 16)), '\0'};
    return text_send(device, byte);
}

int fan_send(int device, const char *name, const char *value)
{
    if (value == nullptr || strlen(value) != 2)
        return usage();
    for (const MicropCommand &command : kFanCommands) {
        if (strcmp(name, command.name) != 0)
            continue;
        const char text[4] = {command.text[0], value[0], value[1], '\0'};
        return text_send(device, text);
    }
    puts("Command Not Found");
    return kBadCommand;
}

// Finds the version in a reply: it begins with the first capital letter whose two following bytes do not come again.
// NULL when there is none.
const char *version_find(const char *reply)
{
    for (const char *at = reply; *at != '\0'; at++) {
        if (*at < 'A' || *at > 'Z' || at[1] == '\0' || at[2] == '\0')
            continue;
        const char next[3] = {at[1], at[2], '\0'};
        if (strstr(at + 3, next) == nullptr)
            return at;
    }
    return nullptr;
}

int version_print(int device)
{
    MicropExchange exchange = {{kVersionText[0]}, kVersionReplyBytes};
    if (ioctl(device, NORVIO_MICROP_EXCHANGE, &exchange) < 0) {
        puts("Failed to set and get microp version\nPlease check if the microP version function is on.");
        return kVersionRequestFailed;
    }
    char reply[kVersionReplyBytes + 1] = {};
    size_t length = 0;
    for (int i = 0; i < kVersionReplyBytes; i++) // 'f' fills the line when there is nothing to say
        if (exchange.text[i] != 'f' && exchange.text[i] != '\0')
            reply[length++] = exchange.text[i];
    const char *version = version_find(reply);
    if (version != nullptr)
        puts(version);
    else
        puts("Get Microp Version Failed");
    if (text_send(device, kVersionText) < 0)
        puts("Failed to close microp version function");
    return version != nullptr ? 0 : kNoVersion;
}

int command_run(int device, const char *name, const char *value)
{
    if (value != nullptr && strcmp(name, "-w") == 0)
        return code_send(device, value);
    if (starts_with(name, kFanPrefix))
        return fan_send(device, name, value);
    if (value == nullptr && strcmp(name, kVersionCommand) == 0)
        return version_print(device);
    for (const MicropCommand &command : kCommands)
        if (starts_with(name, command.name))
            return text_send(device, command.text);
    for (LogCommand command : kLogCommands) // a copy: the driver may write to what it is given
        if (strcmp(name, command.name) == 0)
            return ioctl(device, NORVIO_MICROP_LOG, &command.value);
    puts("Command Not Found");
    return kBadCommand;
}

} // namespace

int norv_microp_control_main(int argc, char *argv[])
{
    const UniqueFd device = board_open();
    if (!device)
        return -1;
    if (argc < 2 || argc > 3)
        return usage();
    const int result = command_run(device.get(), argv[1], argc == 3 ? argv[2] : nullptr);
    if (result != 0)
        puts("Command failed");
    return result;
}
