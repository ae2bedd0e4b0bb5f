// What the board is told and what it tells: LEDs, buzzer and power by control code, events, power off and reboot.
#pragma once

enum HwControl : int {
    kHwPowerLedOn = 0x4002,
    kHwSystemShutdown = 0x4003, // NORV_SYS_SHUTDOWN; the power LED blinks
    kHwNoDisk = 0x4004,
    kHwUsbCopyOn = 0x5100,
    kHwUsbCopyOff = 0x5101,
    kHwUsbCopyBlinking = 0x5102,
    kHwStatusGreen = 0x5200,
    kHwStatusOrange = 0x5201,
    kHwStatusOrangeBlinking = 0x5202,
    kHwStatusOff = 0x5203,
    kHwStatusGreenBlinking = 0x5204,
    kHwAlertOn = 0x5205,
    kHwAlertBlinking = 0x5206,
    kHwAlertOff = 0x5207,
    kHwBeepLong = 0x5301,
    kHwBeepShort = 0x5302,
    kHwGrantPowerOff = 0x5400,
    kHwAcRecoveryOn = 0x5500,
    kHwAcRecoveryOff = 0x5600,
    kHwScheduleOn = 0x5700,
    kHwScheduleOff = 0x5701,
    kHwFanCheckerOn = 0x5800,
    kHwFanCheckerOff = 0x5801,
    kHwPowerOrange = 0x5901,
    kHwPowerGreen = 0x5902,
    kHwMemtest = 0x5903,
};

// Who asks. It is checked and has no other effect.
enum HwControlType : int { kHwTypeSchedule = 3, kHwTypeShutdown = 4, kHwTypeDefault = 5 };

enum HwEvent : int {
    kHwEventButtonModeEnter = 0x200,
    kHwEventButtonModeLeave = 0x201,
    kHwEventPowerOff = 0x223,
    kHwEventMute = 0x224,
    kHwEventButtonReset = 0x230,
    kHwEventButtonUsb = 0x240,
    kHwEventPortThaw = 0x2800,
};

// Sends one control to the board: as text to the micro-controller on models with a second UART, else as a request; on
// models with the ACM device the status and alert LEDs are told there too.
//   control  HwControl
//   length   bytes of `data`, of which 127 are carried at most; negative: only the ACM device is told
//   type     1 to 8 or 101 to 104
// Returns 0 or the request's result; -1 on a bad argument (0x0d00), a code that the micro-controller does not know, or
// a device that cannot be opened (0x0900) or written.
int NORVHWExternalControl(int control, int length, const char *data, int type);

// Waits for one event; a negative timeout waits without limit. Returns 0 with `*event` set; 1 on a timeout or a refused
// request; -1 when the device cannot be opened (0x0900).
[[nodiscard]] int NORVHWGetEvent(int *event, int timeout_seconds);

// Tells the driver which sources raise events; -1 changes nothing. Returns 0 or -1.
int NORVHWSetEventSource(int value);

// Powers off (mode 0) or reboots (mode 1). Returns 0; an unknown mode is logged and leaves 0x0d00.
int NORVSysPowerAction(int mode);

// The alarms that sound the buzzer, one bit each, as the model description says for this board revision; 0 when it
// says nothing.
[[nodiscard]] unsigned long buzzer_mask_get();
inline constexpr unsigned long kBuzzerMaskAlarm = 1UL << 9;
