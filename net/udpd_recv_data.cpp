#include <cerrno>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>

#include "lib/report.h"
#include "net/udpd.h"
#include "net/udpd_frame.h"

int gUdpdLastEvent;

static constexpr int kWaitSeconds = 3;
static constexpr int kTries = 3; // waits or datagrams, for each datagram of a message that has begun

// A message that its caller had no room for, until the next call.
static struct {
    UdpdMessage message;
    const UDPD_HANDLE *owner; // NULL: nothing waits
} store;

static void store_clear()
{
    udpd_message_free(&store.message);
    store.owner = nullptr;
}

// Waits for a datagram. Returns its bytes; 0 when none came in time; -1 with 0x7a00. An empty one counts as one byte.
static ssize_t datagram_wait(int fd, uint8_t *datagram)
{
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(fd, &ready);
        timeval limit = {.tv_sec = kWaitSeconds, .tv_usec = 0};
        const int count = select(fd + 1, &ready, nullptr, nullptr, &limit);
        if (count == 0)
            return 0;
        const ssize_t bytes = count < 0 ? -1 : recv(fd, datagram, kUdpdFrameMax, MSG_DONTWAIT);
        if (bytes >= 0)
            return bytes > 0 ? bytes : 1;
        if (errno != EINTR && errno != EAGAIN) // a datagram with a bad checksum is ready and then gone
            return fail(kErrUdpdReceive);
    }
}

// Receives until the store's message is whole. Returns 0; -1.
static int message_receive(UDPD_HANDLE *handle)
{
    UdpdMessage *message = &store.message;
    for (int tries = kTries;;) {
        uint8_t datagram[kUdpdFrameMax];
        const ssize_t bytes = datagram_wait(handle->nSocket, datagram);
        if (bytes < 0)
            return -1;
        const bool had_begun = message->fragment > 0;
        const UdpdTake take =
            bytes == 0 ? UdpdTake::kIgnored : udpd_message_take(message, handle, datagram, static_cast<size_t>(bytes));
        switch (take) {
        case UdpdTake::kComplete:
            return 0;
        case UdpdTake::kNoMemory:
            return fail(kErrUdpdRun);
        case UdpdTake::kTaken:
            tries = kTries;
            continue;
        case UdpdTake::kTooLong:
            tries = 0;
            break;
        case UdpdTake::kIgnored:
            if (had_begun)
                tries--;
            break;
        }
        if (tries > 0)
            continue;
        static_cast<void>(fail(kErrUdpdTimeout)); // the sender has to begin again
        if (udpd_message_start(message, kUdpdEventAny) != 0)
            return -1;
        tries = kTries;
    }
}

int udpd_recv_data(UDPD_HANDLE *handle, int event, void *buffer, int *size)
{
    if (handle == nullptr || handle->nState != kUdpdInitialised)
        return fail(kErrUdpdHandle);
    if (event < 0 || event >= kUdpdEventsMax)
        return fail(kErrUdpdEvent);
    if (buffer == nullptr || size == nullptr || *size < 0)
        return fail(kErrUdpdParameter);
    if (handle->nSocket < 0)
        return fail(kErrUdpdReceive);

    const bool has_waited = store.owner == handle && (event == kUdpdEventAny || event == store.message.event);
    if (!has_waited) {
        store.owner = nullptr;
        if (udpd_message_start(&store.message, event) != 0 || message_receive(handle) != 0) {
            store_clear();
            return -1;
        }
        store.owner = handle;
    }
    gUdpdLastEvent = store.message.event;
    const int length = static_cast<int>(store.message.length);
    if (has_waited ? length > *size : length >= *size) {
        *size = length;
        return fail(kErrUdpdTooSmall);
    }
    memcpy(buffer, store.message.data, static_cast<size_t>(length));
    store_clear();
    return length;
}
