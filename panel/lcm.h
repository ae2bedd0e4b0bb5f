// The two-line front panel on the ACM device: it tells what the machine lacks, then asks to install.
#pragma once

#include <cstdint>

// State of the panel, kept between passes.
enum LcmFlag : uint8_t {
    kLcmPrompt = 1, // the final screen is still to be shown
    kLcmNoDisk = 2, // also the value of gblLcmAlternate when this warning may show
    kLcmNoLink = 4, // the same
    kLcmNothingShown = 0xff
};
extern int gblLcmFd;            // the open device, -1 when not connected
extern uint8_t gblLcmFlags;     // LcmFlag bits
extern uint8_t gblLcmLastFlags; // those of the pass before; kLcmNothingShown after connecting
extern uint8_t gblLcmAlternate; // which warning may show in this pass
extern uint8_t gblLcmOrangeSet; // the status LED was set once
extern int gblLcmOpenFailures;

// One round: connects when needed, looks for disks and links, shows what applies. Sleeps up to some seconds.
void lcm_pass();

// Shows the last message, as the shared byte tells, and disconnects. Nothing happens without a connection.
void lcm_close();

// Shows two lines of text; what does not fit the record of 102 bytes is cut.
void lcm_show(const char *first, const char *second);

// Sends a command with its NUL.
void lcm_command(const char *command);

// Attaches the byte through which the last message is chosen: 0 none, 1 power off, 2 reboot.
//   flags  as of shmget(2)
// NULL when it cannot be had, logged.
[[nodiscard]] char *lcm_shared_byte(int flags);
