#include "net/udpd.h"

#include <cstdlib>
#include <cstring>

#include "lib/report.h"

static UDPD_HANDLE *handles; // kUdpdHandlesMax of them, for the life of the process

UDPD_HANDLE *NORVUdpdGetHandle()
{
    if (handles == nullptr)
        handles = static_cast<UDPD_HANDLE *>(calloc(kUdpdHandlesMax, sizeof(UDPD_HANDLE)));
    if (handles == nullptr) {
        syslog(LOG_ERR, "norvudpd.c(%d): malloc fail", __LINE__);
        return nullptr;
    }
    for (int i = 0; i < kUdpdHandlesMax; i++)
        if (handles[i].nState == kUdpdFree) {
            handles[i] = {};
            handles[i].nState = kUdpdAllocated;
            return &handles[i];
        }
    return nullptr;
}

int udpd_init(UDPD_HANDLE *handle, const char *name, int port)
{
    if (handle == nullptr || handle->nState != kUdpdAllocated)
        return fail(kErrUdpdHandle);
    if (name == nullptr || port < 0)
        return fail(kErrUdpdParameter);
    memset(handle->szName, 0, sizeof(handle->szName));
    memcpy(handle->szName, name, strnlen(name, sizeof(handle->szName)));
    memcpy(handle->szWireName, handle->szName, sizeof(handle->szWireName));
    handle->nWireReserved = 0;
    handle->nPort = port;
    handle->nSocket = -1;
    handle->usId = 0;
    handle->nState = kUdpdInitialised;
    return 0;
}

int udpd_reg_event_handler(UDPD_HANDLE *handle, int event, UdpdHandler handler)
{
    if (handle == nullptr || handle->nState == kUdpdFree)
        return fail(kErrUdpdHandle);
    if (event < 0 || event >= kUdpdHandlersMax)
        return fail(kErrUdpdEvent);
    handle->pfnHandlers[event] = handler;
    return 0;
}

int udpd_release_handle(UDPD_HANDLE *handle)
{
    if (handle == nullptr || (handle->nState != kUdpdAllocated && handle->nState != kUdpdInitialised))
        return fail(kErrUdpdHandle);
    *handle = {};
    return 0;
}
