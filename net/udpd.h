// Daemons on one UDP port with one handler per event number, and the messages they exchange with a station of the
// factory network. A message is cut into datagrams of 1024 bytes; whatever is sent goes out as a broadcast of the link
// level on eth0 (net/link_sender.h).
//
// Nothing here is safe for two handles that run in one process: a message waits in a store of the process.
#pragma once

#include <cstdint>

#include "net/link_sender.h"

inline constexpr int kUdpdHandlesMax = 32;
inline constexpr int kUdpdHandlersMax = 128;     // events with a handler
inline constexpr int kUdpdEventsMax = 144;       // events that may travel
inline constexpr int kUdpdEventStop = 0x80;      // received: the daemon ends
inline constexpr int kUdpdEventAny = 0x81;       // udpd_recv_data: takes whatever comes
inline constexpr int kUdpdPayloadMax = 1024;     // of one datagram
inline constexpr int kUdpdFrameMax = 1056;       // the same with its header; first room for a message
inline constexpr int kUdpdMessageMax = 16 << 20; // no message takes more memory; a longer one is dropped

struct UDPD_HANDLE;

// Serves one event.
//   message  `length` bytes with a NUL behind them, which the handler may change; NULL when empty
// The result is not looked at: a handler tells of its failure in what it sends.
using UdpdHandler = int (*)(UDPD_HANDLE *handle, char *message, int length);

enum UdpdState : int { kUdpdFree = 0, kUdpdAllocated = 1, kUdpdInitialised = 2 };

struct UDPD_HANDLE {
    char szName[8]; // a full name has no NUL
    int nPort;
    int nSocket;                               // bound by udpd_run
    int nPid;                                  // of the daemon
    UdpdHandler pfnHandlers[kUdpdHandlersMax]; // by event
    int nState;                                // UdpdState
    char szWireName[8];
    int nWireReserved; // 0
    uint16_t usId;     // of the message in progress; what is sent carries it
};

// The event of the message that udpd_recv_data took last.
extern int gUdpdLastEvent;

// The first free handle of the process. NULL when all are taken, or without memory, which is logged.
[[nodiscard]] UDPD_HANDLE *NORVUdpdGetHandle();
// Names an allocated handle; the first 8 bytes of the name count. Returns 0; -1 with 0x7100, 0x7400 without a name or
// with a negative port.
[[nodiscard]] int udpd_init(UDPD_HANDLE *handle, const char *name, int port);
// Returns 0; -1 with 0x7100, 0x7300 when there is no such event.
[[nodiscard]] int udpd_reg_event_handler(UDPD_HANDLE *handle, int event, UdpdHandler handler);
// Clears the handle. Returns 0; -1 with 0x7100.
int udpd_release_handle(UDPD_HANDLE *handle);

// Makes this process a daemon, /var/run/<name>.pid telling its number, and serves events: the calling process ends with
// 0, the daemon returns.
//   ifname  the one interface that is listened to; NULL for all
// Returns 0 when the stop event came; -1 with 0x7100, 0x9700, 0x7500 (logged) or what ended udpd_recv_data.
[[nodiscard]] int udpd_run(UDPD_HANDLE *handle, const char *ifname);

// Waits for a message, however long it takes. Of one whose parts stay away, three times three seconds or three other
// datagrams long, the beginning is dropped with 0x7700 noted, and any event is taken from then on.
//   event   its number, or kUdpdEventAny
//   size    in: room in `buffer`; out: the message's length when that is too little
// Returns its length, with gUdpdLastEvent set. -1 with 0x7100, 0x7300, 0x7400, 0x7a00, 0x7500 without memory, or
// 0x7600: the message waits for the next call. It does not fit when it takes all of the room; one that has waited may.
[[nodiscard]] int udpd_recv_data(UDPD_HANDLE *handle, int event, void *buffer, int *size);

// Sends a message to the handle's port, from UDP port 9999.
//   data, length  NULL with 0 for an empty one
//   is_request    0: daemons must not take it as a request, as with every reply
// Returns the bytes of `data` sent; -1 with 0x7100, 0x7300, 0x7400, or 0x7900, which is logged.
int udpd_send_data(UDPD_HANDLE *handle, int event, const void *data, int length, int is_request);

inline constexpr int kUdpBroadCastKind = 1;

// Sends one datagram on its own: opens the interface, link_sender_udp, closes.
//   kind  kUdpBroadCastKind
// Returns 0; -1 with 0x0d00 on another kind, a missing argument or a length below 1, 0x8000.
int udpd_send_udp_broad_cast(int kind, const NET_UDP_FRAME *frame, const void *payload, int length, const char *ifname);
