#include <algorithm>
#include <arpa/inet.h>

#include "lib/file_line.h"
#include "lib/file_replace.h"
#include "lib/file_text.h"
#include "net/net_files.h"
#include "net/net_text.h"

static constexpr char kResolvPath[] = "/etc/resolv.conf";
static constexpr char kResolvNewPath[] = "/etc/resolv.conf.static.tmp";

std::string_view net_name_server(std::string_view resolv_conf)
{
    static constexpr std::string_view kKey = "nameserver", kBlanks = " \t\n";
    while (!resolv_conf.empty()) {
        std::string_view line = line_next(&resolv_conf);
        if (!line.starts_with(kKey))
            continue;
        line.remove_prefix(std::min(line.find_first_of(kBlanks), line.size()));
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        return line.substr(0, line.find_first_of(kBlanks));
    }
    return {};
}

int NORVJNetGetDNS(char *text, size_t size)
{
    if (text == nullptr || size == 0)
        return fail(kErrBadParameter);
    text[0] = '\0';
    const NetFilesLock lock(kNetReadLockWord);
    if (!lock.held())
        return -1;
    FileText file;
    if (file_text_load(kResolvPath, &file) != 0)
        return 0;
    const std::string_view server = net_name_server(file.view());
    if (server.size() >= size)
        return fail(kErrBufferTooSmall);
    text[server.copy(text, size - 1)] = '\0';
    return 0;
}

int NORVJNetSetDNS(const char *text)
{
    const UniqueFileName copy(kResolvNewPath); // goes on every way out, also one that an earlier run left
    in6_addr address;
    if (text == nullptr || (inet_pton(AF_INET, text, &address) != 1 && inet_pton(AF_INET6, text, &address) != 1)) {
        NORV_LOG(LOG_ERR, "FALSE != checkDNSIp(szDNS)");
        return fail(kErrBadAddress);
    }
    const NetFilesLock lock(kNetWriteLockWord);
    if (!lock.held())
        return -1;
    return file_replace_synced(kResolvNewPath, kResolvPath, "nameserver\t%s\n", text);
}
