// Owners that give back what they hold at scope exit. None of them changes errno or the error record, and none spans a
// fork: a child that does not exec ends with _exit.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <unistd.h>

#include "lib/hash.h"
#include "lib/list.h"

// Owns a handle that `kRelease` gives back; `kNone` is the value that holds nothing.
template <typename Handle, Handle kNone, auto kRelease> class Unique
{
  public:
    constexpr Unique() = default;
    explicit constexpr Unique(Handle handle) : handle_(handle) {}
    Unique(const Unique &) = delete;
    Unique &operator=(const Unique &) = delete;
    Unique(Unique &&other) noexcept : handle_(other.release()) {}
    Unique &operator=(Unique &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~Unique() { reset(); }

    [[nodiscard]] Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != kNone; }

    // Hands the handle to the caller, who gives it back from then on.
    [[nodiscard]] Handle release()
    {
        const Handle handle = handle_;
        handle_ = kNone;
        return handle;
    }
    void reset(Handle next = kNone)
    {
        if (handle_ != kNone) {
            const int saved_errno = errno;
            kRelease(handle_);
            errno = saved_errno;
        }
        handle_ = next;
    }
    // Where a call that makes or moves the handle stores it.
    [[nodiscard]] Handle *address() { return &handle_; }

  private:
    Handle handle_ = kNone;
};

// Named functions, not lambdas: a lambda would give every unit an owner type of its own.
inline void unique_fd_close(int fd)
{
    close(fd);
}
inline void unique_file_close(FILE *fp)
{
    fclose(fp);
}
inline void unique_dir_close(DIR *dir)
{
    closedir(dir);
}
template <typename T> void unique_block_free(T *block)
{
    free(block);
}

using UniqueFd = Unique<int, -1, unique_fd_close>;
using UniqueFile = Unique<FILE *, nullptr, unique_file_close>;
using UniqueDir = Unique<DIR *, nullptr, unique_dir_close>;
template <typename T> using UniqueBlock = Unique<T *, nullptr, unique_block_free<T>>; // memory from malloc
using UniqueText = UniqueBlock<char>;
using UniqueList = Unique<PNLIBSZLIST, nullptr, NLIBCSzListFree>;
using UniqueHash = Unique<PNLIBSZHASH, nullptr, NLIBCSzHashFree>;
