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
            static_cast<void>(kRelease(handle_));
            errno = saved_errno;
        }
        handle_ = next;
    }
    // Where a call that makes or moves the handle stores it.
    [[nodiscard]] Handle *address() { return &handle_; }

  private:
    Handle handle_ = kNone;
};

inline void unique_free(char *text) // so that the address of a library function need not be taken
{
    free(text);
}

using UniqueFd = Unique<int, -1, [](int fd) { return close(fd); }>;
using UniqueFile = Unique<FILE *, nullptr, [](FILE *fp) { return fclose(fp); }>;
using UniqueDir = Unique<DIR *, nullptr, [](DIR *dir) { return closedir(dir); }>;
using UniqueText = Unique<char *, nullptr, unique_free>; // text from malloc
using UniqueList = Unique<PNLIBSZLIST, nullptr, NLIBCSzListFree>;
using UniqueHash = Unique<PNLIBSZHASH, nullptr, NLIBCSzHashFree>;
