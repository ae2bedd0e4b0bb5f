// Stand-ins for calls of libc, in process: they count, fail when told to, and keep a test from what it must not do.
// The code under test reaches them, libc itself does not. Without a WatchedCall each is the true call.
#pragma once

#include <climits>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct CallAnswer {
    int error = 0;                  // errno; the call then fails
    int times = INT_MAX;            // so many calls are answered, the rest are true calls
    int skip = 0;                   // so many true calls come first
    std::function<void()> before{}; // done before each call
};

// Answers one call from now to scope exit: it fails, or without an error does nothing and returns 0.
//   name  clone, close, close_range, fcntl, fdopen, flock, fork, kill, open, pipe2, read, usleep, waitpid or write; or
//         _exit, which is counted alone
class WatchedCall
{
  public:
    explicit WatchedCall(std::string_view name, CallAnswer answer = {});
    WatchedCall(const WatchedCall &) = delete;
    WatchedCall &operator=(const WatchedCall &) = delete;
    ~WatchedCall();

    std::vector<long> seen{}; // the first argument of each call, where it is a number

  private:
    friend bool call_is_answered(std::string_view name, long argument);
    std::string name_;
    CallAnswer answer_;
    WatchedCall *before_;
};

// Keeps what goes to syslog from now to scope exit: "<priority> <text>\n" each.
class LogCapture
{
  public:
    LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;
    ~LogCapture();

    std::string text{};

  private:
    LogCapture *before_;
};
