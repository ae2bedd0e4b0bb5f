// What the units of the manufacturing daemon share.
#pragma once

#include <cstdint>

#include "net/udpd.h"

enum ManEvent : uint16_t {
    kManMacSet = 2,
    kManGroupAction = 13,
    kManCustomSnSet = 19,
    kManFinalCheck = 20,
    kManTestFlagGet = 47,
    kManGroupOperation = 51,
    kManMemTestProgress = 72,
};

inline constexpr int32_t kManDone = 0;
inline constexpr int32_t kManFailed = 1;

extern char gszManUnique[64]; // the model as the unit is configured; empty when it is not

// The handlers. Each answers with its own event number.
int ErrMANIDoGroupAction(UDPD_HANDLE *handle, char *message, int length);
int MANFinalCheck(UDPD_HANDLE *handle, char *message, int length);
int MANCustomSnSet(UDPD_HANDLE *handle, char *message, int length);
int MANMacSet(UDPD_HANDLE *handle, char *message, int length);
int ManTestFlagGet(UDPD_HANDLE *handle, char *message, int length);
int MANGroupOperation(UDPD_HANDLE *handle, char *message, int length);
int MANMemTestProgress(UDPD_HANDLE *handle, char *message, int length);

// Answers an event with a result alone. Returns 0; -1 when it could not be sent.
int man_reply(UDPD_HANDLE *handle, ManEvent event, int32_t result);
// The same with more behind it: `reply` begins with room for the result.
int man_reply_data(UDPD_HANDLE *handle, ManEvent event, int32_t result, void *reply, size_t bytes);

// Sends the board a control (HwControl) that carries no data.
void man_control(int control);

// Runs a shell line; its result does not matter.
void man_shell(const char *line);

// Whether the unit has a disk, so that it is no longer the factory's to test.
[[nodiscard]] bool man_disk_is_visible();

// Ends the programs of the burn-in and empties /tmp; takes seconds. Returns 0; -1 when one of them survives.
[[nodiscard]] int man_burnin_stop();
