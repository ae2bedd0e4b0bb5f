#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/route.h>
#include <netinet/in.h>

#include "autocleanup/unique.h"
#include "net/net_files.h"
#include "net/net_text.h"

static constexpr char kRoutePath[] = "/proc/net/route";
static constexpr int kRouteFields = 11;

int net_gateway_read(FILE *file, char *text, size_t size)
{
    char line[256];
    if (fgets(line, sizeof(line), file) == nullptr) // the heading
        return 0;
    while (fgets(line, sizeof(line), file) != nullptr) {
        char interface[64];
        unsigned long destination = 0, gateway = 0, mask = 0;
        unsigned flags = 0;
        int references = 0, uses = 0, metric = 0, mtu = 0, window = 0, irtt = 0;
        if (sscanf(line, "%63s%lx%lx%X%d%d%d%lx%d%d%d", interface, &destination, &gateway, &flags, &references, &uses,
                   &metric, &mask, &mtu, &window, &irtt) != kRouteFields) {
            syslog(LOG_ERR, "%s (%d) Unknow kernel routing table format, errno=[%s/%d]", "NORVJNetGetGateway", __LINE__,
                   strerror(errno), errno);
            return fail(kErrBadFormat);
        }
        if ((flags & RTF_UP) == 0 || (flags & RTF_GATEWAY) == 0 || destination != 0 || mask != 0)
            continue;
        const in_addr address = {.s_addr = static_cast<in_addr_t>(gateway)}; // as the kernel stores it
        return inet_ntop(AF_INET, &address, text, static_cast<socklen_t>(size)) != nullptr ? 0
                                                                                           : fail(kErrBufferTooSmall);
    }
    return 0;
}

int NORVJNetGetGateway(char *text, size_t size)
{
    if (text == nullptr || size == 0)
        return fail(kErrBadParameter);
    text[0] = '\0';
    const UniqueFile file(fopen(kRoutePath, "re"));
    return file ? net_gateway_read(file.get(), text, size) : fail(kErrOpen);
}

int NORVJNetSetGateway(const char *text)
{
    if (text == nullptr)
        return fail(kErrBadParameter);
    static_cast<void>(net_line_run("/sbin/route delete default > /dev/null 2>&1"));
    if (text[0] == '\0')
        return 0;
    const int status = net_line_run("/sbin/route add default gw %s > /dev/null 2>&1", text);
    if (status == 0)
        return 0;
    NORV_LOG(LOG_ERR, "failed to set default gateway %s (%d).", text, status);
    return fail(kErrChild);
}
