#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "lib/io.h"
#include "lib/report.h"
#include "lib/string.h"
#include "lib/text.h"
#include "net/net.h"
#include "net/net_seq.h"

static constexpr char kNotifyPath[] = "/proc/sys/kernel/norv_unsupported_sfp_notify";

namespace
{

// Tells the driver a value and the port that has it now.
bool notify_write(int fd, int value, int port)
{
    char text[32];
    const int length = NLIBCStrSnprintf(text, sizeof(text), "%d %d ", value, port);
    return length > 0 && lseek(fd, 0, SEEK_SET) == 0 && NLIBCWrite(fd, text, static_cast<size_t>(length)) == length;
}

// The two ports swap their values in the driver's table. Returns false when that cannot be.
bool notify_swap(int old_port, int port)
{
    const UniqueFd file(open(kNotifyPath, O_RDWR | O_CLOEXEC));
    if (!file) {
        NORV_LOG(LOG_ERR, "Failed to open SFP notify file.");
        return false;
    }
    char text[512] = "";
    if (NLIBCRead(file.get(), text, sizeof(text) - 1) < 0)
        return false;
    int values[kNetSeqMax] = {};
    char *at = text, *end = nullptr;
    for (int &value : values) {
        const long number = strtol(at, &end, 10);
        if (end == at)
            break;
        value = static_cast<int>(number);
        at = end;
    }
    if (old_port < 0 || old_port >= kNetSeqMax || port < 0 || port >= kNetSeqMax)
        return false;
    return notify_write(file.get(), values[old_port], port) && notify_write(file.get(), values[port], old_port);
}

// Renames a device in the system, then in its record.
bool device_rename(NETDEVSEQ *device, const char *name)
{
    if (net_rename_eth(device->szName, name) != 0) {
        NORV_LOG(LOG_ERR, "failed to rename %s to %s\n", device->szName, name);
        return false;
    }
    text_cut(device->szName, name);
    return true;
}

NETDEVSEQ *device_find(NETDEVSEQ *devices, int count, const char *name)
{
    for (int i = 0; i < count; i++)
        if (strcmp(devices[i].szName, name) == 0)
            return &devices[i];
    return nullptr;
}

} // namespace

void net_seq_rename(NETDEVSEQ *devices, int count, const NLIBSZLIST *numbers, int spare)
{
    char spare_name[16];
    NLIBCStrSnprintf(spare_name, sizeof(spare_name), "eth%d", spare);
    for (int u = 0; u < count; u++) {
        int old_number = 0;
        const char *text = NLIBCSzListGet(numbers, u);
        if (text == nullptr || sscanf(devices[u].szName, "eth%d", &old_number) != 1)
            continue;
        const int number = static_cast<int>(strtol(text, nullptr, 10));
        if (number == old_number)
            continue;
        char old_name[sizeof(NETDEVSEQ::szName)], name[16];
        text_cut(old_name, text_view(devices[u].szName));
        NLIBCStrSnprintf(name, sizeof(name), "eth%d", number);
        printf("going to change name of %s to %s\n", old_name, name);
        NETDEVSEQ *holder = device_find(devices, count, name);
        if ((holder != nullptr && !device_rename(holder, spare_name)) || !device_rename(&devices[u], name) ||
            (holder != nullptr && !device_rename(holder, old_name)))
            continue;
        if (access(kNotifyPath, F_OK) == 0 && !notify_swap(old_number, number))
            NORV_LOG(LOG_ERR, "failed to swap norv_unsupported_sfp_notify\n");
        sleep(1);
    }
}
