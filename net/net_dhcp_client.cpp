#include "net/norvjnet.h"

#include <csignal>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr int kGraceSeconds = 3;

static int pid_path(char *path, size_t size, const char *name)
{
    return NLIBCStrSnprintf(path, size, "%s%s.pid", kNetLeasePrefix, name) < 0 ? -1 : 0;
}

int DhcpClientKill(const char *name)
{
    char path[64];
    if (pid_path(path, sizeof(path), name) != 0)
        return -1;
    if (!NLIBCProcAliveByPidFile(path))
        return 0;
    NLIBCProcSignalByPidFile(path, SIGTERM);
    for (int second = 0; second < kGraceSeconds; second++) {
        sleep(1);
        if (!NLIBCProcAliveByPidFile(path))
            return 0;
    }
    NLIBCProcSignalByPidFile(path, SIGKILL);
    sleep(1);
    if (!NLIBCProcAliveByPidFile(path))
        return 0;
    NORV_LOG(LOG_ERR, "killed failed");
    return -1;
}

int net_dhcp_client_start(const char *name)
{
    char path[64];
    if (pid_path(path, sizeof(path), name) != 0)
        return -1;
    return NLIBCExecl("/sbin/udhcpc", kExecDetached, "-i", name, "-p", path, "-b", nullptr) == 0 ? 0 : -1;
}
