// The two requests that work under the install lock.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "findhost/findhost.h"
#include "findhost/findhost_inetd.h"
#include "findhost/quick_conf.h"
#include "findhost/serve.h"
#include "install/install_lock.h"

static constexpr int kRepeatSeconds = 4;
static constexpr useconds_t kRepeatGapUs = 300;
static constexpr int kNoInterface = -2; // result of ErrFHOSTDoQuickConf

namespace
{

void lock_release(int fd)
{
    flock(fd, LOCK_UN); // for every copy of the descriptor
    close(fd);
}
using InstallLock = Unique<int, -1, lock_release>;

// What the debug channel is told of a lock that is not had, around the reply about it.
struct LockFailure {
    const char *before_reply, *after_reply;
};
struct LockFailures {
    LockFailure create, take;
};

// Takes the install lock; a client whose request finds it taken is told so.
InstallLock lock_take(mode_t mode, const LockFailures &failures, const FHOST_RECORD &record, const sockaddr_in &peer)
{
    UniqueFd file;
    const LockOutcome outcome = install_lock_take(O_CLOEXEC, &file, mode);
    if (outcome == LockOutcome::kTaken)
        return InstallLock(file.release());
    const LockFailure &failure = outcome == LockOutcome::kHeld ? failures.take : failures.create;
    FHOST_DEBUG("%s", failure.before_reply);
    FHOSTReply(0, &peer, kFhostLocked, true, &record);
    FHOST_DEBUG("%s", failure.after_reply);
    return {};
}

// In a full system this status says that the first configuration has been done.
bool is_configured()
{
    if (FHOSTGetStatus() != 1)
        return false;
    FHOST_DEBUG("QuickConf already Done\n");
    return true;
}

bool has_no_settings(const FHOST_RECORD &record)
{
    return record.ulDhcp == 0 && record.ulIP == 0 && record.ulDns == 0 && record.ulGateway == 0 &&
           record.szHostName[0] == '\0';
}

} // namespace

int fhost_serve_netsetting(const FHOST_RECORD &record, const sockaddr_in &peer)
{
    static constexpr LockFailures kFailures = {{"", "create lock file fail in PKT_ID_PTYPE_NETSETTING\n"},
                                               {"", "Get file lock fail in PKT_ID_PTYPE_NETSETTING\n"}};
    const InstallLock lock = lock_take(0644, kFailures, record, peer);
    if (!lock)
        return -1;
    FHOST_DEBUG("Get net setting packet\n");
    if (fhost_is_recent(tvLastNetSet, kRepeatSeconds) || is_configured())
        return 0;
    int index = 0;
    const int result = ErrFHOSTDoQuickConf(&record, &index);
    if (result == 0) {
        FHOSTReply(index, &peer, kFhostDone, true, &record);
        usleep(kRepeatGapUs);
    }
    FHOSTReply(index, &peer, result == 0 ? kFhostDone : kFhostRefused, true, &record);
    tvLastNetSet = time(nullptr);
    return result;
}

// Configures nothing: with a packet that sets nothing a client asks for the maintenance shell.
int fhost_serve_quickconf(const FHOST_RECORD &record, const sockaddr_in &peer)
{
    static constexpr LockFailures kFailures = {{"", "create lock file fail in PKT_ID_PTYPE_QUICKCONF\n"},
                                               {"Get file lock fail in PKT_ID_PTYPE_QUICKCONF\n", ""}};
    NET_IF_INFO table[kNetInterfacesMax] = {};
    const int count = NLIBNetGetInterfaceInfo(table, kNetInterfacesMax, kNetVirtual);
    if (count <= 0) {
        FHOST_DEBUG("ERROR (%s %d)\n", __func__, __LINE__);
        return 0;
    }
    int index = IsMacMatch(record.szMac, table, count);
    if (index < 0) {
        FHOSTReply(0, &peer, kFhostRefused, true, &record);
        return 0;
    }
    const InstallLock lock = lock_take(0770, kFailures, record, peer);
    if (!lock)
        return -1;
    FHOST_DEBUG("Get QuickConf Packet\n");
    if (is_configured())
        return 0;
    // Without an address the configuration fails, as it should.
    if (!has_no_settings(record) || ErrFHOSTDoQuickConf(&record, &index) == kNoInterface)
        FHOST_DEBUG("Not doing install\n");
    else if (FHOSTinetdStart() != 0)
        FHOST_DEBUG("Failed to start inetd\n");
    FHOSTReply(index, &peer, kFhostRefused, true, &record);
    return -1;
}
