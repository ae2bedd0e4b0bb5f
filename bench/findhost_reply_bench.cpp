// Answering a discovery query, from the parsed packet to the second frame at the far end of the wire, plain and sealed.
// There is no ping here, which in earnest may take two seconds: starting it fails at once.
#include <algorithm>
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <cstring>
#include <ctime>
#include <linux/netlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "findhost/findhost.h"
#include "findhost/keys.h"
#include "findhost/serve.h"
#include "lib/text.h"
#include "tests/fuzz/file_root.h"
#include "tests/support/box_links.h"

namespace
{

bool address_set(const char *interface, const char *address)
{
    const UniqueFd control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    snprintf(request.ifr_name, sizeof(request.ifr_name), "%s", interface);
    auto *place = reinterpret_cast<sockaddr_in *>(&request.ifr_addr);
    place->sin_family = AF_INET;
    return inet_pton(AF_INET, address, &place->sin_addr) == 1 && ioctl(control.get(), SIOCSIFADDR, &request) == 0;
}

double seconds_of(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// A machine with one wire.
bool machine_make()
{
    file_root_enter();
    file_root_put("/etc.defaults/norvinfo.conf", "unique=\"norv_x86_bench\"\nupnpmodelname=\"NX100\"\n");
    file_root_put("/etc.defaults/VERSION", "productversion=\"7.1\"\nbuildnumber=\"200\"\nsmallfixnumber=\"1\"\n");
    file_root_put("/proc/sys/kernel/norv_serial", "1234567890ABC\n");
    file_root_put("/proc/net/dev", "Inter-| Receive\n face |bytes\n  eth0: 1 1 0 0 0 0 0 0 1 1 0 0 0 0 0 0\n");
    stdout = fopen("/dev/null", "w"); // as the daemon has it
    BoxLinks links(UniqueFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)));
    return stdout != nullptr && links.wire("eth0", "far0") && links.set("eth0", true) && links.set("far0", true) &&
           links.settle("eth0", true) && address_set("eth0", "192.0.2.1") && FHOSTProcessKeyInit() == 0;
}

// Listens at the far end, and has the kernel note when frames come.
UniqueFd far_end_open()
{
    UniqueFd far_end(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
    const int is_on = 1;
    if (setsockopt(far_end.get(), SOL_SOCKET, SO_TIMESTAMPNS, &is_on, sizeof(is_on)) != 0 ||
        bind(far_end.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        far_end.reset();
    return far_end;
}

// When the next frame came, in seconds; 0 when none did.
double frame_seconds(int far_end)
{
    char frame[2048], control[CMSG_SPACE(sizeof(timespec))];
    iovec bytes = {frame, sizeof(frame)};
    msghdr message = {};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    if (recvmsg(far_end, &message, 0) <= 0 || CMSG_FIRSTHDR(&message) == nullptr)
        return 0;
    timespec came;
    memcpy(&came, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(came));
    return seconds_of(came);
}

void query_serve(benchmark::State &state, bool is_sealed)
{
    static const bool is_made = machine_make();
    const UniqueFd far_end = is_made ? far_end_open() : UniqueFd();
    if (!far_end) {
        state.SkipWithError("no machine to answer");
        return;
    }
    gblAcceptPlain = 1;
    FHOST_RECORD record = {};
    record.ulPktType = PKT_ID_PTYPE_QUERY;
    text_cut(record.szPcMac, "02:00:00:00:00:09");
    if (is_sealed) {
        record.ulKeyId = 7;
        for (size_t i = 0; i < kFhostKeyBytes; i++)
            snprintf(record.szPubKey + 2 * i, 3, "%02x", FHOSTProcessPublicKey()[i]);
    }
    static uint32_t client = 0; // another one each time: who asks again at once gets no answer
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    double best_seconds = 1e9;
    for (auto _ : state) {
        peer.sin_addr.s_addr = htonl(++client);
        timespec asked;
        clock_gettime(CLOCK_REALTIME, &asked);
        const bool is_served = fhost_serve_query(record, peer) == 0 && frame_seconds(far_end.get()) > 0;
        const double seconds = frame_seconds(far_end.get()) - seconds_of(asked);
        if (!is_served || seconds <= 0)
            state.SkipWithError("no answer");
        state.SetIterationTime(std::max(seconds, 0.0));
        best_seconds = std::min(best_seconds, seconds);
    }
    state.counters["best_ns"] = best_seconds * 1e9; // on a busy machine no average is of the answer alone
}
BENCHMARK_CAPTURE(query_serve, plain, false)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(query_serve, sealed, true)->UseManualTime()->Unit(benchmark::kMicrosecond);

} // namespace
