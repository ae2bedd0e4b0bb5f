#include "net/udpd_frame.h"

#include <cstdlib>
#include <cstring>

#include "lib/report.h"

bool udpd_frame_read(const UDPD_HANDLE &handle, const uint8_t *datagram, size_t size, UdpdFrame *frame)
{
    if (size < sizeof(*frame))
        return false;
    memcpy(frame, datagram, sizeof(*frame));
    return frame->usLength <= kUdpdPayloadMax && frame->usLength <= size - sizeof(*frame) &&
           (frame->usFlags & kUdpdNoRequest) == 0 && memcmp(frame->szMagic, kUdpdMagic, sizeof(kUdpdMagic)) == 0 &&
           memcmp(frame->szName, handle.szWireName, sizeof(handle.szWireName)) == 0 &&
           frame->nReserved == handle.nWireReserved && frame->usEvent < kUdpdEventsMax;
}

int udpd_message_start(UdpdMessage *message, int event)
{
    auto *data = static_cast<uint8_t *>(realloc(message->data, kUdpdFrameMax));
    if (data == nullptr)
        return fail(kErrUdpdRun);
    *message = {.data = data, .length = 0, .room = kUdpdFrameMax, .fragment = 0, .event = event};
    return 0;
}

void udpd_message_free(UdpdMessage *message)
{
    free(message->data);
    *message = {};
}

UdpdTake udpd_message_take(UdpdMessage *message, UDPD_HANDLE *handle, const uint8_t *datagram, size_t size)
{
    UdpdFrame frame;
    if (!udpd_frame_read(*handle, datagram, size, &frame) || frame.nFragment != message->fragment)
        return UdpdTake::kIgnored;
    const bool is_first = message->fragment == 0;
    if (message->event != frame.usEvent && !(is_first && message->event == kUdpdEventAny))
        return UdpdTake::kIgnored;
    if (!is_first && frame.usId != handle->usId)
        return UdpdTake::kIgnored;
    if (message->room - message->length < frame.usLength) { // a datagram holds less than the room there is at first
        const size_t room = message->room * 2;
        if (room > kUdpdMessageMax)
            return UdpdTake::kTooLong;
        auto *data = static_cast<uint8_t *>(realloc(message->data, room));
        if (data == nullptr)
            return UdpdTake::kNoMemory;
        message->data = data;
        message->room = room;
    }
    memcpy(message->data + message->length, datagram + sizeof(frame), frame.usLength);
    message->length += frame.usLength;
    message->event = frame.usEvent;
    message->fragment++;
    handle->usId = frame.usId;
    return (frame.usFlags & kUdpdLast) != 0 ? UdpdTake::kComplete : UdpdTake::kTaken;
}
