// A timed lock on a file, held until scope exit. The lock on the status cache is one use of it.
#pragma once

class ScopedLock
{
  public:
    // Tries for `seconds` as NLIBCFileLockTimeByFile does. A failure is logged and leaves that call's error record.
    ScopedLock(const char *path, int seconds, bool exclusive = true);
    ScopedLock(const ScopedLock &) = delete;
    ScopedLock &operator=(const ScopedLock &) = delete;
    ~ScopedLock(); // logs a failure; errno and the error record stay

    [[nodiscard]] bool held() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};
