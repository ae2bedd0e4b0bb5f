#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <sys/ioctl.h>

#include "applets/mantool.h"
#include "external/hardware_model.h"
#include "external/rtc_time.h"
#include "lib/report.h"
#include "lib/string.h"

int mantool_usage_error()
{
    mantool_usage_print();
    return -1;
}

int man_board_ask(BoardRequest request, const char *name, void *record)
{
    const UniqueFd device = board_open();
    if (!device) {
        printf("open %s error!\n", kBoardPath);
        return -1;
    }
    if (ioctl(device.get(), request, record) < 0) {
        printf("ioctl error with cmd %s !\n", name);
        return -1;
    }
    return 0;
}

// A place and what is there, as two bytes or two words.
struct BytePair {
    uint8_t at, value;
};
struct WordPair {
    uint32_t at, value;
};

// Reads the two numbers of a command, or its one.
template <typename Pair> static bool pair_parse(int argc, char *argv[], bool with_value, Pair *pair)
{
    uint32_t at = 0, value = 0;
    if (argc != (with_value ? 4 : 3) || !ParseNumber(argv[2], &at) || (with_value && !ParseNumber(argv[3], &value)))
        return false;
    *pair = {static_cast<decltype(pair->at)>(at), static_cast<decltype(pair->value)>(value)};
    return pair->at == at && pair->value == value;
}

// Writes, where `write` is a request, reads back, and prints.
template <typename Pair> struct Place {
    BoardRequest write, read;
    const char *write_name, *read_name, *format;
};

template <typename Pair> static int place_read(const Place<Pair> &place, Pair pair)
{
    if (man_board_ask(place.read, place.read_name, &pair) != 0)
        return -1;
    printf(place.format, pair.at, pair.value);
    return 0;
}

template <typename Pair> static int place_write_command(const Place<Pair> &place, int argc, char *argv[])
{
    Pair pair;
    if (!pair_parse(argc, argv, true, &pair))
        return mantool_usage_error();
    const Pair asked = {pair.at, 0};
    return man_board_ask(place.write, place.write_name, &pair) == 0 ? place_read(place, asked) : -1;
}

template <typename Pair> static int place_read_command(const Place<Pair> &place, int argc, char *argv[])
{
    Pair pair;
    return pair_parse(argc, argv, false, &pair) ? place_read(place, pair) : mantool_usage_error();
}

static constexpr Place<BytePair> kCpldByte = {NORVIO_SET_MEM_BYTE, NORVIO_GET_MEM_BYTE, "NORVIO_SET_MEM_BYTE",
                                              "NORVIO_GET_MEM_BYTE", "0x%02x:0x%02x\n"};
static constexpr Place<WordPair> kGpioPin = {NORVIO_GPIO_PIN_WRITE, NORVIO_GPIO_PIN_READ, "NORVIO_GPIO_PIN_WRITE",
                                             "NORVIO_GPIO_PIN_READ", "pin %d:%d\n"};
static constexpr Place<WordPair> kMemoryWord = {NORVIO_WRITE_MEMORY, NORVIO_READ_MEMORY, "NORVIO_WRITE_MEMORY",
                                                "NORVIO_GET_MEM_BYTE", "0x%08x: 0x%08x\n"};

int man_byte_write(int argc, char *argv[])
{
    return place_write_command(kCpldByte, argc, argv);
}
int man_byte_read(int argc, char *argv[])
{
    return place_read_command(kCpldByte, argc, argv);
}
int man_gpio_write(int argc, char *argv[])
{
    return place_write_command(kGpioPin, argc, argv);
}
int man_gpio_read(int argc, char *argv[])
{
    return place_read_command(kGpioPin, argc, argv);
}
int man_memory_write(int argc, char *argv[])
{
    return place_write_command(kMemoryWord, argc, argv);
}
int man_memory_read(int argc, char *argv[])
{
    return place_read_command(kMemoryWord, argc, argv);
}

