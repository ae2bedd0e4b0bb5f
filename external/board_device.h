// The board driver's character device: its requests and their records.
#pragma once

#include <cstdint>

#include "autocleanup/unique.h"

inline constexpr char kBoardPath[] = "/dev/norvbios";
// The micro-controller's second line on some models; it also drives the front panel.
inline constexpr char kAcmPath[] = "/dev/ttyACM0";

// Request codes. The size field inside a code is not the size of the record that goes with it: the driver copies what
// the comment names.
enum BoardRequest : unsigned long {
    NORVIO_EXTERNAL_CONTROL = 0xc0904b01,      // NORVHWControl
    NORVIO_GET_EVENT = 0xc0044b02,             // int32 event code, out
    NORVIO_RTC_TIME_READ = 0xc0074b05,         // seven-byte time record, out
    NORVIO_RTC_TIME_WRITE = 0xc0074b06,        // seven-byte time record
    NORVIO_BUTTON_30 = 0xc0044b07,             // four bytes, answers button code 0x30
    NORVIO_BUTTON_61 = 0xc0044b08,             // four bytes, answers button code 0x61
    NORVIO_BUTTON_60 = 0xc0044b09,             // four bytes, answers button code 0x60
    NORVIO_SET_DISK_LED = 0xc0184b0a,          // NORVDiskLed
    NORVIO_GET_FAN_STATUS_NUMBER = 0xc00c4b0b, // twelve bytes: fan number, state
    NORVIO_GET_CPLD_FIRST = 0xc0044b0d,        // int32, out
    NORVIO_GET_CPLD_SECOND = 0xc0044b0e,       // int32, out
    NORVIO_GET_TEMPERATURE = 0xc0044b10,       // int32, out, degrees Celsius
    NORVIO_GET_SCHEDULE = 0xc1344b12,          // NORVAutoPowerSet, out
    NORVIO_SET_SCHEDULE = 0xc1344b13,          // NORVAutoPowerSet
    NORVIO_GET_MEM_BYTE = 0xc0024b14,          // two bytes: offset, value
    NORVIO_SET_MEM_BYTE = 0xc0024b15,          // two bytes: offset, value
    NORVIO_SET_EVENT_SOURCE = 0xc0084b17,      // two int32: value, 0
    NORVIO_GET_FAN_STATUS = 0xc0044b18,        // int32 count of fans, out
    NORVIO_GET_ALARM_STATUS = 0xc0084b19,      // two int32, out
    NORVIO_GET_MODULE_TYPE = 0xc00c4b1e,       // twelve bytes
    NORVIO_MICROP_WRITE = 0xc0014b21,          // text
    NORVIO_GET_CPU_TEMPERATURE = 0xc0104b22,   // sixteen bytes: core count, temperatures
    NORVIO_DAEMON_START = 0xc0044b24,          // the plain value 1, no record
    NORVIO_MASK_DISK_LED = 0xc0044b25,         // the plain value 1, no record
    NORVIO_WRITE_MEMORY = 0xc0084b2b,          // uint32 address, uint32 value
    NORVIO_READ_MEMORY = 0xc0084b2c,           // uint32 address, uint32 value
    NORVIO_MICROP_EXCHANGE = 0xc0014b2f,       // MicropExchange
    NORVIO_MICROP_READ_BYTE = 0xc0014b30,      // MicropExchange with length 1
    NORVIO_MICROP_LOG = 0xc0014b31,            // int32, 0 or 1
    NORVIO_MANUTIL_MODE = 0xc0044b80,          // uint32, 0 or 1
    NORVIO_GPIO_PIN_READ = 0xc0044bcd,         // uint32 pin, uint32 value
    NORVIO_GPIO_PIN_WRITE = 0xc0044bce,        // uint32 pin, uint32 value
    NORVIO_CHECK_DISK_INTERFACE = 0xc0c44bdc,  // 196-byte record
};

struct NORVHWControl {
    int64_t control;
    int64_t length;
    char data[128];
};
static_assert(sizeof(NORVHWControl) == 0x90);

struct NORVDiskLed {
    int32_t disk;  // from 1
    int32_t state; // DiskLedState
    int32_t name_length;
    const char *name; // which group of LEDs; NULL with length 0 for the front
};
static_assert(sizeof(NORVDiskLed) == 0x18);

// Text to the micro-controller and its reply, which takes the text's place.
struct MicropExchange {
    char text[8];
    int32_t length; // bytes of reply wanted, at most 8
};
static_assert(sizeof(MicropExchange) == 12);

enum DiskLedState : int32_t { kDiskLedOff = 0, kDiskLedNormal = 1, kDiskLedFault = 2 };

// Opens the device, close-on-exec. Empty with 0x0900; errno tells why.
[[nodiscard]] UniqueFd board_open();

// One request on a descriptor of its own, with its record or, where it has none, its value. Returns the request's
// result; -1 with 0x0900 or 0x8100, errno tells why.
int board_request(BoardRequest request, void *record);
int board_request_value(BoardRequest request, int value);
