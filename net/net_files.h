// What the operations on the network files share.
#pragma once

#include "lib/lock.h"
#include "lib/report.h"
#include "net/norvjnet.h"

// Lock words of the network files.
inline constexpr int kNetReadLockWord = 0x105;
inline constexpr int kNetWriteLockWord = 0x106;
inline constexpr int kNetUnlockWord = 0x100;

// The lock on the network files, held until scope exit. One process may take it more than once.
class NetFilesLock
{
  public:
    explicit NetFilesLock(int lock_word, const char *function = __builtin_FUNCTION())
        : held_(NLIBCFileLock(lock_word, kWaitSeconds) == 0)
    {
        if (!held_)
            NORV_LOG_OLD(LOG_ERR, function, " NLIBCFileLock failed.");
    }
    NetFilesLock(const NetFilesLock &) = delete;
    NetFilesLock &operator=(const NetFilesLock &) = delete;
    ~NetFilesLock()
    {
        if (held_)
            NLIBCFileUnlock(kNetUnlockWord);
    }

    [[nodiscard]] bool held() const { return held_; }

  private:
    static constexpr int kWaitSeconds = 30;
    bool held_;
};

inline constexpr size_t kNetPathRoom = 128;

// The path of the file that tells an interface's address: its lease for DHCP, for which this waits up to three seconds,
// else its configuration. Returns the NetCardMode.
NetCardMode net_address_file(const char *name, char (&path)[kNetPathRoom]);

// Formats a line and has the shell run it. Returns what system(3) does; -1 when the line is too long.
[[nodiscard]] int net_line_run(const char *format, ...) __attribute__((format(printf, 1, 2)));
