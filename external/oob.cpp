#include "external/oob.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/ipmi.h>
#include <linux/ipmi_msgdefs.h>
#include <poll.h>
#include <span>
#include <sys/ioctl.h>

#include "autocleanup/scoped_lock.h"
#include "autocleanup/unique.h"
#include "lib/report.h"
#include "product.h"

static constexpr char kIpmiPath[] = "/dev/ipmi0";
static constexpr char kOobLockPath[] = "/var/lock/oob_ioctl.lock";
static constexpr int kOobLockSeconds = 5;
static constexpr int kReplyTimeout_ms = 5000;

// IPMI 2.0, table 23-4: Get LAN Configuration Parameters, parameter 3 is the IP address.
static constexpr uint8_t kLanNetFn = 0x0c;
static constexpr uint8_t kLanParametersGet = 0x02;
static constexpr uint8_t kLanIpAddress = 3;
static constexpr size_t kLanReplyAddressAt = 1; // behind the parameter revision

// Sends one command and waits for its reply.
//   reply  receives the data behind the completion code; all of it must come
// Returns 0; -1.
static int command_run(uint8_t net_fn, uint8_t command, std::span<const uint8_t> data, std::span<uint8_t> reply)
{
    const ScopedLock lock(kOobLockPath, kOobLockSeconds);
    if (!lock.held())
        return -1;
    const UniqueFd device(open(kIpmiPath, O_RDWR | O_CLOEXEC));
    if (!device)
        return fail(kErrOpen);

    ipmi_system_interface_addr address = {IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
    uint8_t request[IPMI_MAX_MSG_LENGTH] = {};
    std::copy(data.begin(), data.end(), request);
    ipmi_req send = {};
    send.addr = reinterpret_cast<unsigned char *>(&address);
    send.addr_len = sizeof(address);
    send.msgid = 1;
    send.msg = {net_fn, command, static_cast<unsigned short>(data.size()), request};
    if (ioctl(device.get(), IPMICTL_SEND_COMMAND, &send) < 0)
        return fail(kErrSystemCall);

    pollfd readable = {device.get(), POLLIN, 0};
    if (poll(&readable, 1, kReplyTimeout_ms) <= 0)
        return fail(kErrSystemCall);
    uint8_t message[IPMI_MAX_MSG_LENGTH] = {};
    ipmi_addr from = {};
    ipmi_recv received = {};
    received.addr = reinterpret_cast<unsigned char *>(&from);
    received.addr_len = sizeof(from);
    received.msg.data = message;
    received.msg.data_len = sizeof(message);
    if (ioctl(device.get(), IPMICTL_RECEIVE_MSG_TRUNC, &received) < 0)
        return fail(kErrSystemCall);
    if (received.msg.data_len < reply.size() + 1 || message[0] != IPMI_CC_NO_ERROR) {
        errno = EPROTO;
        return fail(kErrSystemCall);
    }
    std::copy_n(message + 1, reply.size(), reply.begin());
    return 0;
}

int oob_request_get(uint8_t *request)
{
    if (request == nullptr)
        return fail(kErrBadParameter);
    return command_run(kProductOobNetFn, kProductOobRequestGet, {}, {request, 1});
}

int oob_request_clear()
{
    return command_run(kProductOobNetFn, kProductOobRequestClear, {}, {});
}

int oob_ipv4_get(char *text, size_t size)
{
    if (text == nullptr)
        return fail(kErrBadParameter);
    const uint8_t parameter[] = {kProductOobLanChannel, kLanIpAddress, 0, 0};
    uint8_t reply[kLanReplyAddressAt + 4];
    if (command_run(kLanNetFn, kLanParametersGet, parameter, reply) != 0)
        return -1;
    const uint8_t *ip = reply + kLanReplyAddressAt;
    const int length = snprintf(text, size, "%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    return length > 0 && static_cast<size_t>(length) < size ? 0 : fail(kErrBufferTooSmall);
}
