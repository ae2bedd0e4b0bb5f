#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/proc.h"
#include "lib/report.h"
#include "lib/string.h"
#include "net/lan.h"
#include "net/net.h"

static constexpr char kForeignAddress[] = "8.8.8.8"; // whoever answers for it is a proxy

namespace
{

int arping(const char *interface, const char *count, const char *address)
{
    return NLIBCExecl("/usr/sbin/arping", kExecDetached, "-I", interface, "-c", count, address, nullptr);
}

// The child's work: asks for both addresses at once. Returns its exit status.
int neighbour_ask(const char *interface, const char *count, const char *address)
{
    const pid_t proxy_pid = NLIBCFork(kExecDetached);
    if (proxy_pid == 0)
        _exit(arping(interface, count, kForeignAddress));
    const int answer = arping(interface, count, address);
    int proxy_status = 0;
    if (proxy_pid < 0 || TEMP_FAILURE_RETRY(waitpid(proxy_pid, &proxy_status, 0)) != proxy_pid)
        return -1;
    return answer == 0 && proxy_status != 0 ? 0 : -1;
}

} // namespace

int norv_is_in_lan(const char *address, int count)
{
    char count_text[16];
    if (address == nullptr || NLIBCStrSnprintf(count_text, sizeof(count_text), "%d", count) < 0)
        return fail(kErrBadParameter);
    NET_IF_INFO interfaces[kNetInterfacesMax];
    const int found = NLIBNetGetInterfaceInfo(interfaces, kNetInterfacesMax, kNetPhysical);
    if (found < 0) {
        NORV_LOG(LOG_ERR, "NLIBNetGetInterfaceInfo(physical) fail[0x%04X %s:%d]", NORV_ERR_ARGS);
        return -1;
    }
    for (int i = 0; i < found; i++) {
        if (interfaces[i].nLink != kNetLinkUp)
            continue;
        const pid_t pid = NLIBCFork(kExecDetached);
        if (pid == 0)
            _exit(neighbour_ask(interfaces[i].szName, count_text, address));
        if (pid < 0) {
            NORV_LOG(LOG_ERR, "Failed to fork child for %s", interfaces[i].szName);
            return -1;
        }
    }
    int result = -1, status = 0;
    while (TEMP_FAILURE_RETRY(waitpid(-1, &status, 0)) > 0)
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            result = 0;
    return result;
}
