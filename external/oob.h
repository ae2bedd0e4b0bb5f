// The out-of-band controller, reached through the kernel's IPMI device. One exchange at a time: each call holds
// /var/lock/oob_ioctl.lock.
#pragma once

#include <cstddef>
#include <cstdint>

// Bits of the request word that the controller leaves for the host.
inline constexpr uint8_t kOobPowerOff = 1;
inline constexpr uint8_t kOobReboot = 2;

// Reads the request word; 0 when nothing is asked. Returns 0; -1 with 0x0400 or 0x0900 when the lock or the device
// cannot be had (errno tells), 0x8100 when the controller does not answer or refuses.
[[nodiscard]] int oob_request_get(uint8_t *request);
// Clears it. Results as above.
[[nodiscard]] int oob_request_clear();

// Writes the controller's IPv4 address as text; `size` at least 16. Results as above.
[[nodiscard]] int oob_ipv4_get(char *text, size_t size);
