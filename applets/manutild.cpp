#include "applets/manutild.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "applets/applets.h"
#include "applets/banner.h"
#include "autocleanup/unique.h"
#include "external/hw_control.h"
#include "lib/file.h"
#include "lib/report.h"

static constexpr char kUartPath[] = "/dev/ttyS1";
static constexpr unsigned kStartSeconds = 15; // until the second serial port can be had
static constexpr int kPort = 1122;

static constexpr struct {
    int event;
    UdpdHandler handler;
} kEvents[] = {
    {kManGroupAction, ErrMANIDoGroupAction},   {kManFinalCheck, MANFinalCheck},
    {kManCustomSnSet, MANCustomSnSet},         {kManMacSet, MANMacSet},
    {kManTestFlagGet, ManTestFlagGet},         {kManGroupOperation, MANGroupOperation},
    {kManMemTestProgress, MANMemTestProgress},
};

char gszManUnique[64];

int man_reply_data(UDPD_HANDLE *handle, ManEvent event, int32_t result, void *reply, size_t bytes)
{
    const uint32_t wire_result = htonl(static_cast<uint32_t>(result));
    memcpy(reply, &wire_result, sizeof(wire_result));
    return udpd_send_data(handle, event, reply, static_cast<int>(bytes), 0) < 0 ? -1 : 0;
}

int man_reply(UDPD_HANDLE *handle, ManEvent event, int32_t result)
{
    uint32_t reply = 0;
    return man_reply_data(handle, event, result, &reply, sizeof(reply));
}

void man_control(int control)
{
    NORVHWExternalControl(control, 0, nullptr, kHwTypeDefault);
}

void man_shell(const char *line)
{
    static_cast<void>(!system(line)); // the ! tells the compiler that it is meant
}

int manutild_main(int argc, char *argv[])
{
    if (help_is_asked(argc, argv)) {
        banner_print();
        return 0;
    }
    static_cast<void>(NLIBCFileGetKeyValue(kConfPath, "unique", gszManUnique, sizeof(gszManUnique), 0));
    srand(static_cast<unsigned>(time(nullptr) ^ getpid())); // units that start together must not wait in step
    sleep(kStartSeconds);
    const UniqueFd uart(open(kUartPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!uart) {
        NORV_LOG_OLD(LOG_ERR, __func__, ": Error to open UART2");
        NORV_LOG(LOG_ERR, "Fail to open uart2.\n");
    }
    UDPD_HANDLE *handle = NORVUdpdGetHandle();
    if (handle == nullptr || udpd_init(handle, "manutild", kPort) != 0)
        return -1;
    for (const auto &[event, handler] : kEvents)
        if (udpd_reg_event_handler(handle, event, handler) != 0)
            return -1;
    const int result = udpd_run(handle, "eth0");
    udpd_release_handle(handle);
    return result;
}
