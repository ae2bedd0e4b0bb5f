// A file mode mask that holds until scope exit.
#pragma once

#include <sys/stat.h>

class ScopedUmask
{
  public:
    explicit ScopedUmask(mode_t mask) : before_(umask(mask)) {}
    ScopedUmask(const ScopedUmask &) = delete;
    ScopedUmask &operator=(const ScopedUmask &) = delete;
    ~ScopedUmask() { umask(before_); }

  private:
    mode_t before_;
};
