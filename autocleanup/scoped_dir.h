// A directory that lives until scope exit, to mount something on.
#pragma once

#include <sys/types.h>

class ScopedDir
{
  public:
    // Makes it; `path` must outlive the owner. A failure is logged. A directory that a crash left behind serves as
    // well, and is left behind again.
    explicit ScopedDir(const char *path, mode_t mode = 0400);
    ScopedDir(const ScopedDir &) = delete;
    ScopedDir &operator=(const ScopedDir &) = delete;
    ~ScopedDir(); // removes what the constructor made; errno and the error record stay

    [[nodiscard]] bool ready() const { return ready_; } // there is a directory

  private:
    const char *path_;
    bool made_, ready_;
};
