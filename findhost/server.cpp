#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "findhost/findhost.h"

static constexpr int kTimeoutSeconds = 5;

namespace
{

struct Listener {
    int port;
    int fd; // -1 when free
};
Listener listeners[] = {{9999, -1}, {9998, -1}, {9997, -1}};

int listener_open(Listener *listener)
{
    const int on = 1;
    UniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!fd) {
        FHOST_DEBUG("%s %d: socket error\n", __FILE_NAME__, __LINE__);
        return -1;
    }
    const int flags = fcntl(fd.get(), F_GETFD);
    if (flags < 0 || fcntl(fd.get(), F_SETFD, flags | FD_CLOEXEC) < 0)
        FHOST_DEBUG("%s %d: fcntl failed, errno=%m\n", __FILE_NAME__, __LINE__);
    if (setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0) {
        FHOST_DEBUG("%s %d: set sock opt error\n", __FILE_NAME__, __LINE__);
        return -1;
    }
    if (setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
        FHOST_DEBUG("%s %d: set sock opt reuse error\n", __FILE_NAME__, __LINE__);
        return -1;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(listener->port));
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        FHOST_DEBUG("%s %d: bind error\n", __FILE_NAME__, __LINE__);
        return -1;
    }
    listener->fd = fd.release();
    return 0;
}

// Takes one datagram and serves it. Returns 0; -1 when the socket cannot be read.
int listener_serve(const Listener &listener)
{
    uint8_t buffer[kFhostDatagramBytes];
    sockaddr_in peer = {};
    socklen_t peer_bytes = sizeof(peer);
    gblReplyPort = listener.port;
    // Without waiting: a datagram that select saw may be gone, when its checksum was wrong.
    const ssize_t length =
        recvfrom(listener.fd, buffer, sizeof(buffer), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&peer), &peer_bytes);
    if (length < 0 && (errno == EINTR || errno == EAGAIN))
        return 0;
    if (length < 0) {
        FHOST_DEBUG("error recvfrom\n");
        return -1;
    }
    FHOSTHandlePacket(static_cast<int>(length), buffer, &peer);
    return 0;
}

// Waits for datagrams and signals. Returns what select returns.
int listeners_wait(fd_set *ready)
{
    timeval timeout = {kTimeoutSeconds, 0};
    int highest = fhost_signal_fd();
    FD_ZERO(ready);
    if (highest >= 0)
        FD_SET(highest, ready);
    for (const Listener &listener : listeners) {
        FD_SET(listener.fd, ready);
        highest = std::max(highest, listener.fd);
    }
    return select(highest + 1, ready, nullptr, nullptr, &timeout);
}

int listeners_serve()
{
    for (;;) {
        fd_set ready;
        const int count = listeners_wait(&ready);
        if (count < 0 && errno != EINTR)
            return 0;
        fhost_signals_serve();
        for (const Listener &listener : listeners)
            if (count > 0 && FD_ISSET(listener.fd, &ready) && listener_serve(listener) != 0)
                return -1;
    }
}

} // namespace

int FHOSTServerRun()
{
    int result = 0;
    for (Listener &listener : listeners)
        if (result == 0)
            result = listener_open(&listener);
    if (result == 0)
        result = listeners_serve();
    fhost_server_close();
    return result;
}

void fhost_server_close()
{
    for (Listener &listener : listeners) {
        if (listener.fd >= 0)
            close(listener.fd);
        listener.fd = -1;
    }
}
