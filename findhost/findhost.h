// The discovery daemon: what it keeps while it runs, its handler, and the replies it sends.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <netinet/in.h>

#include "findhost/packet.h"
#include "net/net.h"

extern int gblAcceptPlain;      // plain packets of any type are served
extern int gblDebug;            // messages on standard error
extern int gblMemTest;          // the machine is under a memory test
extern int gblAsstHasSySMigrat; // the last client announced system migration
extern int gblReplyPort;        // port the current packet came in on, to which replies go
extern time_t tvLastQuery;      // when the last query was answered or refused, 0: none
extern uint32_t ulLastQueryIP;  // who was answered last, network order
extern time_t tvLastNetSet;     // when the last network setting was done, 0: none

// The debug channel.
#define FHOST_DEBUG(...) (gblDebug != 0 ? static_cast<void>(fprintf(stderr, __VA_ARGS__)) : static_cast<void>(0))

// What PKT_ID_STATUS tells.
enum FhostStatus : int {
    kFhostNotInstalled = 2,
    kFhostUpdating = 3,
    kFhostCrashed = 4, // or a system that the client cannot migrate
    kFhostMemTesting = 9,
    kFhostRecoverable = 11,
    kFhostMigratable = 14,
};

// The status at this moment. Writes it to /tmp/fhost.status.
int FHOSTGetStatus();

// Opens the sockets and serves datagrams. Returns -1 when a socket cannot be had or read; 0 when there is nothing left
// to wait for.
int FHOSTServerRun();
void fhost_server_close();

// Has signals noted; those that come before the last call are lost. A process that forks calls it once more.
void fhost_signals_catch();
// Readable while there are signals to serve.
[[nodiscard]] int fhost_signal_fd();
// Hands the signals noted to FHOSTDExit.
void fhost_signals_serve();
// Whether a signal that ends the daemon was noted.
[[nodiscard]] bool fhost_is_ending();
// Reports a signal; the ones that end the daemon end it here, with status 0.
void FHOSTDExit(int signal);

inline constexpr char kFhostPidPath[] = "/var/run/findhostd.pid";

// Tells every ten seconds, unprompted, that the machine is there. Returns never.
[[noreturn]] void fhost_notify();

// Serves one datagram. Returns 0, or -1 when it was dropped or its request failed.
int FHOSTHandlePacket(int len, const uint8_t *buffer, const sockaddr_in *peer);

// Pings the peer and replies.
//   index     the interface to reply on, as NLIBNetGetInterfaceInfo counts virtual ones; -1: all that run
//   peer      NULL: unprompted
//   code      FhostResultCode
//   longForm  whether the elements about the exchange itself go along
//   request   what is answered; NULL: unprompted
void FHOSTReply(int index, const sockaddr_in *peer, uint32_t code, bool longForm, const FHOST_RECORD *request);

// One reply on one interface.
struct FhostReply {
    const NET_IF_INFO *table;    // the interfaces listed
    int index;                   // the one that replies, below kNetInterfacesMax
    uint32_t peer_ip;            // network order, 0 when there is no peer
    uint32_t connect;            // 1 when the peer could be pinged
    uint32_t code;               // FhostResultCode
    bool long_form;              // interface reply only
    const FHOST_RECORD *request; // NULL: unprompted, never sealed
};

// The packets that the appliance sends, plain.
void fhost_vface_reply_build(const FhostReply &reply, FhostPacket *packet);
void fhost_phyface_reply_build(const FhostReply &reply, FhostPacket *packet);
void fhost_ready_build(const NET_IF_INFO &interface, FhostPacket *packet);

// Seals a reply when the key of its client is known. Returns 1 sealed, 0 left plain; -1 when nothing may be sent: it is
// too long, or the client's key cannot be sealed to.
[[nodiscard]] int fhost_reply_seal(const FHOST_RECORD &request, FhostPacket *packet);

// Build and send. Returns 0; -1 when nothing was sent.
int FHOSTSendViaVface(const FhostReply &reply);
int FHOSTSendViaPhyface(const FhostReply &reply); // on every physical interface that runs; `table`, `index` not read
int FHOSTSendReadyViaVface(const NET_IF_INFO &interface);

// Broadcasts a packet twice at link level, from port 1234 to gblReplyPort. `ip`: the interface's address in network
// order, 0 for none. Returns 0; -1.
int FHOSTSendFrame(const NET_IF_INFO &interface, uint32_t ip, const FhostPacket &packet);
// The same once, from the port's own MAC and no address.
int fhost_physical_frame_send(const NET_IF_INFO &interface, const FhostPacket &packet);

// The index of the interface whose MAC is that text, in either case; -1 when there is none. `mac` is read up to 32
// characters.
[[nodiscard]] int IsMacMatch(const char *mac, const NET_IF_INFO *table, int count);
