#include "tests/support/watched_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <sys/types.h>
#include <syslog.h>
#include <type_traits>

static WatchedCall *watched_calls = nullptr;
static LogCapture *log_capture = nullptr;

WatchedCall::WatchedCall(std::string_view name, CallAnswer answer)
    : name_(name), answer_(std::move(answer)), before_(watched_calls)
{
    watched_calls = this;
}

WatchedCall::~WatchedCall()
{
    watched_calls = before_;
}

LogCapture::LogCapture() : before_(log_capture)
{
    log_capture = this;
}

LogCapture::~LogCapture()
{
    log_capture = before_;
}

// Whether a watch answers this call; errno is then what it says, or 0 for success.
bool call_is_answered(std::string_view name, long argument)
{
    for (WatchedCall *watch = watched_calls; watch != nullptr; watch = watch->before_) {
        if (watch->name_ != name)
            continue;
        watch->seen.push_back(argument);
        if (watch->answer_.before)
            watch->answer_.before();
        if (watch->answer_.skip-- > 0 || watch->answer_.times-- <= 0)
            return false;
        errno = watch->answer_.error;
        return true;
    }
    return false;
}

template <typename Value> static Value answer_of_call()
{
    if constexpr (std::is_pointer_v<Value>)
        return nullptr;
    else
        return errno == 0 ? 0 : -1;
}

// Named apart from libc's declarations, and for the linker as they are.
#define STAND_IN(Value, name, parameters, key, ...)                                                                    \
    extern "C" Value stand_in_##name parameters __asm__(#name);                                                        \
    Value stand_in_##name parameters                                                                                   \
    {                                                                                                                  \
        static const auto true_call = reinterpret_cast<Value(*) parameters>(dlsym(RTLD_NEXT, #name));                  \
        return call_is_answered(#name, key) ? answer_of_call<Value>() : true_call(__VA_ARGS__);                        \
    }

STAND_IN(int, clone, (int (*run)(void *), void *stack, int flags, void *argument), flags, run, stack, flags, argument)
STAND_IN(int, close, (int fd), fd, fd)
STAND_IN(int, close_range, (unsigned first, unsigned last, int flags), first, first, last, flags)
STAND_IN(int, fcntl, (int fd, int command, long argument), fd, fd, command, argument)
STAND_IN(FILE *, fdopen, (int fd, const char *mode), fd, fd, mode)
STAND_IN(int, flock, (int fd, int operation), operation, fd, operation)
STAND_IN(pid_t, fork, (), 0)
STAND_IN(int, kill, (pid_t pid, int number), pid, pid, number)
STAND_IN(int, open, (const char *path, int flags, mode_t mode), flags, path, flags, mode)
STAND_IN(int, pipe2, (int *ends, int flags), flags, ends, flags)
STAND_IN(ssize_t, read, (int fd, void *buf, size_t size), fd, fd, buf, size)
STAND_IN(int, usleep, (useconds_t us), us, us)
STAND_IN(pid_t, waitpid, (pid_t pid, int *status, int options), pid, pid, status, options)
STAND_IN(ssize_t, write, (int fd, const void *buf, size_t size), fd, fd, buf, size)

extern "C" void stand_in_exit(int status) __asm__("_exit");
void stand_in_exit(int status)
{
    call_is_answered("_exit", status);
    reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "_exit"))(status);
}

static void log_keep(int priority, const char *format, va_list arguments)
{
    if (log_capture == nullptr) {
        vsyslog(priority, format, arguments);
        return;
    }
    char line[4096];
    vsnprintf(line, sizeof(line), format, arguments);
    log_capture->text += std::to_string(priority) + " " + line + "\n";
}

extern "C" void stand_in_syslog(int priority, const char *format, ...) __asm__("syslog");
void stand_in_syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_keep(priority, format, arguments);
    va_end(arguments);
}

// What syslog is in a fortified build.
extern "C" void stand_in_syslog_chk(int priority, int flag, const char *format, ...) __asm__("__syslog_chk");
void stand_in_syslog_chk(int priority, [[maybe_unused]] int flag, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_keep(priority, format, arguments);
    va_end(arguments);
}
