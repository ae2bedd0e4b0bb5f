// How a failure is told: the error record that a failed call leaves for its caller, and lines in the system log.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <syslog.h>

// Codes of the error record. A module uses the nearest sense; where a docstring names a number, this is its name.
enum ErrorCode : int {
    kErrNone = 0,
    kErrBufferTooSmall = 0x0100,
    kErrOutOfMemory = 0x0200,
    kErrLockTimeout = 0x0400,
    kErrUnlock = 0x0500,
    kErrDeviceSearch = 0x0600,
    kErrNoDevice = 0x0700,
    kErrOpen = 0x0900,
    kErrRead = 0x0a00,
    kErrWrite = 0x0b00,
    kErrBadParameter = 0x0d00,
    kErrBadAddress = 0x1000,
    kErrTransfer = 0x1100,
    kErrKeyMissing = 0x2000,
    kErrSectionMissing = 0x2200,
    kErrQuota = 0x2400,
    kErrVendorData = 0x2600,
    kErrStat = 0x2700,
    kErrRename = 0x2800,
    kErrChild = 0x2a00,
    kErrStorageLock = 0x2e00,
    kErrDiskIdentify = 0x3300,
    kErrNetwork = 0x3900,
    kErrBadFormat = 0x4000,
    kErrUdpdHandle = 0x7100,
    kErrUdpdEvent = 0x7300,
    kErrUdpdParameter = 0x7400,
    kErrUdpdRun = 0x7500, // no socket or no memory
    kErrUdpdTooSmall = 0x7600,
    kErrUdpdTimeout = 0x7700,
    kErrUdpdSend = 0x7900,
    kErrUdpdReceive = 0x7a00,
    kErrLinkLevel = 0x8000, // shared with the next
    kErrRaidRead = 0x8000,
    kErrSystemCall = 0x8100,
    kErrFork = 0x9700,
    kErrRaidDiskCreate = 0x9a00,
    kErrRaidIoctl = 0xa700,
    kErrNoneFoundB6 = 0xb600, // three enumerations that found nothing each leave a code of their own
    kErrNoneFoundBe = 0xbe00,
    kErrNoneFoundD9 = 0xd900,
    kErrClose = 0xe300,
    kErrTextDoesNotFit = 0xfb00,
};

// The last failure of this process. It keeps its value until the next failure; success does not clear it, so it is
// read at once after a failed call, before any other call of this library.
struct ErrorRecord {
    int32_t code;
    int32_t line;
    const char *file; // source name without folders; static storage
};
extern ErrorRecord NorvErr;

// Stores the three fields. `file` must live as long as the process. Keeps errno.
void NLIBCErrSet(int code, const char *file, int line);
[[nodiscard]] int NLIBCErrGet();
[[nodiscard]] const char *NLIBCErrFileGet(); // "" before the first failure
[[nodiscard]] int NLIBCErrLineGet();

// The part of a path after its last slash.
constexpr const char *base_name(const char *path)
{
    const std::string_view text(path);
    const auto slash = text.rfind('/');
    return slash == std::string_view::npos ? path : path + slash + 1;
}

struct Failure { // becomes -1 or NULL; does not compile as bool
    template <std::signed_integral T> constexpr operator T() const { return -1; }
    template <typename T> constexpr operator T *() const { return nullptr; }
};

// Notes code, source name and line of a failure; the place is that of the call. Returns what the caller returns: -1 or
// NULL. Keeps errno.
inline Failure fail(int code, const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    NLIBCErrSet(code, base_name(file), line);
    return {};
}

// Log lines. The text is one literal, so that it can be searched for; %m is the errno of before the call.
//
//   NORV_LOG       "file:line text"
//   NORV_LOG_CALL  "file:line" and a text that begins with "(%s)": its first argument is a function word
//   NORV_LOG_OLD   "word(line)" and a text that begins with ": ", " " or its first word: the oldest form
#define NORV_LOG(priority, format, ...)                                                                                \
    syslog(priority, "%s:%d " format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define NORV_LOG_CALL(priority, format, ...)                                                                           \
    syslog(priority, "%s:%d" format, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define NORV_LOG_OLD(priority, word, format, ...)                                                                      \
    syslog(priority, "%s(%d)" format, word, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The three arguments of "[0x%04X %s:%d]", the form in which the error record is printed.
#define NORV_ERR_ARGS static_cast<unsigned>(NLIBCErrGet()), NLIBCErrFileGet(), NLIBCErrLineGet()
