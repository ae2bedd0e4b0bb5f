#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "lib/report.h"
#include "lib/text.h"
#include "net/udpd.h"
#include "net/udpd_frame.h"

namespace
{

constexpr char kInterface[] = "eth0";
constexpr uint16_t kSourcePort = 9999;
constexpr uint8_t kFallbackMac[6] = {0x00, 0x0e, 0x0a, 0x0d, 0x00, 0x00};
constexpr uint32_t kFallbackAddress = 0x12345678; // as it stands in memory

// The interface's address, network order.
uint32_t source_address_get()
{
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    text_cut(request.ifr_name, kInterface);
    if (!fd || ioctl(fd.get(), SIOCGIFADDR, &request) != 0)
        return kFallbackAddress;
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof(address));
    return address.sin_addr.s_addr;
}

int broadcast_fail()
{
    syslog(LOG_ERR, "norvudpd.c: broadcast error.");
    return fail(kErrUdpdSend);
}

} // namespace

int udpd_send_data(UDPD_HANDLE *handle, int event, const void *data, int length, int is_request)
{
    if (handle == nullptr || handle->nState != kUdpdInitialised)
        return fail(kErrUdpdHandle);
    if (event < 0 || event >= kUdpdEventsMax)
        return fail(kErrUdpdEvent);
    if (length < 0 || (data == nullptr) != (length == 0))
        return fail(kErrUdpdParameter);

    NET_UDP_FRAME route = {};
    route.ulSrcIP = source_address_get();
    route.ulDstIP = INADDR_BROADCAST;
    route.usSrcPort = kSourcePort;
    route.usDstPort = static_cast<uint16_t>(handle->nPort);
    const LinkSender sender = link_sender_open(kInterface);
    if (!sender)
        return broadcast_fail();
    link_sender_mac_get(sender, kFallbackMac, route.srcMac);

    UdpdFrame frame = {};
    memcpy(frame.szMagic, kUdpdMagic, sizeof(frame.szMagic));
    memcpy(frame.szName, handle->szWireName, sizeof(frame.szName));
    frame.nReserved = handle->nWireReserved;
    frame.usEvent = static_cast<uint16_t>(event);
    frame.usId = handle->usId;
    frame.usFlags = is_request != 0 ? 0 : kUdpdNoRequest;
    int sent = 0;
    do { // an empty message is one datagram, too
        const int bytes = length - sent < kUdpdPayloadMax ? length - sent : kUdpdPayloadMax;
        frame.usLength = static_cast<uint16_t>(bytes);
        if (sent + bytes == length)
            frame.usFlags |= kUdpdLast;
        uint8_t datagram[kUdpdFrameMax];
        memcpy(datagram, &frame, sizeof(frame));
        if (bytes > 0)
            memcpy(datagram + sizeof(frame), static_cast<const uint8_t *>(data) + sent, static_cast<size_t>(bytes));
        usleep(static_cast<useconds_t>(rand() % 5)); // so that several units do not speak at once
        if (link_sender_udp(sender, route, datagram, static_cast<int>(sizeof(frame)) + bytes) != 0)
            return broadcast_fail();
        sent += bytes;
        frame.nFragment++;
    } while (sent < length);
    return sent;
}
