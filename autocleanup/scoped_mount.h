// A device mounted on a directory until scope exit.
#pragma once

class ScopedMount
{
  public:
    // Runs /usr/bin/mount, which finds the file system's type. Both paths are absolute; `directory` must outlive the
    // owner. The caller logs a failure; the error record tells one in which the program did not exit by itself.
    ScopedMount(const char *device, const char *directory);
    ScopedMount(const ScopedMount &) = delete;
    ScopedMount &operator=(const ScopedMount &) = delete;
    ~ScopedMount(); // runs /usr/bin/umount -l, so that the directory is free at once; errno and the error record stay

    [[nodiscard]] bool mounted() const { return mounted_; }

  private:
    const char *directory_;
    bool mounted_;
};
