#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/file_replace.h"
#include "lib/proc.h"
#include "lib/report.h"
#include "lib/text.h"
#include "net/udpd.h"

namespace
{

// The socket's failures stand behind the name of the call.
constexpr char kName[] = "udpd_run";

UniqueFd socket_open(int port, const char *ifname)
{
    UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        syslog(LOG_ERR, "%s: socket error", kName);
        return {};
    }
    const int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0) {
        syslog(LOG_ERR, "%s: set sock opt error", kName);
        return {};
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        syslog(LOG_ERR, "%s: bind error", kName);
        return {};
    }
    if (ifname != nullptr &&
        setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, ifname, static_cast<socklen_t>(strlen(ifname) + 1)) != 0) {
        NORV_LOG(LOG_ERR, "set socket option error: failed to bind to %s", ifname);
        return {}; // a station on another interface is not to be obeyed
    }
    return fd;
}

void pid_file_write(const UDPD_HANDLE &handle)
{
    char name[sizeof(handle.szName) + 1], path[32];
    text_cut(name, text_view(handle.szName));
    snprintf(path, sizeof(path), "/var/run/%s.pid", name);
    if (file_replace(path, "%d", handle.nPid) != 0)
        NORV_LOG(LOG_ERR, "Failed to write %s: %m", path);
}

// Serves messages until the stop event. Returns 0; -1.
int serve(UDPD_HANDLE *handle)
{
    UniqueText message;
    for (int room = 0, wanted = kUdpdFrameMax;;) {
        if (room != wanted) {
            message.reset(static_cast<char *>(malloc(static_cast<size_t>(wanted) + 1))); // a NUL behind the message
            if (!message)
                return fail(kErrUdpdRun);
            room = wanted;
        }
        int size = room;
        const int length = udpd_recv_data(handle, kUdpdEventAny, message.get(), &size);
        if (length < 0) {
            if (NLIBCErrGet() != kErrUdpdTooSmall)
                return -1;
            wanted = size;
            continue;
        }
        message.get()[length] = '\0';
        if (gUdpdLastEvent == kUdpdEventStop)
            return 0;
        if (gUdpdLastEvent < kUdpdHandlersMax && handle->pfnHandlers[gUdpdLastEvent] != nullptr)
            handle->pfnHandlers[gUdpdLastEvent](handle, length > 0 ? message.get() : nullptr, length);
        wanted = kUdpdFrameMax;
    }
}

} // namespace

int udpd_run(UDPD_HANDLE *handle, const char *ifname)
{
    if (handle == nullptr || handle->nState != kUdpdInitialised)
        return fail(kErrUdpdHandle);
    const pid_t pid = NLIBCFork(kForkSession | kForkRootDir | kForkNullStreams);
    if (pid < 0)
        return -1;
    if (pid > 0)
        _exit(0);
    handle->nPid = getpid();
    pid_file_write(*handle);
    const UniqueFd fd = socket_open(handle->nPort, ifname);
    if (!fd)
        return fail(kErrUdpdRun);
    handle->nSocket = fd.get();
    const int result = serve(handle);
    handle->nSocket = -1;
    return result;
}
