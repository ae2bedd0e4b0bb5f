// An out-of-band controller behind /dev/ipmi0 of a box.
#pragma once

#include <linux/ipmi.h>
#include <string>
#include <sys/ioctl.h>
#include <vector>

#include "tests/support/sandbox.h"

// Answers each command with the next of `replies`, completion code and data; the last one answers all that follow. The
// record shows net function and command: "ioctl /dev/ipmi0 * 3070".
inline void controller_add(Sandbox &box, const std::vector<std::string> &replies)
{
    constexpr size_t kCommandAt = 24; // in struct ipmi_req
    constexpr size_t kDataAt = 40;    // its address in struct ipmi_recv
    box.file("/dev/ipmi0", "");
    box.directory("/var/lock");
    box.leaves({"/var/lock/oob_ioctl.lock", "lock /var/lock/oob_ioctl.lock"}); // a daemon may hold it just now
    box.request({.device = "/dev/ipmi0", .request = IPMICTL_SEND_COMMAND, .reads = 2, .at = kCommandAt});
    for (const std::string &reply : replies)
        box.request({.device = "/dev/ipmi0",
                     .request = IPMICTL_RECEIVE_MSG_TRUNC,
                     .bytes = reply,
                     .at = kDataAt,
                     .is_pointer = true,
                     .times = &reply == &replies.back() ? 0 : 1});
}