// Reads the byte to send: the text's first one, or its number when it begins with "0x".
static bool uart_byte_parse(const char *text, char *byte)
{
    uint32_t number = static_cast<unsigned char>(text[0]);
    const bool is_number = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (is_number && (!ParseNumber(text, &number) || number > UINT8_MAX))
        return false;
    *byte = static_cast<char>(number);
    return text[0] != '\0';
}

int man_uart_write(int argc, char *argv[])
{
    char text[2] = "";
    if (argc != 4 || strcmp(argv[2], "w") != 0 || !uart_byte_parse(argv[3], &text[0]))
        return mantool_usage_error();
    if (man_board_ask(NORVIO_MICROP_WRITE, "NORVIO_MICROP_WRITE", text) != 0)
        return -1;
    printf("0x%2x\n", static_cast<unsigned char>(text[0]));
    return 0;
}

int man_button_test(int argc, char *argv[])
{
    const bool is_on = argc == 3 && strcmp(argv[2], "enable") == 0;
    if (!is_on && (argc != 3 || strcmp(argv[2], "disable") != 0))
        return mantool_usage_error();
    uint32_t mode = is_on ? 1 : 0;
    return man_board_ask(NORVIO_MANUTIL_MODE, "NORVIO_MANUTIL_MODE", &mode);
}

int man_rtc_get(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    struct tm now;
    if (RtcTimeRead(&now) != 0)
        return -1;
    printf("%d/%02d/%02d %02d:%02d:%02d\n", now.tm_year, now.tm_mon, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    return 0;
}

int man_temperature(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    int32_t celsius = 0;
    if (man_board_ask(NORVIO_GET_TEMPERATURE, "NORVIO_GET_TEMPERATURE", &celsius) != 0)
        return -1;
    printf("%dC captured\n", celsius);
    return 0;
}

int man_cpu_temperature(int argc, char *argv[])
{
    struct {
        int32_t count;
        int32_t celsius[3];
    } cores = {};
    uint32_t core = 1;
    if (argc > 3)
        return mantool_usage_error();
    if (!hardware_can(kHardwareCpuTemperature)) {
        puts("This model not support cpu temperature");
        return -1;
    }
    if ((argc == 3 && !ParseNumber(argv[2], &core)) || core < 1)
        return mantool_usage_error();
    if (man_board_ask(NORVIO_GET_CPU_TEMPERATURE, "NORVIO_GET_CPU_TEMPERATURE", &cores) != 0)
        return -1;
    const int32_t told = std::clamp(cores.count, 0, static_cast<int32_t>(std::size(cores.celsius)));
    if (core > static_cast<uint32_t>(told)) {
        printf("No temperature of core %u, the board tells of %d\n", core, told);
        return -1;
    }
    printf("%dC captured\n", cores.celsius[core - 1]);
    return 0;
}

int man_disk_fault_led(int argc, char *argv[])
{
    uint32_t disk = 0;
    if ((argc != 4 && argc != 5) || !ParseNumber(argv[2], &disk) || disk < 1 || disk > INT32_MAX)
        return mantool_usage_error();
    const bool is_on = strncmp(argv[3], "on", 2) == 0;
    if (!is_on && strncmp(argv[3], "off", 3) != 0)
        return mantool_usage_error();
    const char *slot = nullptr;
    if (argc == 4 || strcmp(argv[4], "internal") == 0)
        slot = "internal_slot";
    else if (strcmp(argv[4], "sys") == 0)
        slot = "system_slot";
    if (slot == nullptr) {
        puts("Bad Arguments.");
        return -1;
    }
    NORVDiskLed led = {static_cast<int32_t>(disk), is_on ? kDiskLedFault : kDiskLedNormal,
                       static_cast<int32_t>(strlen(slot) + 1), slot};
    return man_board_ask(NORVIO_SET_DISK_LED, "NORVIO_SET_DISK_LED", &led);
}

int man_led_mask_on(int /*argc*/, char * /*argv*/[])
{
    if (board_request_value(NORVIO_MASK_DISK_LED, 1) < 0)
        NORV_LOG(LOG_ERR, "Failed to ioctl Disk led Mask, errno=%d, %m", errno);
    return 0;
}
